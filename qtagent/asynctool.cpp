#include "asynctool.h"

namespace MireloQtLib {
namespace QtAgent {

ToolReply::ToolReply(QObject *parent)
    : QObject(parent)
{
    // Queued connections and QSignalSpy look the record up by its name.
    qRegisterMetaType<ToolResult>();
}

ToolReply::~ToolReply() = default;

// The arguments below are emitted as copies: a caller may pass something that dies with the reply, and a
// slot may delete the reply.

void ToolReply::finish(const ToolResult &result)
{
    if (!isRunning())
        return;
    m_isRunning = false;
    m_result = result;
    Q_EMIT finished(ToolResult(result));
}

void ToolReply::progress(const QString &text)
{
    if (isRunning())
        Q_EMIT progressed(QString(text));
}

bool ToolReply::isRunning() const
{
    return m_isRunning;
}

bool ToolReply::isCanceled() const
{
    return m_isCanceled;
}

ToolResult ToolReply::result() const
{
    return m_result;
}

void ToolReply::cancel()
{
    if (!isRunning())
        return;
    m_isRunning = false;
    m_isCanceled = true;
    Q_EMIT canceled();
}

AsyncTool::AsyncTool(QObject *parent)
    : AgentTool(parent)
{}

AsyncTool::~AsyncTool() = default;

ToolResult AsyncTool::invoke(const QJsonObject & /*arguments*/)
{
    ToolResult result;
    result.error = QStringLiteral("Tool is asynchronous.");
    return result;
}

} // namespace QtAgent
} // namespace MireloQtLib
