#ifndef ORVANE_GRAPHPAGES_H
#define ORVANE_GRAPHPAGES_H

#include <qtagent/stategraph.h>

#include <QJsonObject>
#include <QSplitter>

#include <functional>

QT_BEGIN_NAMESPACE
class QCheckBox;
class QLineEdit;
class QPlainTextEdit;
QT_END_NAMESPACE

class StepsTable;

// The pages that run a state graph. Each shows the final state, what stopped the run, and its steps.

/// What the pages below share: the output and the steps of a run.
class GraphResults : public QSplitter
{
    Q_OBJECT

public:
    explicit GraphResults(QWidget *parent = nullptr);
    ~GraphResults() override;

    /// Shows the interrupted node and the error where there is one, the final state and the steps.
    void showRun(const MireloQtLib::QtAgent::GraphRunResult &result);

    /// Shows @p error and no steps.
    void showError(const QString &error);

private:
    QPlainTextEdit *m_output = nullptr;
    StepsTable *m_steps = nullptr;
};

/// A page that runs a graph over a state which the user may edit as JSON.
class StateGraphPage : public QWidget
{
    Q_OBJECT

public:
    /// Builds the graph of a run. @p check is the page's check box.
    using GraphFactory = std::function<MireloQtLib::QtAgent::StateGraph(const QCheckBox *check)>;

    /// What a page is made of. Without a check text the check box is hidden.
    struct Content
    {
        QString title;
        QJsonObject initialState;
        GraphFactory createGraph;
        QString checkText;
    };

    explicit StateGraphPage(const Content &content, QWidget *parent = nullptr);
    ~StateGraphPage() override;

private:
    void run();

    const GraphFactory m_createGraph;
    QPlainTextEdit *m_state = nullptr;
    QCheckBox *m_check = nullptr;
    GraphResults *m_results = nullptr;
};

/// A page that runs a graph for a question.
class QuestionGraphPage : public QWidget
{
    Q_OBJECT

public:
    using GraphRun = std::function<MireloQtLib::QtAgent::GraphRunResult(const QString &question)>;

    struct Content
    {
        QString title;
        QString inputLabel;
        QString defaultInput;
        GraphRun run;
    };

    explicit QuestionGraphPage(const Content &content, QWidget *parent = nullptr);
    ~QuestionGraphPage() override;
};

/// The page "记忆检查点": two turns of a conversation that meet in a checkpoint.
class MemoryPage : public QWidget
{
    Q_OBJECT

public:
    explicit MemoryPage(QWidget *parent = nullptr);
    ~MemoryPage() override;

private:
    QWidget *createForm();
    void run(const QString &message);

    QLineEdit *m_threadId = nullptr;
    QLineEdit *m_message = nullptr;
    GraphResults *m_results = nullptr;
    MireloQtLib::QtAgent::CheckpointStore m_checkpoints;
};

#endif
