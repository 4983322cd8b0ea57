#ifndef QTAGENT_TESTS_CHATPANELTEST_H
#define QTAGENT_TESTS_CHATPANELTEST_H

#include <qtagent/widgets/agentchatpanel.h>

#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextBrowser>
#include <QtTest>

#include <functional>
#include <memory>

/// What tests of the chat panel share: a panel, made anew for each test function, and its parts.
class ChatPanelTest : public QObject
{
protected:
    using AgentChatPanel = MireloQtLib::QtAgent::AgentChatPanel;

    void createPanel()
    {
        m_panel = std::make_unique<AgentChatPanel>();
        m_history = m_panel->findChild<QTextBrowser *>("agentChatHistory");
        m_input = m_panel->findChild<QPlainTextEdit *>("agentChatInput");
        m_send = m_panel->findChild<QPushButton *>("agentChatSend");
        m_stop = m_panel->findChild<QPushButton *>("agentChatStop");
        m_clear = m_panel->findChild<QPushButton *>("agentChatClear");
        QVERIFY(m_history && m_input && m_send && m_stop && m_clear);
    }

    void showPanel()
    {
        m_panel->resize(500, 400);
        m_panel->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_panel.get()));
    }

    void streamLines(int count)
    {
        for (int line = 0; line < count; ++line)
            m_panel->appendAgentDelta(QString("Line %1\n").arg(line));
    }

    bool cursorIsAtEnd() const
    {
        return m_history->textCursor().atEnd() && !m_history->textCursor().hasSelection();
    }

    bool viewIsAtEnd() const { return bar()->maximum() > 0 && bar()->value() == bar()->maximum(); }
    QScrollBar *bar() const { return m_history->verticalScrollBar(); }
    QString plainText() const { return m_history->toPlainText(); }
    QTextBlock block(int number) const { return m_history->document()->findBlockByNumber(number); }
    static QTextCharFormat formatOf(const QTextBlock &block) { return block.begin().fragment().charFormat(); }

    std::unique_ptr<AgentChatPanel> m_panel;
    QTextBrowser *m_history = nullptr;
    QPlainTextEdit *m_input = nullptr;
    QPushButton *m_send = nullptr;
    QPushButton *m_stop = nullptr;
    QPushButton *m_clear = nullptr;
};

#endif
