#include "asynctool.h"

#include "childprocess_p.h"
#include "toolresults_p.h"

#include <QTimer>

#include <cmath>
#include <limits>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int maximumReportLength = 2000;
constexpr qint64 maximumOutput = 1024 * 1024 * 1024;

// The template

QString argumentText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    if (value.toVariant().userType() == QMetaType::LongLong)
        return QString::number(value.toVariant().toLongLong());
    if (value.isDouble() && value.toDouble() == std::floor(value.toDouble()))
        return QString::number(value.toDouble(), 'f', 0);
    return compactJson(value);
}

// Fills in the list of arguments that the host gave.
class ArgumentTemplate
{
public:
    ArgumentTemplate(const QJsonObject &schema, const QJsonObject &values)
        : m_properties(schema.value(QLatin1String("properties")).toObject())
        , m_values(values)
    {}

    QStringList fill(const QStringList &elements)
    {
        QStringList filled;
        for (const QString &element : elements) {
            QString argument;
            if (fillElement(element, &argument))
                filled.append(argument);
        }
        return filled;
    }

    // Says which value cannot be an argument, if any.
    QString error() const { return m_error; }

private:
    // Returns false where the element is left out.
    bool fillElement(const QString &element, QString *argument)
    {
        int copied = 0;
        int open = -1;
        while ((open = int(element.indexOf(QLatin1Char('{'), open + 1))) >= 0) {
            const int close = endOfKey(element, open);
            if (close < 0)
                continue;
            const QString key = element.mid(open + 1, close - open - 1);
            if (m_values.value(key).isNull() || m_values.value(key).isUndefined())
                return false;
            *argument += element.mid(copied, open - copied) + valueOf(key);
            copied = close + 1;
            open = close;
        }
        *argument += element.mid(copied);
        return true;
    }

    // The brace that closes the name of a property, or -1 where the one at @p open begins none.
    int endOfKey(const QString &element, int open) const
    {
        int close = open;
        while ((close = int(element.indexOf(QLatin1Char('}'), close + 1))) >= 0) {
            if (m_properties.contains(element.mid(open + 1, close - open - 1)))
                return close;
        }
        return -1;
    }

    QString valueOf(const QString &key)
    {
        QString text = argumentText(m_values.value(key));
        if (text.contains(QChar(QChar::Null)))
            m_error = QStringLiteral("Argument contains a null character: %1").arg(key);
        return text;
    }

    const QJsonObject m_properties;
    const QJsonObject m_values;
    QString m_error;
};

// The run

QString reportOf(const QByteArray &output)
{
    constexpr int maximumBytes = 4 * maximumReportLength;
    const QString text = QString::fromUtf8(output.left(maximumBytes));
    const bool cutsCharacter =
        text.size() > maximumReportLength && text.at(maximumReportLength - 1).isHighSurrogate();
    return text.left(maximumReportLength - int(cutsCharacter));
}

struct Limits
{
    qint64 timeMs = 0;
    qint64 outputBytes = 0;
};

// Runs the program of one call for its reply, whose child it is. The signals of the process are queued,
// because the reply's end may delete everything while Qt still uses the process.
class ProgramRun : public QObject
{
public:
    ProgramRun(ToolReply *reply, const Limits &limits)
        : QObject(reply)
        , m_reply(reply)
        , m_limits(limits)
    {
        connect(m_process, &QProcess::readyReadStandardOutput, this, &ProgramRun::read, Qt::QueuedConnection);
        connect(m_process, &QProcess::readyReadStandardError, this, &ProgramRun::read, Qt::QueuedConnection);
        connect(m_process, &QProcess::errorOccurred, this, &ProgramRun::reportStart, Qt::QueuedConnection);
        connect(m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
                &ProgramRun::reportEnd, Qt::QueuedConnection);
        // At once: the system may give the group's number to others.
        connect(m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), m_process,
                &ChildProcess::killGroup);
        connect(&m_timer, &QTimer::timeout, this, &ProgramRun::reportTimeLimit);
        connect(reply, &ToolReply::canceled, m_process, &ChildProcess::killGroup);
    }

    ~ProgramRun() override { ChildProcess::discard(m_process); }
    Q_DISABLE_COPY(ProgramRun)

    ChildProcess *process() { return m_process; }

    void start(const QString &program, const QStringList &arguments)
    {
        m_process->setStandardInputFile(QProcess::nullDevice());
        m_process->startGroup(program, arguments, QIODevice::ReadOnly);
        if (m_limits.timeMs > 0)
            m_timer.start(int(qMin<qint64>(m_limits.timeMs, std::numeric_limits<int>::max())));
    }

