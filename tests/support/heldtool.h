#ifndef QTAGENT_TESTS_HELDTOOL_H
#define QTAGENT_TESTS_HELDTOOL_H

#include <qtagent/asynctool.h>

#include <QPointer>
#include <QTimer>
#include <QVector>

#include <functional>

/// An asynchronous tool whose calls go on until the test ends them.
///
/// @code
/// auto *tool = new HeldTool("slow", ToolPermission::ReadOnly);
/// registry->registerTool(tool);
/// ...
/// tool->lastReply()->finish(AgentFixture::success("done"));
/// @endcode
class HeldTool : public MireloQtLib::QtAgent::AsyncTool
{
public:
    using ToolPermission = MireloQtLib::QtAgent::ToolPermission;
    using ToolReply = MireloQtLib::QtAgent::ToolReply;

    HeldTool(const QString &name, ToolPermission permission, QObject *parent = nullptr)
        : AsyncTool(parent)
        , m_name(name)
        , m_permission(permission)
    {}

    QString name() const override { return m_name; }
    QString description() const override { return "Takes its time."; }
    QJsonObject parameters() const override { return {{"type", "object"}}; }
    ToolPermission permission() const override { return m_permission; }

    ToolReply *start(const QJsonObject &arguments, QObject *parent) override
    {
        const QPointer<ToolReply> reply = new ToolReply(parent);
        const auto work = onStart;
        lastArguments = arguments;
        replies.append(reply);
        if (work)
            work(reply);
        // cppcheck-suppress CastIntegerToAddressAtReturn ; a member that is called reply
        return reply;
    }

    /// The reply to the latest call. There must have been one.
    // cppcheck-suppress CastIntegerToAddressAtReturn ; pointers, not numbers
    ToolReply *lastReply() const { return replies.last(); }

    void setPermission(ToolPermission permission) { m_permission = permission; }

    /// Is called inside start(); the tool returns null where it deletes the reply.
    std::function<void(ToolReply *)> onStart;

    /// Of every call so far, the first one first.
    QVector<QPointer<ToolReply>> replies;

    /// Those of the latest call.
    QJsonObject lastArguments;

    /// Lets @p reply tell that it is half done, and finish, each in a turn of the event loop of its own.
    static void finishLater(ToolReply *reply, const QString &content)
    {
        QTimer::singleShot(0, reply, [reply] { reply->progress("half"); });
        MireloQtLib::QtAgent::ToolResult result;
        result.success = true;
        result.content = content;
        QTimer::singleShot(0, reply, [reply, result] { reply->finish(result); });
    }

private:
    const QString m_name;
    ToolPermission m_permission;
};

#endif
