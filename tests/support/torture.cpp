#include "torture.h"

#include "eventloop.h"

#include <qtagent/agentexecutor.h>

#include <QChildEvent>
#include <QElapsedTimer>
#include <QMetaMethod>
#include <QTest>
#include <QTimer>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

const char *const nestedLoop = "nested event loop";
constexpr int limitMs = 8000;
constexpr int wakeUpMs = 20;

// "ChatReply::finished", or with an object name "runButton::clicked".
QString signalName(const QObject *sender, int signalIndex)
{
    QString name = sender->objectName();
    // Whatever a model makes of its replies, a host sees replies.
    if (name.isEmpty() && qobject_cast<const ChatReply *>(sender))
        name = "ChatReply";
    if (name.isEmpty())
        name = QString::fromLatin1(sender->metaObject()->className()).section("::", -1);
    return name + "::" + QString::fromLatin1(sender->metaObject()->method(signalIndex).name());
}

bool isWatchable(const QMetaMethod &method, const QStringList &only)
{
    if (method.methodType() != QMetaMethod::Signal || (method.attributes() & QMetaMethod::Cloned))
        return false;
    return only.isEmpty() || only.contains(QString::fromLatin1(method.name()));
}

} // namespace

void TortureStage::play(int index, const QString &action)
{
    m_index = index;
    m_action = action;
    // In an event, as everything in a program is: otherwise a nested loop would carry out deleteLater().
    QTimer::singleShot(0, this, [this] { start(); });
    waitUntilQuiet();
    if (index >= 0 && m_emissionsBeforeAction < 0)
        reportFault("the emission did not come");
    inspect();
}

void TortureStage::watch(QObject *object, const QStringList &only)
{
    connectAll(object, "record()", only);
    if (qobject_cast<ChatReply *>(object))
        m_replies.append({object});
}

void TortureStage::actAfterwards(QObject *object)
{
    connectAll(object, "actLast()");
}

void TortureStage::connectAll(QObject *object, const char *slotSignature, const QStringList &only)
{
    const QMetaObject *meta = object->metaObject();
    const QMetaMethod slot = staticMetaObject.method(staticMetaObject.indexOfSlot(slotSignature));
    for (int i = QObject::staticMetaObject.methodCount(); i < meta->methodCount(); ++i) {
        if (isWatchable(meta->method(i), only))
            connect(object, meta->method(i), this, slot, Qt::UniqueConnection);
    }
}

void TortureStage::watchNewObjects()
{
    QCoreApplication::instance()->installEventFilter(this);
}

// A child is announced before it is complete, so it is looked at on the next turn.
bool TortureStage::eventFilter(QObject *, QEvent *event)
{
    if (event->type() != QEvent::ChildAdded)
        return false;
    const QPointer<QObject> child(static_cast<QChildEvent *>(event)->child());
    QMetaObject::invokeMethod(
        this, [this, child] { adopt(child); }, Qt::QueuedConnection);
    return false;
}

void TortureStage::adopt(QObject *object)
{
    const auto *reply = qobject_cast<ChatReply *>(object);
    const bool isKnown = std::any_of(m_replies.cbegin(), m_replies.cend(),
                                     [reply](const Progress &progress) { return progress.reply == reply; });
    if (!qobject_cast<AgentExecutor *>(object) && (!reply || isKnown || reply->isCanceled()))
        return;
    watch(object);
    // Slots connected earlier may have ended it before an emission is counted.
    if (reply)
        m_replies.last().isSeenFirst = false;
}

void TortureStage::record()
{
    const QObject *const origin = sender();
    const QString signal = signalName(origin, senderSignalIndex());
    checkOrder(origin, signal);
    m_emissions.append({signal, m_index < 0 ? possibleActions() : QStringList()});
    if (m_emissions.size() - 1 != m_index)
        return;
    if (!m_actsLast) {
        act(origin);
        return;
    }
    m_dueSender = origin;
    m_dueSignal = senderSignalIndex();
}

void TortureStage::actLast()
{
    if (sender() != m_dueSender || senderSignalIndex() != m_dueSignal)
        return;
    m_dueSender.clear();
    act(sender());
}

QStringList TortureStage::possibleActions() const
{
    QStringList actions = m_actions.keys();
    actions.append(nestedLoop);
    for (auto victim = m_victims.cbegin(); victim != m_victims.cend(); ++victim) {
        if (victim.value()()) {
            actions.append("delete " + victim.key());
            actions.append("delete " + victim.key() + " in a " + nestedLoop);
        }
    }
    return actions;
}

