#ifndef QTAGENT_TESTS_EXAMPLETEST_H
#define QTAGENT_TESTS_EXAMPLETEST_H

#include <qtagent/widgets/agentchatpanel.h>

#include <QApplication>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBrowser>
#include <QtTest>

/// The main function of the example, which is compiled under this name.
int exampleMain(int argc, char *argv[]);

/// Returns the visible widget of type @p Widget, or null.
template<typename Widget>
Widget *shownWidget()
{
    for (QWidget *widget : QApplication::allWidgets()) {
        auto *found = qobject_cast<Widget *>(widget);
        if (found && found->isVisible())
            return found;
    }
    return nullptr;
}

/// Runs a test inside the example, from the event loop that its main function starts:
/// @code
/// int main(int argc, char *argv[])
/// {
///     return ExampleRun<TestChatWindow>::execute(argc, argv);
/// }
/// @endcode
/// The last function of the test closes the example's window. The run ends when the example does, with a
/// status other than 0 where the test failed or the example reports a failure.
template<typename Test>
class ExampleRun
{
public:
    /// @p exampleArguments are those of the example.
    static int execute(int argc, char *argv[], const QStringList &exampleArguments = {})
    {
        arguments = QStringList();
        for (int i = 0; i < argc; ++i)
            arguments.append(QString::fromLocal8Bit(argv[i]));
        isDue = true;
        qAddPreRoutine([] {
            if (std::exchange(isDue, false)) // and not in an example that is run later
                QTimer::singleShot(0, qApp, &ExampleRun::runTest);
        });
        QVector<QByteArray> words{argv[0]};
        for (const QString &argument : exampleArguments)
            words.append(argument.toLocal8Bit());
        QVector<char *> pointers;
        for (QByteArray &word : words)
            pointers.append(word.data());
        pointers.append(nullptr);
        const int status = exampleMain(int(words.size()), pointers.data());
        return failures == 0 ? status : EXIT_FAILURE;
    }

private:
    static void runTest()
    {
        Test test;
        failures = QTest::qExec(&test, arguments);
        if (failures)
            QCoreApplication::exit(EXIT_FAILURE);
    }

    inline static bool isDue = false;
    inline static QStringList arguments;
    inline static int failures = -1;
};

/// A test of an example that shows a chat panel, which is used and read as its user does it.
class PanelExampleTest : public QObject
{
protected:
    QString transcript() const
    {
        return m_panel->findChild<QTextBrowser *>("agentChatHistory")->toPlainText();
    }
    QPushButton *button(const QString &name) const { return m_panel->findChild<QPushButton *>(name); }
    bool isIdle() const
    {
        return button("agentChatSend")->isEnabled() && !button("agentChatStop")->isEnabled();
    }

    void send(const QString &question) const
    {
        m_panel->findChild<QPlainTextEdit *>("agentChatInput")->setPlainText(question);
        QTest::mouseClick(button("agentChatSend"), Qt::LeftButton);
    }

    /// To be found by the test.
    MireloQtLib::QtAgent::AgentChatPanel *m_panel = nullptr;
};

#endif
