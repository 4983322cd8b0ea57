#include "noticebar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

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
    m_text->setText(text);
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
    return isHidden() ? QString() : m_text->text();
}

void NoticeBar::clear()
{
    hide();
}
