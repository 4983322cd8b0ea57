#ifndef MIRELOQTLIB_QTAGENT_TESTS_REPLYRECORDER_H
#define MIRELOQTLIB_QTAGENT_TESTS_REPLYRECORDER_H

#include <qtagent/chatmodel.h>

#include <QEventLoop>
#include <QJsonDocument>
#include <QPointer>
#include <QStringList>
#include <QTimer>

#include <functional>

/// Records what a reply emits, one entry a signal: "delta: Hel", "response: {...}", "finished: Hello",
/// "failed: ..." and "canceled". The reply may die before the recorder and the other way round.
class ReplyRecorder
{
public:
    explicit ReplyRecorder(MireloQtLib::QtAgent::ChatReply *reply)
    {
        using MireloQtLib::QtAgent::ChatReply;
        QObject::connect(reply, &ChatReply::deltaReceived, &m_context,
                         [this](const QString &delta) { add("delta: " + delta); });
        QObject::connect(reply, &ChatReply::responseReceived, &m_context,
                         [this](const QJsonObject &response) {
                             const QByteArray json = QJsonDocument(response).toJson(QJsonDocument::Compact);
                             add("response: " + QString::fromUtf8(json));
                         });
        QObject::connect(reply, &ChatReply::finished, &m_context,
                         [this](const QString &text) { add("finished: " + text); });
        QObject::connect(reply, &ChatReply::failed, &m_context,
                         [this](const QString &error) { add("failed: " + error); });
        QObject::connect(reply, &ChatReply::canceled, &m_context, [this] { add("canceled"); });
    }

    /// Calls @p action after every entry, from inside the signal.
    void onSignal(const std::function<void(const QString &entry)> &action) { m_action = action; }

    /// Returns the entries so far.
    const QStringList &entries() const { return m_entries; }

    /// Returns whether finished() or failed() was emitted.
    bool hasEnded() const
    {
        return !m_entries.filter("finished: ").isEmpty() || !m_entries.filter("failed: ").isEmpty();
    }

    /// Runs the event loop until the reply has ended, five seconds at most, and returns hasEnded().
    bool waitForEnd()
    {
        QEventLoop loop;
        // cppcheck-suppress danglingLifetime ; it is a QPointer
        m_loop = &loop;
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        if (!hasEnded())
            loop.exec();
        return hasEnded();
    }

protected:
    void add(const QString &entry)
    {
        m_entries.append(entry);
        if (m_loop && hasEnded())
            m_loop->quit();
        if (m_action)
            m_action(entry);
    }

    QObject m_context;

private:
    QPointer<QEventLoop> m_loop;
    QStringList m_entries;
    std::function<void(const QString &)> m_action;
};

#endif