void TortureStage::act(const QObject *sender)
{
    m_defersDeletion = m_clicks > 0 || (sender != this && sender->isWidgetType());
    m_emissionsBeforeAction = int(m_emissions.size());
    const bool isNested = m_action.endsWith(nestedLoop);
    const QString victim = m_action.section(' ', 1).remove(QString(" in a ") + nestedLoop);
    if (m_actions.contains(m_action))
        m_actions.value(m_action)();
    else if (m_action.startsWith("delete ") && isNested && !m_defersDeletion)
        QTimer::singleShot(0, this, [this, victim] { destroy(m_victims.value(victim)()); });
    else if (m_action.startsWith("delete "))
        destroy(m_victims.value(victim)());
    if (isNested)
        turnEvents();
}

void TortureStage::destroy(QObject *victim) const
{
    if (!m_defersDeletion)
        delete victim;
    else if (victim)
        victim->deleteLater();
}

// What every reply keeps to, whatever the slots do.
void TortureStage::checkOrder(const QObject *sender, const QString &signal)
{
    if (!qobject_cast<const ChatReply *>(sender))
        return;
    for (Progress &progress : m_replies) {
        if (progress.reply != sender)
            continue;
        const bool isLate = progress.isOver && progress.isSeenFirst && !signal.endsWith("::canceled")
                         && !signal.endsWith("::responseReceived");
        if (isLate)
            reportFault(signal + " after the end of its reply");
        if (signal.endsWith("::finished") || signal.endsWith("::failed") || signal.endsWith("::canceled"))
            progress.isOver = true;
    }
}

bool TortureStage::isWaiting() const
{
    if (!canAnswer())
        return false;
    for (const Progress &progress : m_replies) {
        if (progress.reply && !progress.isOver)
            return true;
    }
    return false;
}

void TortureStage::turnEvents()
{
    runUntilQuiet();
}

void TortureStage::turnEventsFor(int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    QTimer wakeUp;
    wakeUp.start(wakeUpMs);
    runUntilQuiet();
    while (isWaiting() && clock.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        runUntilQuiet();
    }
}

void TortureStage::asClick(const Step &step)
{
    ++m_clicks;
    step();
    --m_clicks;
}

void TortureStage::waitUntilQuiet()
{
    turnEventsFor(limitMs);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    runUntilQuiet();
    if (isWaiting())
        reportFault("a reply never ends");
}

int TortureStage::count(const QString &name) const
{
    int emissions = 0;
    for (const Emission &emission : m_emissions)
        emissions += emission.signal == name ? 1 : 0;
    return emissions;
}

QStringList TortureStage::signalsAfterAction() const
{
    QStringList names;
    for (int i = m_emissionsBeforeAction; i >= 0 && i < m_emissions.size(); ++i)
        names.append(m_emissions.at(i).signal);
    return names;
}

void TortureTest::cleanupTestCase()
{
    qInfo("%d combinations of an emission and an action in %d scenarios", m_combinations,
          int(m_scenarios.size()));
}

void TortureTest::slotsMayDoAnything_data()
{
    QTest::addColumn<QString>("scenario");
    QTest::addColumn<int>("emission");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QStringList>("signalNames");
    for (auto scenario = m_scenarios.cbegin(); scenario != m_scenarios.cend(); ++scenario) {
        const std::unique_ptr<TortureStage> rehearsal = scenario.value()();
        rehearsal->play();
        QVERIFY2(!rehearsal->emissions().isEmpty(), qPrintable(scenario.key()));
        QVERIFY2(rehearsal->fault().isEmpty(), qPrintable(scenario.key() + rehearsal->fault()));
        addTortureRows(scenario.key(), *rehearsal);
    }
}

void TortureTest::slotsMayDoAnything()
{
    QFETCH(QString, scenario);
    QFETCH(int, emission);
    QFETCH(QString, action);
    QFETCH(QStringList, signalNames);
    const std::unique_ptr<TortureStage> stage = m_scenarios.value(scenario)();
    stage->play(emission, action);
    ++m_combinations;
    QCOMPARE(stage->fault(), QString());
    if (action == nestedLoop) {
        signalNames.sort();
        QCOMPARE(sortedSignals(stage->emissions()), signalNames);
    }
}

void addTortureRows(const QString &scenario, const TortureStage &rehearsal, int perSignal,
                    const QRegularExpression &actions)
{
    QStringList names;
    for (const TortureStage::Emission &emission : rehearsal.emissions())
        names.append(emission.signal);
    for (int i = 0; i < names.size(); ++i) {
        const auto earlier = names.mid(0, i).count(names.at(i));
        if (perSignal > 0 && earlier >= perSignal)
            continue;
        for (const QString &action : rehearsal.emissions().at(i).actions) {
            if (!actions.match(action).hasMatch())
                continue;
            const QString row =
                QString("%1 | #%2 %3 | %4").arg(scenario, QString::number(i + 1), names.at(i), action);
            QTest::newRow(qPrintable(row)) << scenario << i << action << names;
        }
    }
}

QStringList sortedSignals(const QVector<TortureStage::Emission> &emissions)
{
    QStringList names;
    for (const TortureStage::Emission &emission : emissions)
        names.append(emission.signal);
    names.sort();
    return names;
}
