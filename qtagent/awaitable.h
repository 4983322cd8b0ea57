#ifndef MIRELOQTLIB_QTAGENT_AWAITABLE_H
#define MIRELOQTLIB_QTAGENT_AWAITABLE_H

// Some compilers of C++20 have no coroutines, or not without an option.
#if (defined(_MSVC_LANG) ? _MSVC_LANG : __cplusplus) < 202002L || !defined(__cpp_impl_coroutine) \
    || !__has_include(<coroutine>)
#    error \
        "<qtagent/awaitable.h> needs coroutines: compile what includes it as C++20, with CXX_STANDARD 20 in CMake."
#endif

#include <qtagent/agentsession.h>
#include <qtagent/asynctool.h>
#include <qtagent/chatmodel.h>
#include <qtagent/graphrun.h>

#include <QObject>
#include <QPointer>

#include <coroutine>
#include <memory>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

/// @file
/// `co_await` for what ends later: a reply, the run of a session or of a graph, the call of a tool.
///
/// @code
/// Task Window::ask(QString question)
/// {
///     ChatReply *reply = m_model->chat({ChatMessage::user(question)}, {}, this);
///     connect(m_stopButton, &QPushButton::clicked, reply, &ChatReply::cancel);
///     const ChatResult result = co_await *reply;
///     show(result.text);
///     m_session->send("Sum it up.");
///     const RunOutcome outcome = co_await runOf(m_session);
///     show(outcome.text);
/// }
/// @endcode
///
/// `Task` is the coroutine type of the program or of a library of its choice: what is awaited here has no
/// demands on it.
///
/// The coroutine is resumed from the event loop at every end, also where what it waits for is deleted; in the
/// next turn where that had ended. Nothing is thrown. Several coroutines may wait for one object. A coroutine
/// that is destroyed while it waits leaves nothing behind: nothing is called any more, and the reply or run
/// goes on.
///
/// All is used on the thread of the object that is awaited. A coroutine that is to be a member of a window,
/// as above, must be destroyed with the window or look whether the window is there when it is resumed: the
/// window may be deleted while the coroutine waits.

/// What `co_await` waits with: keeps the coroutine, and the result until it is resumed.
template<typename Result>
class Awaiter
{
public:
    Awaiter(const Awaiter &) = delete;
    Awaiter &operator=(const Awaiter &) = delete;
    Awaiter &operator=(Awaiter &&) = delete;

    /// Returns false: coroutines are resumed from the event loop.
    bool await_ready() const noexcept { return false; }

    /// Returns what the object ended with.
    Result await_resume() { return std::move(m_result); }

protected:
    Awaiter() = default;
    /// Promises that look at what is awaited may move it before it waits.
    Awaiter(Awaiter &&) noexcept = default;
    ~Awaiter() = default;

    /// Keeps @p coroutine, and returns the context of all that may end its wait. It dies with the coroutine.
    QObject *wait(std::coroutine_handle<> coroutine)
    {
        m_coroutine = coroutine;
        m_context = std::make_unique<QObject>();
        return m_context.get();
    }

    /// Resumes the coroutine with @p result, inside a call that the event loop makes.
    void resume(const Result &result)
    {
        m_result = result;
        m_coroutine.resume();
    }

    /// Resumes the coroutine with @p result from the event loop. Only the first call counts.
    void resumeLater(const Result &result)
    {
        if (std::exchange(m_isOver, true))
            return;
        m_result = result;
        QMetaObject::invokeMethod(
            m_context.get(), [coroutine = m_coroutine] { coroutine.resume(); }, Qt::QueuedConnection);
    }

private:
    std::coroutine_handle<> m_coroutine;
    std::unique_ptr<QObject> m_context;
    bool m_isOver = false;
    Result m_result;
};

/// Waits for the end of a reply.
class ReplyAwaiter : public Awaiter<ChatResult>
{
public:
    /// Creates one for @p reply.
    explicit ReplyAwaiter(ChatReply &reply)
        : m_reply(&reply)
    {}

    /// Begins to wait. A reply that was deleted since ends with ChatResult::End::Deleted.
    void await_suspend(std::coroutine_handle<> coroutine)
    {
        QObject *context = wait(coroutine);
        if (!m_reply) {
            resumeLater({});
            return;
        }
        const bool hadEnded = !m_reply->isRunning();
        m_reply->whenEnded(context, [this, hadEnded](const ChatResult &result) {
            if (hadEnded || result.end == ChatResult::End::Deleted)
                resume(result);
            else
                resumeLater(result);
        });
    }

private:
    const QPointer<ChatReply> m_reply;
};

/// Lets `co_await *reply` return what ChatReply::whenEnded() tells.
inline ReplyAwaiter operator co_await(ChatReply &reply)
{
    return ReplyAwaiter(reply);
}

