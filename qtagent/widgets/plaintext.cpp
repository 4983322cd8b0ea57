#include "plaintext_p.h"

#include <QTextDocument>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int toolTipLength = 1000;

bool isControl(QChar character)
{
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Separator_Line
        || category == QChar::Separator_Paragraph;
}

} // namespace

QString singleLine(QString text)
{
    for (QChar &character : text) {
        if (isControl(character))
            character = QLatin1Char(' ');
    }
    return text;
}

QString cutText(const QString &text, int maximum)
{
    if (text.size() <= maximum)
        return text;
    const bool endsInsidePair = maximum > 0 && text.at(maximum - 1).isHighSurrogate();
    return text.left(endsInsidePair ? maximum - 1 : maximum) + QStringLiteral("…");
}

QString plainToolTip(const QString &text)
{
    // Qt takes a tool tip that looks like markup for rich text, and wraps only rich text.
    return text.isEmpty() ? QString()
                          : Qt::convertFromPlainText(cutText(text, toolTipLength), Qt::WhiteSpaceNormal);
}

} // namespace QtAgent
} // namespace MireloQtLib
