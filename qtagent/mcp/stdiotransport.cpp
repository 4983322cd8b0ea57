#include "stdiotransport_p.h"

#include <QDeadlineTimer>
#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int maximumLineLength = 16 * 1024 * 1024;
constexpr int maximumUnreadBytes = 1024 * 1024;
constexpr int stageMs = 2000;
constexpr int groupPollMs = 20;
constexpr int destructionStageMs = 200;

} // namespace

// The signals of the process are queued: Qt holds further ones back while a slot runs, which may take as long
// as a dialog is open, and slots may delete everything while Qt still uses the process.
StdioTransport::StdioTransport(const QString &program, const QStringList &arguments,
                               const QProcessEnvironment &environment)
    : m_program(program)
    , m_arguments(arguments)
    , m_lines(maximumLineLength)
{
    m_process.setChosenEnvironment(environment);
    connect(&m_process, &QProcess::readyReadStandardOutput, this, &StdioTransport::read,
            Qt::QueuedConnection);
    connect(&m_process, &QProcess::readyReadStandardError, this, &StdioTransport::read, Qt::QueuedConnection);
    connect(&m_process, &QProcess::errorOccurred, this, &StdioTransport::reportError, Qt::QueuedConnection);
    connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &StdioTransport::reportEnd, Qt::QueuedConnection);
    m_stageTimer.setSingleShot(true);
    connect(&m_stageTimer, &QTimer::timeout, this, [this] { enter(Stage(int(m_stage) + 1)); });
    connect(&m_groupTimer, &QTimer::timeout, this, [this] {
        if (!m_process.hasGroup())
            enter(Stage::Over);
    });
}

// As close() does it, but there is no time to turn the event loop.
StdioTransport::~StdioTransport()
{
    m_process.disconnect(this);
    if (m_stage < Stage::InputClosed)
        m_process.closeWriteChannel();
    if (m_stage >= Stage::Terminated || waitForGroup(destructionStageMs))
        return;
    m_process.terminateGroup();
    waitForGroup(destructionStageMs);
}

void StdioTransport::open()
{
    m_process.startGroup(m_program, m_arguments);
}

void StdioTransport::sendRequest(const McpRequest &request)
{
    sendMessage(rpcRequest(request.id, request.method, request.params));
}

void StdioTransport::sendMessage(const QByteArray &message, const std::function<void()> &whenSent)
{
    if (m_process.state() != QProcess::NotRunning)
        m_process.write(message + '\n');
    if (whenSent)
        whenSent();
}

void StdioTransport::sendAnswer(const QByteArray &message)
{
    if (m_process.bytesToWrite() <= maximumUnreadBytes)
        sendMessage(message);
}

void StdioTransport::dropRequest(qint64 /*id*/, const QByteArray &cancellation)
{
    if (!cancellation.isEmpty())
        sendMessage(cancellation);
}

void StdioTransport::setAgreement(const McpAgreement & /*agreement*/) {}

void StdioTransport::listen() {}

void StdioTransport::read()
{
    const QPointer<StdioTransport> self(this);
    m_lines.append(m_process.readAllStandardOutput());
    const QByteArray errorBytes = m_process.readAllStandardError();
    if (!errorBytes.isEmpty())
        Q_EMIT errorOutput(errorBytes);
    QByteArray line;
    while (self && m_lines.takeLine(&line))
        takeLine(line);
    if (self && m_lines.isLineTooLong() && m_stage == Stage::Running) {
        m_reason = QStringLiteral("Line is too long.");
        enter(Stage::Killed);
    }
}

void StdioTransport::takeLine(const QByteArray &line)
{
    const QPointer<StdioTransport> self(this);
    const QVector<RpcMessage> messages = readRpcMessages(line);
    if (messages.isEmpty() && !line.trimmed().isEmpty())
        Q_EMIT errorOutput(line + '\n');
    for (const RpcMessage &message : messages) {
        if (self)
            Q_EMIT received(message);
    }
}

void StdioTransport::reportError(QProcess::ProcessError error)
{
    if (error != QProcess::FailedToStart)
        return;
    m_reason = QStringLiteral("Program could not be started: %1").arg(m_process.errorString());
    enter(Stage::Over);
}

void StdioTransport::reportEnd(int exitCode, QProcess::ExitStatus status)
{
    const QPointer<StdioTransport> self(this);
    read();
    if (self && !m_lines.remainder().isEmpty())
        Q_EMIT errorOutput(m_lines.remainder() + '\n');
    if (!self)
        return;
    if (status == QProcess::CrashExit)
        endGroup(QStringLiteral("Program crashed."));
    else
        endGroup(QStringLiteral("Program ended with code %1.").arg(exitCode));
}

// The program has ended; what it has started gets as much time as it had itself.
void StdioTransport::endGroup(const QString &reason)
{
    const QPointer<StdioTransport> self(this);
    if (m_stage == Stage::Running) {
        m_reason = reason;
        Q_EMIT ending(reason);
    }
    if (!self)
        return;
    if (!m_process.hasGroup()) {
        enter(Stage::Over);
        return;
    }
    m_groupTimer.start(groupPollMs);
    if (m_stage < Stage::Terminated)
        enter(Stage::Terminated);
}

void StdioTransport::close()
{
    if (m_stage == Stage::Running)
        enter(Stage::InputClosed);
}

void StdioTransport::enter(Stage stage)
{
    m_stage = stage;
    m_stageTimer.start(stageMs);
    if (stage == Stage::InputClosed)
        m_process.closeWriteChannel();
    else if (stage == Stage::Terminated)
        m_process.terminateGroup();
    else if (stage == Stage::Killed)
        m_process.killGroup();
    else
        finish();
}

void StdioTransport::finish()
{
    m_stageTimer.stop();
    m_groupTimer.stop();
    m_process.disconnect(this);
    Q_EMIT closed(QString(m_reason));
}

bool StdioTransport::waitForGroup(int ms)
{
    const QDeadlineTimer limit(ms);
    m_process.waitForFinished(ms);
    while (m_process.hasGroup() && !limit.hasExpired())
        QThread::msleep(1);
    return !m_process.hasGroup();
}

} // namespace QtAgent
} // namespace MireloQtLib