/// Waits for the end of a session's run.
class RunAwaiter : public Awaiter<RunOutcome>
{
public:
    /// Creates one for @p session, which may be null.
    explicit RunAwaiter(AgentSession *session)
        : m_session(session)
    {}

    /// Begins to wait.
    void await_suspend(std::coroutine_handle<> coroutine)
    {
        QObject *context = wait(coroutine);
        const auto resume = [this](const RunOutcome &outcome) { resumeLater(outcome); };
        const auto abandon = [this] { resumeLater({RunEnd::Abandoned, {}, {}, 0}); };
        if (!m_session) {
            abandon();
        } else if (!m_session->isRunning()) {
            resume(m_session->lastOutcome());
        } else {
            QObject::connect(m_session, &AgentSession::runEnded, context, resume);
            QObject::connect(m_session, &QObject::destroyed, context, abandon);
        }
    }

private:
    const QPointer<AgentSession> m_session;
};

/// Lets `co_await runOf(session)` return the outcome of the run that is in flight, as
/// AgentSession::runEnded() tells it, or that of the last one: so it may follow AgentSession::send(), which
/// may end the run before it returns. Without any run that is a default RunOutcome. Where the session is
/// deleted while it runs, and where
/// @p session is null, the end is RunEnd::Abandoned and the text empty.
inline RunAwaiter runOf(AgentSession *session)
{
    return RunAwaiter(session);
}

/// Waits for the end of a graph's run.
class GraphAwaiter : public Awaiter<GraphRunResult>
{
public:
    /// Creates one for @p run, which may be null.
    explicit GraphAwaiter(GraphRun *run)
        : m_run(run)
    {}

    /// Begins to wait.
    void await_suspend(std::coroutine_handle<> coroutine)
    {
        QObject *context = wait(coroutine);
        const auto resume = [this](const GraphRunResult &result) { resumeLater(result); };
        const auto resumeDeleted = [this] { fail({}, QStringLiteral("Graph run was deleted.")); };
        // Another run may be in flight by then, which GraphRun::result() would tell of.
        const auto resumeCanceled = [this] {
            fail(m_run->m_result, QStringLiteral("Graph run was canceled."));
        };
        if (!m_run) {
            resumeDeleted();
        } else if (!m_run->isRunning()) {
            resume(m_run->result());
        } else {
            QObject::connect(m_run, &GraphRun::finished, context, resume);
            QObject::connect(m_run, &GraphRun::canceled, context, resumeCanceled);
            QObject::connect(m_run, &QObject::destroyed, context, resumeDeleted);
        }
    }

private:
    void fail(GraphRunResult result, const QString &error)
    {
        result.error = error;
        resumeLater(result);
    }

    const QPointer<GraphRun> m_run;
};

/// Lets `co_await resultOf(run)` return the result of the run that is in flight, or GraphRun::result() where
/// none is. The error is "Graph run was canceled." where the run is canceled, with the state that it had
/// reached, and "Graph run was deleted." where it is deleted or @p run is null.
inline GraphAwaiter resultOf(GraphRun *run)
{
    return GraphAwaiter(run);
}

/// Waits for the end of a tool's call.
class ToolAwaiter : public Awaiter<ToolResult>
{
public:
    /// Creates one for @p reply.
    explicit ToolAwaiter(ToolReply &reply)
        : m_reply(&reply)
    {}

    /// Begins to wait.
    void await_suspend(std::coroutine_handle<> coroutine)
    {
        QObject *context = wait(coroutine);
        const auto resume = [this](const ToolResult &result) { resumeLater(result); };
        const auto resumeDeleted = [this] { fail(QStringLiteral("Tool reply was deleted.")); };
        const auto resumeCanceled = [this] { fail(QStringLiteral("Tool call was canceled.")); };
        if (!m_reply) {
            resumeDeleted();
        } else if (m_reply->isCanceled()) {
            resumeCanceled();
        } else if (!m_reply->isRunning()) {
            resume(m_reply->result());
        } else {
            QObject::connect(m_reply, &ToolReply::finished, context, resume);
            QObject::connect(m_reply, &ToolReply::canceled, context, resumeCanceled);
            QObject::connect(m_reply, &QObject::destroyed, context, resumeDeleted);
        }
    }

private:
    void fail(const QString &error)
    {
        ToolResult result;
        result.error = error;
        resumeLater(result);
    }

    const QPointer<ToolReply> m_reply;
};

/// Lets `co_await *reply` return the result of a tool's call: what ToolReply::finished() tells, else a
/// failure with the error "Tool call was canceled." or "Tool reply was deleted.".
inline ToolAwaiter operator co_await(ToolReply &reply)
{
    return ToolAwaiter(reply);
}

} // namespace QtAgent
} // namespace MireloQtLib

#endif
