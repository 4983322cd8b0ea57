#ifndef QTAGENT_TESTS_TORTURE_H
#define QTAGENT_TESTS_TORTURE_H

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QRegularExpression>
#include <QStringList>
#include <QVector>

#include <functional>
#include <memory>

/// The objects of one run, in which a slot does something to them at one chosen emission.
///
/// A stage is built anew for every combination of an emission and an action. It is played once without an
/// action to learn which emissions there are and what may be done in each:
/// @code
/// Stage rehearsal;
/// rehearsal.play();
/// for (const TortureStage::Emission &emission : rehearsal.emissions()) ...
///
/// Stage stage;
/// stage.play(3, "delete reply");
/// QCOMPARE(stage.fault(), QString());
/// @endcode
///
/// What a slot may do everywhere: "nested event loop", what addAction() names, and for each object of
/// addVictim() "delete NAME", at once, and "delete NAME in a nested event loop". Objects are deleted
/// directly, but with deleteLater() from a signal that a click leads to and from a widget's own signals,
/// before the nested loop where there is one.
class TortureStage : public QObject
{
    Q_OBJECT

public:
    struct Emission
    {
        QString signal;      ///< for example "ChatReply::finished"
        QStringList actions; ///< what could be done in it
    };

    /// Plays the run and does @p action in the emission number @p index. Returns once nothing is under way.
    void play(int index = -1, const QString &action = {});

    /// What was emitted so far.
    const QVector<Emission> &emissions() const { return m_emissions; }

    /// Returns what went wrong, or an empty text.
    QString fault() const { return m_faults.join("; "); }

protected:
    using Step = std::function<void()>;
    using Finder = std::function<QObject *()>;

    /// Starts the run; also called again by "run again".
    virtual void start() = 0;

    /// Lets a nested event loop turn: by default until nothing is due.
    virtual void turnEvents();

    /// Lets the event loop turn until every reply has ended, at most for @p milliseconds.
    void turnEventsFor(int milliseconds);

    /// Returns whether @p reply will be heard of again where it has not ended.
    virtual bool canAnswer() const { return true; }

    /// Checks what is particular to the stage once all is quiet, with reportFault().
    virtual void inspect() {}

    /// Counts the emissions of all signals of @p object, or of those that @p only names.
    void watch(QObject *object, const QStringList &only = {});

    /// Leaves the actions to the slots that actAfterwards() connects.
    void setActsLast(bool actsLast) { m_actsLast = actsLast; }

    /// Makes actions in signals of @p object, which is watched, come after the slots connected by now.
    void actAfterwards(QObject *object);

    /// Watches the replies and executors that the application creates from now on and that have a parent.
    void watchNewObjects();

    void addAction(const QString &name, const Step &step) { m_actions.insert(name, step); }
    void addVictim(const QString &name, const Finder &find) { m_victims.insert(name, find); }

    /// Does @p step as the consequence of a click: what it leads to is deleted with deleteLater() only.
    void asClick(const Step &step);

    /// Waits until nothing is posted or due and every reply has ended, at most for a few seconds.
    void waitUntilQuiet();

    void reportFault(const QString &fault) { m_faults.append(fault); }

    const QString &action() const { return m_action; }

    /// Whether the action came in a click or in a signal of a widget, so that it used deleteLater().
    bool isDeletionDeferred() const { return m_defersDeletion; }

    /// The emissions of the signal @p name, and those among them that came after the action began.
    int count(const QString &name) const;
    int countAfterAction(const QString &name) const { return int(signalsAfterAction().count(name)); }
    QStringList signalsAfterAction() const;

    bool eventFilter(QObject *watched, QEvent *event) override;

private Q_SLOTS:
    void record();
    void actLast();

private:
    void connectAll(QObject *object, const char *slotSignature, const QStringList &only = {});
    QStringList possibleActions() const;
    void act(const QObject *sender);
    void adopt(QObject *object);
    void destroy(QObject *victim) const;
    void checkOrder(const QObject *sender, const QString &signal);
    bool isWaiting() const;

    struct Progress
    {
        QPointer<const QObject> reply;
        bool isOver = false;
        bool isSeenFirst = true;
    };

    QVector<Emission> m_emissions;
    QVector<Progress> m_replies;
    QMap<QString, Step> m_actions;
    QMap<QString, Finder> m_victims;
    QStringList m_faults;
    QString m_action;
    int m_index = -1;
    int m_emissionsBeforeAction = -1; // none while there was no action
    bool m_actsLast = false;
    bool m_defersDeletion = false;
    // The emission in which the action is due.
    QPointer<const QObject> m_dueSender;
    int m_dueSignal = -1;
    int m_clicks = 0; // how many clicks are being handled
};

/// Plays every scenario with every action in every emission. A test derives from it and names its scenarios
/// in initTestCase():
/// @code
/// void initTestCase() { addScenario("allowed", [] { return std::make_unique<AgentStage>(); }); }
/// @endcode
/// An event loop that a slot runs changes the order of the signals, and not which there are.
class TortureTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanupTestCase();
    void slotsMayDoAnything_data();
    void slotsMayDoAnything();

protected:
    using StageFactory = std::function<std::unique_ptr<TortureStage>()>;

    void addScenario(const QString &name, const StageFactory &create) { m_scenarios.insert(name, create); }

private:
    QMap<QString, StageFactory> m_scenarios;
    int m_combinations = 0;
};

/// Adds one row to the test's data for each emission of @p rehearsal, which has been played, and each
/// action in it: "@p scenario | #3 ChatReply::finished | delete reply". The columns are the emission's
/// index, the action and the names of all signals. Where @p perSignal is not 0, only as many first emissions
/// of every signal get rows, and only actions that @p actions matches do.
void addTortureRows(const QString &scenario, const TortureStage &rehearsal, int perSignal = 0,
                    const QRegularExpression &actions = {});

/// Returns the signals of @p emissions in alphabetic order.
QStringList sortedSignals(const QVector<TortureStage::Emission> &emissions);

#endif
