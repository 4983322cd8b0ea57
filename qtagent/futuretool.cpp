#include "asynctool.h"

#include "toolresults_p.h"

#include <QFutureWatcher>
#include <QPointer>

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// The future has finished, so that nothing here waits.
ToolResult resultOf(QFuture<ToolResult> future)
{
    QT_TRY
    {
        future.waitForFinished();
        if (!future.isCanceled() && future.resultCount() > 0)
            return future.resultAt(0);
    }
    QT_CATCH(...)
    {
        return failedResult(QStringLiteral("Tool threw an exception."));
    }
    return failedResult(QStringLiteral("Tool call was canceled."));
}

// Reports a future to its reply, whose child it is; nobody waits for the result once the reply is gone.
class FutureCall : public QFutureWatcher<ToolResult>
{
public:
    FutureCall(const QFuture<ToolResult> &future, ToolReply *reply)
        : QFutureWatcher<ToolResult>(reply)
    {
        connect(this, &QFutureWatcherBase::progressTextChanged, reply, &ToolReply::progress);
        connect(this, &QFutureWatcherBase::finished, reply,
                [this, reply] { reply->finish(resultOf(this->future())); });
        connect(reply, &ToolReply::canceled, this, &QFutureWatcherBase::cancel);
        setFuture(future);
    }

    ~FutureCall() override
    {
        if (!future().isFinished())
            cancel();
    }
    Q_DISABLE_COPY(FutureCall)
};

} // namespace

FutureTool::FutureTool(const QString &name, const QString &description, const QJsonObject &parameters,
                       ToolPermission permission, FutureHandler handler, QObject *parent)
    : AsyncTool(parent)
    , m_definition{name, description, parameters, permission}
    , m_handler(std::make_shared<FutureHandler>(std::move(handler)))
{}

FutureTool::~FutureTool() = default;

QString FutureTool::name() const
{
    return m_definition.name;
}

QString FutureTool::description() const
{
    return m_definition.description;
}

QJsonObject FutureTool::parameters() const
{
    return m_definition.parameters;
}

ToolPermission FutureTool::permission() const
{
    return m_definition.permission;
}

ToolReply *FutureTool::start(const QJsonObject &arguments, QObject *parent)
{
    if (!*m_handler) {
        auto *reply = new ToolReply(parent);
        failLater(reply, QStringLiteral("Tool handler is empty."));
        return reply;
    }
    // A handler may delete its own tool, and the parent.
    const std::shared_ptr<FutureHandler> handler = m_handler;
    const QPointer<QObject> guard(parent);
    QFuture<ToolResult> future = (*handler)(arguments);
    if (parent && !guard) {
        future.cancel();
        return nullptr;
    }
    auto *reply = new ToolReply(parent);
    new FutureCall(future, reply);
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
