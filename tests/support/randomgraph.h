#ifndef QTAGENT_TESTS_RANDOMGRAPH_H
#define QTAGENT_TESTS_RANDOMGRAPH_H

#include <qtagent/stategraph.h>

#include <QJsonArray>
#include <QRandomGenerator>

/// A graph of up to six nodes that a seed makes: with loops, routes, interrupts and limits, with targets and
/// keys that do not exist, and with sources that lead nowhere.
///
/// Its functions depend on the state alone, so that all runs of one graph do the same. Each call of one is
/// written into the log.
class RandomGraph
{
public:
    using NodeFunction = MireloQtLib::QtAgent::NodeFunction;
    using RouterFunction = MireloQtLib::QtAgent::RouterFunction;
    using StateGraph = MireloQtLib::QtAgent::StateGraph;

    /// Without @p interrupts it is the same graph but for these.
    RandomGraph(quint32 seed, QStringList *log, bool interrupts = true)
        : m_random(seed)
        , m_log(log)
    {
        using namespace MireloQtLib::QtAgent;
        const int size = 1 + m_random.bounded(6);
        for (int i = 0; i < size; ++i)
            m_names.append(QString(QChar('a' + i)));
        addWayFrom(StartNode);
        for (const QString &name : qAsConst(m_names)) {
            if (m_random.bounded(10) > 0)
                functions.insert(name, nodeFunction(name));
            if (m_random.bounded(6) == 0 && interrupts)
                graph.addInterruptBefore(name);
            addWayFrom(name);
        }
        for (auto function = functions.cbegin(); function != functions.cend(); ++function)
            graph.addNode(function.key(), function.value());
        graph.maxSteps = m_random.bounded(3) == 0 ? 32 : m_random.bounded(12);
    }

    StateGraph graph;
    QMap<QString, NodeFunction> functions;
    QJsonObject input{{"count", 0}, {"text", "from the start"}};

private:
    void addWayFrom(const QString &from)
    {
        const int kind = m_random.bounded(12);
        if (kind < 6)
            graph.addEdge(from, target());
        if (kind < 5 || kind == 11) // kind 11 leads nowhere, some of the others have both
            return;
        QMap<QString, QString> routes;
        const int count = 1 + m_random.bounded(3);
        for (int i = 0; i < count; ++i)
            routes.insert(QString::number(i), target());
        graph.addConditionalEdges(from, router(from, count), routes);
    }

    QString target()
    {
        const int choice = m_random.bounded(int(m_names.size()) + 2);
        if (choice < m_names.size())
            return m_names.at(choice);
        return m_random.bounded(8) == 0 ? QString("ghost") : QString("__end__");
    }

    NodeFunction nodeFunction(const QString &name)
    {
        const int salt = m_random.bounded(1000);
        return [name, salt, log = m_log](const QJsonObject &state) {
            log->append("node " + name);
            const int count = state["count"].toInt();
            const QString key = QString("key%1").arg((count + salt) % 4);
            QJsonObject update{{"count", count + 1}};
            switch ((count * 3 + salt) % 5) {
            case 0:
                update.insert(key, QJsonValue::Null);
                break;
            case 1:
                update.insert(key, QJsonArray{name, count});
                break;
            case 2:
                update.insert(key, QJsonObject{{"by", name}});
                break;
            case 3:
                update.insert("text", QString((count * 7) % 40, 'x'));
                break;
            default:
                return QJsonObject();
            }
            return update;
        };
    }

    // Now and then it returns a key that no route has.
    RouterFunction router(const QString &from, int count)
    {
        const int salt = m_random.bounded(1000);
        return [from, count, salt, log = m_log](const QJsonObject &state) {
            log->append("router " + from);
            const int number = state["count"].toInt() * 7 + salt + int(state.size());
            return QString::number(number % 13 == 0 ? count : number % count);
        };
    }

    QRandomGenerator m_random;
    QStringList *const m_log;
    QStringList m_names;
};

#endif
