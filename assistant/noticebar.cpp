#include "noticebar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace {

// A label is at least as wide as its longest word, and would make its window so.
QString withShortWords(const QString &text)
{
    constexpr int longest = 40;
    const QChar mayBreak(0x200b);
    QString result;
    int length = 0;
    for (const QChar character : text) {
        length = character.isSpace() ? 0 : length + 1;
        if (length > longest && !character.isLowSurrogate()) {
            result += mayBreak;
            length = 1;
        }
        result += character;
    }
    return result;
}

} // namespace

NoticeBar::NoticeBar(QWidget *parent)
    : QFrame(parent)
    , m_icon(new QLabel)
    , m_text(new QLabel)
    , m_action(new QPushButton)
    , m_close(new QToolButton)
{
    setFrameStyle(QFrame::StyledPanel | QFrame::Plain);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::AlternateBase);
    m_text->setObjectName(QStringLiteral("noticeText"));
    m_text->setTextFormat(Qt::PlainText);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_text->setWordWrap(true);
    m_text->setForegroundRole(QPalette::Text);
    m_action->setObjectName(QStringLiteral("noticeAction"));
    m_close->setObjectName(QStringLiteral("noticeClose"));
    m_close->setText(QStringLiteral("×")); // in the colour of the text, which the style's picture is not
    m_close->setAutoRaise(true);
    m_close->setFocusPolicy(Qt::StrongFocus);
    m_close->setToolTip(tr("关闭"));
    m_close->setAccessibleName(tr("关闭"));

    auto *layout = new QHBoxLayout(this);
    layout->addWidget(m_icon);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_action);
    layout->addWidget(m_close);
    connect(m_action, &QPushButton::clicked, this, &NoticeBar::acted);
    connect(m_close, &QToolButton::clicked, this, [this] {
        clear();
        Q_EMIT dismissed();
    });
    hide();
}

NoticeBar::~NoticeBar() = default;

void NoticeBar::tell(const QString &text, const QString &action)
{
    m_text->setText(withShortWords(text));
    m_action->setText(action);
    m_action->setVisible(!action.isEmpty());
    show();
}

void NoticeBar::setIcon(QStyle::StandardPixmap icon)
{
    const int size = style()->pixelMetric(QStyle::PM_SmallIconSize);
    m_icon->setPixmap(style()->standardIcon(icon).pixmap(size));
}

QString NoticeBar::text() const
{
    return isHidden() ? QString() : m_text->text().remove(QChar(0x200b));
}

void NoticeBar::clear()
{
    hide();
}
