#include "plaintext_p.h"

#include <QTextBoundaryFinder>
#include <QTextDocument>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int toolTipLength = 1000;
constexpr int longestCharacter = 32; // with its accents

bool isControl(QChar character)
{
    const QChar::Category category = character.category();
    return category == QChar::Other_Control || category == QChar::Separator_Line
        || category == QChar::Separator_Paragraph;
}

// The last end of a character at or before the position.
int lastBoundary(const QString &text, int position)
{
    const int begin = qMax(0, position - longestCharacter);
    const QString surroundings = text.mid(begin, longestCharacter + 1);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, surroundings);
    finder.setPosition(position - begin);
    if (!finder.isAtBoundary())
        finder.toPreviousBoundary();
    if (finder.position() > 0)
        return begin + finder.position();
    // One that goes on and on, or nothing at all.
    const bool isInsidePair = position > 0 && text.at(position - 1).isHighSurrogate();
    return isInsidePair ? position - 1 : position;
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

QString withLineFeeds(QString text)
{
    return text.replace(QLatin1String("\r\n"), QLatin1String("\n"))
        .replace(QLatin1Char('\r'), QLatin1Char('\n'));
}

QString cutText(const QString &text, int maximum)
{
    return text.size() <= maximum ? text : text.left(lastBoundary(text, maximum)) + QStringLiteral("…");
}

QString plainToolTip(const QString &text)
{
    // Qt takes a tool tip that looks like markup for rich text, and wraps only rich text.
    return text.isEmpty() ? QString()
                          : Qt::convertFromPlainText(cutText(text, toolTipLength), Qt::WhiteSpaceNormal);
}

} // namespace QtAgent
} // namespace MireloQtLib
