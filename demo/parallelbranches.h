#ifndef ORVANE_PARALLELBRANCHES_H
#define ORVANE_PARALLELBRANCHES_H

#include <demo/modelprovider.h>

#include <QWidget>

#include <memory>

QT_BEGIN_NAMESPACE
class QPlainTextEdit;
class QPushButton;
class QVBoxLayout;
QT_END_NAMESPACE

struct ParallelRunState;

/// The page "并行分支": three model requests at once, and a fourth that merges their answers.
///
/// The answers appear as blocks, in the order in which they complete; the merged answer streams in. A new
/// run replaces the one before, whose late signals change nothing.
class ParallelBranchesPage : public QWidget
{
    Q_OBJECT

public:
    explicit ParallelBranchesPage(const ModelProvider &model, QWidget *parent = nullptr);
    ~ParallelBranchesPage() override;

private:
    using Run = std::shared_ptr<ParallelRunState>;

    QWidget *createForm();
    QWidget *createOutputs();
    void setRunning(bool running);

    void start();
    void startBranch(const Run &run, int index);
    void completeBranch(const Run &run, int index, const QString &text);
    void startMerge(const Run &run);
    void failMerge(const Run &run, const QString &error);
    void stop();
    bool isCurrent(const Run &run) const;

    const ModelProvider m_model;
    QPlainTextEdit *m_input = nullptr;
    QPlainTextEdit *m_branchOutput = nullptr;
    QPlainTextEdit *m_mergeOutput = nullptr;
    QPushButton *m_runButton = nullptr;
    QPushButton *m_stopButton = nullptr;
    Run m_run;
};

#endif
