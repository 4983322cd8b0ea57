#include "thinkingpanel.h"

#include <QPlainTextEdit>
#include <QToolButton>
#include <QVBoxLayout>

ThinkingPanel::ThinkingPanel(QWidget *parent)
    : QWidget(parent)
    , m_button(new QToolButton)
    , m_text(new QPlainTextEdit)
{
    constexpr int lines = 6;
    m_button->setObjectName(QStringLiteral("thinkingButton"));
    m_button->setText(tr("思考过程"));
    m_button->setCheckable(true);
    m_button->setAutoRaise(true);
    m_button->setFocusPolicy(Qt::StrongFocus);
    m_button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_text->setObjectName(QStringLiteral("thinkingText"));
    m_text->setAccessibleName(tr("思考过程"));
    m_text->setReadOnly(true);
    m_text->setTabChangesFocus(true);
    m_text->setFixedHeight(lines * m_text->fontMetrics().lineSpacing());

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins({});
    layout->addWidget(m_button);
    layout->addWidget(m_text);
    connect(m_button, &QToolButton::toggled, this, &ThinkingPanel::setOpen);
    setOpen(false);
    hide();
}

ThinkingPanel::~ThinkingPanel() = default;

void ThinkingPanel::append(const QString &piece)
{
    if (piece.isEmpty())
        return;
    QTextCursor end(m_text->document());
    end.movePosition(QTextCursor::End);
    end.insertText(piece);
    show();
}

void ThinkingPanel::clear()
{
    m_text->clear();
    hide();
}

void ThinkingPanel::setOpen(bool isOpen)
{
    m_button->setArrowType(isOpen ? Qt::DownArrow : Qt::RightArrow);
    m_text->setVisible(isOpen);
}
