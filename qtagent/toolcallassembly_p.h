#ifndef MIRELOQTLIB_QTAGENT_TOOLCALLASSEMBLY_P_H
#define MIRELOQTLIB_QTAGENT_TOOLCALLASSEMBLY_P_H

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// Tells, text by text, when a JSON object is complete, without reading again what came before.
class JsonObjectScanner
{
public:
    void append(const QString &text);

    /// Returns whether one pair of braces has opened and closed, and nothing but white space stands around
    /// it. What is between them may still be no JSON.
    bool isClosed() const { return m_state == State::Closed; }

private:
    enum class State { Before, Inside, Text, Escape, Closed, Broken };

    void read(QChar character);
    void readInside(QChar character);

    State m_state = State::Before;
    int m_depth = 0;
};

/// Puts tool calls together from the pieces of a stream.
///
/// Services agree on little: they leave out or repeat the index, the id and the name, or send a call whole.
/// The cost of a piece does not depend on what came before it.
class ToolCallAssembly
{
public:
    /// @p toolNames are those that were offered.
    explicit ToolCallAssembly(const QStringList &toolNames = {});

    /// The pieces that follow stand in another event than those before.
    void beginEvent() { ++m_event; }

    /// Adds an element of "tool_calls" in a delta. Returns the number of its call in order of arrival, or -1
    /// where it is no object.
    int addPiece(const QJsonValue &value);

    /// Returns the name so far of the call @p number.
    QString name(int number) const { return m_calls.at(number).name; }

    /// Returns the arguments so far of the call @p number.
    QString arguments(int number) const { return m_calls.at(number).arguments; }

    /// Returns whether no piece has come.
    bool isEmpty() const { return m_calls.isEmpty(); }

    /// Returns whether the arguments of every call are complete.
    bool isComplete() const;

    /// Returns the calls as they stand in a whole answer, by index and then in order of arrival. One without
    /// an id gets one that is not in @p takenIds.
    QJsonArray calls(const QSet<QString> &takenIds) const;

private:
    struct Call
    {
        int index = -1;
        int event = 0;
        QString id;
        QString name;
        QString arguments;
        JsonObjectScanner scanner;
        // Of arguments that are closed.
        bool isObject = false;
        QJsonObject otherKeys;
        QJsonObject otherFunctionKeys;
    };
    struct Piece
    {
        int index = -1;
        QString id;
        QString name;
        QString arguments;
        QJsonObject keys;
        QJsonObject functionKeys;
    };

    static Piece pieceFrom(const QJsonObject &object);
    static bool hasCompleteArguments(const Call &call);
    static QJsonObject toJson(const Call &call, const QString &id);

    int callOf(const Piece &piece);
    int callByIndex(const Piece &piece);
    int callById(const Piece &piece);
    int lastCall(const Piece &piece);
    int beginCall(const Piece &piece);
    void addName(const QString &name, Call *call) const;
    static void addArguments(const QString &arguments, Call *call);

    QStringList m_toolNames;
    QVector<Call> m_calls;
    QHash<int, int> m_newestByIndex;
    QHash<QString, int> m_newestById;
    int m_event = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
