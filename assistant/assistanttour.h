#ifndef ORVANE_ASSISTANTTOUR_H
#define ORVANE_ASSISTANTTOUR_H

#include "assistantsettings.h"
#include "modelchoice.h"
#include "toolset.h"
#include "tourmodel.h"

#include <qtagent/store/conversationstore.h>

#include <QDir>
#include <QElapsedTimer>
#include <QObject>
#include <QTemporaryDir>
#include <QTimer>

#include <functional>
#include <memory>

class AssistantWindow;

/// Leads a window of the assistant through its states, as a user would through its buttons and fields, and
/// saves a picture of each.
///
/// It has conversations, settings and a folder of its own, and models that need no network. Pictures show the
/// whole window, or the dialog, and are named NN-state.png behind the prefix. A state fails that is not
/// reached in time, or whose picture cannot be saved; the tour goes on behind it.
class AssistantTour : public QObject
{
    Q_OBJECT

public:
    /// Creates a tour that saves its pictures to @p folder, with names that begin with @p prefix.
    AssistantTour(const QDir &folder, const QString &prefix, QObject *parent = nullptr);
    ~AssistantTour() override;

    /// Sets how long a state may take, in milliseconds; 10,000 unless set.
    void setTimeLimit(int milliseconds);

    /// Begins with the first state. The signals follow from the event loop.
    void start();

Q_SIGNALS:
    /// A state is done: @p report is a line of the form "NN-state ok" or "NN-state failed: ...".
    void stateDone(const QString &report);

    /// The last state is done. @p succeeded tells whether none failed.
    void finished(bool succeeded);

private:
    struct State
    {
        QString name;
        std::function<void()> act;
        std::function<bool()> isReached;
        std::function<QWidget *()> shown;
    };

    void addFirstStates();
    void addConversationStates();
    void addCorrectionStates();
    void addListStates();
    void addFailureStates();
    void addToolStates();
    void addDialogStates();
    void addLastStates();
    void add(const QString &name, const std::function<void()> &act, const std::function<bool()> &isReached,
             const QString &dialog = {});
    void beginState();
    void look();
    void endState(const QString &failure);
    QString savePicture(const State &state) const;
    QString stateName() const;

    void ask(const QString &question);
    void press(const QString &button);
    void choose(const QString &action);
    void answerApproval();
    bool isIdle() const;
    bool shows(const QString &text) const;
    bool hasFailure() const;
    template<typename Widget>
    Widget *find(const QString &name) const;

    const QDir m_folder;
    const QString m_prefix;
    QTemporaryDir m_place;
    MireloQtLib::QtAgent::ConversationStore m_store;
    std::unique_ptr<AssistantSettings> m_settings;
    std::unique_ptr<ModelChoice> m_choice;
    std::unique_ptr<ToolSet> m_tools;
    TourModel m_model;
    std::unique_ptr<AssistantWindow> m_window;
    QVector<State> m_states;
    int m_current = -1;
    QTimer m_timer;
    QElapsedTimer m_clock;
    int m_timeLimit = 10000;
    bool m_succeeded = true;
};

#endif