private:
    void read()
    {
        collect();
        if (isOutputExceeded())
            failOnOutput();
    }

    void collect()
    {
        m_output += m_process->readAllStandardOutput();
        m_errorOutput += m_process->readAllStandardError();
    }

    bool isOutputExceeded() const
    {
        return qint64(m_output.size()) + qint64(m_errorOutput.size()) > m_limits.outputBytes;
    }

    void reportStart(QProcess::ProcessError error)
    {
        if (error == QProcess::FailedToStart)
            fail(QStringLiteral("Program could not be started: %1").arg(m_process->errorString()));
    }

    void reportTimeLimit()
    {
        collect();
        fail(QStringLiteral("Program exceeded its time limit of %1 ms.").arg(m_limits.timeMs));
    }

    void reportEnd(int exitCode, QProcess::ExitStatus status)
    {
        const QJsonObject metadata{{QStringLiteral("exitCode"), exitCode}};
        collect();
        if (isOutputExceeded())
            failOnOutput();
        else if (status == QProcess::CrashExit)
            fail(QStringLiteral("Program crashed."));
        else if (exitCode != 0)
            fail(QStringLiteral("Program ended with code %1.").arg(exitCode), metadata);
        else
            end({true, {}, QString::fromUtf8(m_output), {}, metadata});
    }

    void failOnOutput()
    {
        fail(QStringLiteral("Program wrote more than %1 bytes.").arg(m_limits.outputBytes));
    }

    void fail(const QString &reason, const QJsonObject &metadata = {})
    {
        const QByteArray &told = m_errorOutput.isEmpty() ? m_output : m_errorOutput;
        const QString report = reportOf(told);
        end({false, {}, {}, report.isEmpty() ? reason : reason + QLatin1Char('\n') + report, metadata});
    }

    void end(const ToolResult &result)
    {
        disconnect(m_process, nullptr, this, nullptr);
        m_timer.stop();
        m_process->killGroup();
        deleteLater();
        m_reply->finish(result);
    }

    ToolReply *const m_reply;
    const Limits m_limits;
    ChildProcess *const m_process = new ChildProcess;
    QTimer m_timer;
    QByteArray m_output;
    QByteArray m_errorOutput;
};

} // namespace

ProcessTool::ProcessTool(const QString &name, const QString &description, const QJsonObject &parameters,
                         const QString &program, const QStringList &arguments, QObject *parent)
    : AsyncTool(parent)
    , m_definition{name, description, parameters, ToolPermission::SystemCommand}
    , m_program(program)
    , m_arguments(arguments)
{}

ProcessTool::~ProcessTool() = default;

void ProcessTool::setWorkingDirectory(const QString &path)
{
    m_workingDirectory = path;
}

void ProcessTool::setEnvironment(const QProcessEnvironment &environment)
{
    m_environment = environment;
}

void ProcessTool::setTimeLimit(qint64 ms)
{
    m_timeLimit = ms;
}

void ProcessTool::setOutputLimit(qint64 bytes)
{
    m_outputLimit = bytes > 0 ? qMin(bytes, maximumOutput) : maximumOutput;
}

QString ProcessTool::name() const
{
    return m_definition.name;
}

QString ProcessTool::description() const
{
    return m_definition.description;
}

QJsonObject ProcessTool::parameters() const
{
    return m_definition.parameters;
}

ToolPermission ProcessTool::permission() const
{
    return m_definition.permission;
}

ToolReply *ProcessTool::start(const QJsonObject &arguments, QObject *parent)
{
    auto *reply = new ToolReply(parent);
    ArgumentTemplate values(m_definition.parameters, arguments);
    const QStringList filled = values.fill(m_arguments);
    if (!values.error().isEmpty()) {
        failLater(reply, values.error());
        return reply;
    }
    auto *run = new ProgramRun(reply, {m_timeLimit, m_outputLimit});
    run->process()->setWorkingDirectory(m_workingDirectory);
    run->process()->setChosenEnvironment(m_environment);
    run->start(m_program, filled);
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
