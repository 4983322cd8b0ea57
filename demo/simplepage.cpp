#include "simplepage.h"

#include "pageform.h"
#include "pagelayout.h"

#include <qtagent/chatmodel.h>

#include <QGroupBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

using MireloQtLib::QtAgent::ChatReply;

SimplePage::SimplePage(const Content &content, Action action, QWidget *parent)
    : QWidget(parent)
    , m_action(std::move(action))
{
    auto *form = new QGroupBox(content.title);
    auto *formLayout = new QVBoxLayout(form);
    m_input = addInput(formLayout, content.inputLabel, content.defaultInput);
    m_input->setObjectName(QStringLiteral("pageInput"));
    QPushButton *runButton = addButton(formLayout, QStringLiteral("运行"), QStringLiteral("runButton"));

    m_output = createOutput(QStringLiteral("输出"));
    m_output->setObjectName(QStringLiteral("pageOutput"));
    m_output->setMinimumHeight(220);
    if (content.json != Json::None)
        showAsCode(m_output);
    if (content.json == Json::InputAndOutput)
        showAsCode(m_input);

    layOutPage(this, form, m_output);

    pressByCtrlReturn(runButton, this);
    connect(runButton, &QPushButton::clicked, this, &SimplePage::run);
}

SimplePage::~SimplePage() = default;

void SimplePage::showText(const QString &text)
{
    m_output->setPlainText(text);
}

void SimplePage::showReply(ChatReply *reply, EarlierText earlierText)
{
    m_reply = reply;
    bindReply(reply, m_output, earlierText);
}

void SimplePage::run()
{
    const QPointer<SimplePage> self(this);
    if (m_reply)
        m_reply->cancel();
    if (!self)
        return;
    m_output->clear();
    m_action(m_input->toPlainText().trimmed(), this);
}
