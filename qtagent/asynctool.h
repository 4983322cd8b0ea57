#ifndef MIRELOQTLIB_QTAGENT_ASYNCTOOL_H
#define MIRELOQTLIB_QTAGENT_ASYNCTOOL_H

#include <qtagent/agenttool.h>

#include <QFuture>
#include <QProcessEnvironment>
#include <QStringList>

#include <functional>
#include <memory>

namespace MireloQtLib {
namespace QtAgent {

/// The result of one call of an AsyncTool, as it comes about.
///
/// A tool reports what happens; whoever started it listens:
/// @code
/// ToolReply *reply = tool->start(arguments, this);
/// const auto showEnd = [=] {
///     label->setText(reply->isCanceled() ? tr("Stopped.") : toolResultText(reply->result()));
///     reply->deleteLater();
/// };
/// connect(reply, &ToolReply::progressed, label, &QLabel::setText);
/// connect(reply, &ToolReply::finished, label, showEnd);
/// connect(reply, &ToolReply::canceled, label, showEnd);
/// connect(stopButton, &QPushButton::clicked, reply, &ToolReply::cancel);
/// if (!reply->isRunning()) // a tool may end at once
///     showEnd();
/// @endcode
///
/// A reply ends with exactly one of finished() and canceled(), unless it is deleted first, which emits
/// nothing but destroyed(). It may be deleted in a slot of any of its signals.
///
/// finish(), progress() and cancel() are called in the reply's thread, which is that of the executor: work on
/// another thread reports to it with a queued call.
class QTAGENT_EXPORT ToolReply : public QObject
{
    Q_OBJECT

public:
    /// Creates a reply that is running. Applications receive theirs from AsyncTool::start().
    explicit ToolReply(QObject *parent = nullptr);
    ~ToolReply() override;

    /// @name For tools
    /// Either of these may delete the reply, through a slot of the application: guard it with a QPointer.
    /// @{

    /// Ends the reply: stores @p result and emits finished(). Does nothing once the reply has ended.
    void finish(const ToolResult &result);

    /// Emits progressed(), also for an empty text. Does nothing once the reply has ended. Inside start()
    /// nobody listens yet.
    void progress(const QString &text);
    /// @}

    /// Returns whether the reply has not ended. It is false already in the slots of finished() and
    /// canceled().
    bool isRunning() const;

    /// Returns whether the reply ended with canceled().
    bool isCanceled() const;

    /// Returns what finish() was given, or a default result where that did not happen.
    ToolResult result() const;

public Q_SLOTS:
    /// Ends the reply without a result and emits canceled(), upon which the tool stops its work. Does
    /// nothing once the reply has ended.
    void cancel();

Q_SIGNALS:
    /// The call is over; result() returns @p result already.
    void finished(const MireloQtLib::QtAgent::ToolResult &result);

    /// The tool tells how far it has come. @p text is for the user; the model does not see it.
    void progressed(const QString &text);

    /// cancel() ended the reply.
    void canceled();

private:
    bool m_isRunning = true;
    bool m_isCanceled = false;
    ToolResult m_result;
};

/// A tool that takes time: it starts its work, returns, and reports the result later.
///
/// @code
/// ToolReply *Thermometer::start(const QJsonObject &, QObject *parent)
/// {
///     auto *reply = new ToolReply(parent);
///     auto *measurement = new Measurement(m_device, reply); // which stops when it is deleted
///     connect(measurement, &Measurement::finished, reply, [reply](double celsius) {
///         ToolResult result;
///         result.success = true;
///         result.content = QString::number(celsius);
///         reply->finish(result);
///     });
///     connect(reply, &ToolReply::canceled, measurement, &QObject::deleteLater);
///     measurement->begin();
///     return reply;
/// }
/// @endcode
///
/// An AgentExecutor waits for the result without blocking the event loop.
class QTAGENT_EXPORT AsyncTool : public AgentTool
{
    Q_OBJECT

public:
    /// Creates a tool. One without a parent becomes the child of the registry that it is registered with.
    explicit AsyncTool(QObject *parent = nullptr);
    ~AsyncTool() override;

    /// Starts a call and returns its reply, which is owned by @p parent: the tool does not delete it.
    /// @p arguments come from a model and may be anything, whatever the schema says.
    ///
    /// The reply ends from the event loop, or has ended when this returns. The caller may cancel or delete
    /// it at any time: a tool listens to ToolReply::canceled() and QObject::destroyed() and then stops its
    /// work. It may itself be deleted while a call runs; the reply stays.
    virtual ToolReply *start(const QJsonObject &arguments, QObject *parent) = 0;

    /// Returns a failure with the error "Tool is asynchronous.": a tool of this kind is started.
    ToolResult invoke(const QJsonObject &arguments) override;
};

/// What a FutureTool does with the arguments of a call.
using FutureHandler = std::function<QFuture<ToolResult>(const QJsonObject &)>;

/// A tool made of values and a function that returns a future: work on another thread.
///
/// @code
/// const auto query = [path](const QJsonObject &arguments) {
///     return QtConcurrent::run([=] { return readTable(path, arguments); }); // returns a ToolResult
/// };
/// registry->registerTool(new FutureTool("read_table", "Reads a table.", schema, ToolPermission::ReadOnly,
///                                       query));
/// @endcode
class QTAGENT_EXPORT FutureTool : public AsyncTool
{
    Q_OBJECT

public:
    /// Creates a tool that returns @p name, @p description, @p parameters and @p permission as they are, and
    /// calls @p handler for each call, with its state as FunctionTool does.
    FutureTool(const QString &name, const QString &description, const QJsonObject &parameters,
               ToolPermission permission, FutureHandler handler, QObject *parent = nullptr);
    ~FutureTool() override;

    QString name() const override;
    QString description() const override;
    QJsonObject parameters() const override;
    ToolPermission permission() const override;

    /// Calls the handler in the caller's thread and returns a reply that finishes with the future's first
    /// result and passes its progress texts on. Canceling or deleting the reply cancels the future and does
    /// not wait for it. The handler may delete the tool.
    ///
    /// The reply finishes with a failure where there is no result:
    /// - "Tool handler is empty.";
    /// - "Tool call was canceled.", where the future was canceled or ended without a result;
    /// - "Tool threw an exception.", where the future holds one.
    ToolReply *start(const QJsonObject &arguments, QObject *parent) override;

private:
    const ToolDefinition m_definition;
    const std::shared_ptr<FutureHandler> m_handler;
};

/// A tool that runs a program and returns what it prints.
///
/// @code
/// auto *search = new ProcessTool("search_log", "Searches the log.", schema, "/usr/bin/grep",
///                                {"-n", "--max-count={limit}", "--", "{text}", "/var/log/plant.log"});
/// search->setTimeLimit(5000);
/// registry->registerTool(search);
/// @endcode
///
/// The host names the program and a list of arguments; no shell is involved. In each element "{key}", where
/// the key stands in the schema's "properties", is replaced by that value of the call: texts as they are,
/// whole numbers in decimal, everything else as compact JSON. An element with a key that the call lacks, or
/// gives as null, is left out. Each element remains one argument whatever it contains. Other braces stay as
/// they are, also those in a value.
///
/// A value may begin with "-" and be read as an option: put "--" before it where the program understands
/// that, or write "--file={key}".
///
/// Of this program's environment HOME, LOGNAME, PATH, SHELL, TERM and USER are passed on, and nothing else.
/// The standard input is empty. What the program prints is read as UTF-8.
///
/// The program runs in a process group of its own, which is killed when the program has ended, when a limit
/// is exceeded and when the reply is canceled or deleted: what the program has started ends with it. On
/// Windows only the program itself is killed.
class QTAGENT_EXPORT ProcessTool : public AsyncTool
{
    Q_OBJECT

public:
    /// Creates a tool that runs @p program with @p arguments, which are filled in as described above.
    ProcessTool(const QString &name, const QString &description, const QJsonObject &parameters,
                const QString &program, const QStringList &arguments, QObject *parent = nullptr);
    ~ProcessTool() override;

    /// Sets the folder in which the program runs. By default it is that of this program.
    void setWorkingDirectory(const QString &path);

    /// Sets variables that are added to the environment described above, or replace those in it.
    void setEnvironment(const QProcessEnvironment &environment);

    /// Sets how long a call may take, in ms: by default 60,000; 0 or less means no limit.
    void setTimeLimit(qint64 ms);

    /// Sets how much a call may print, in bytes of the standard output and the error output together: by
    /// default 1,048,576. 1 GiB is the most, and what 0 or less means.
    void setOutputLimit(qint64 bytes);

    QString name() const override;
    QString description() const override;
    QJsonObject parameters() const override;

    /// Returns ToolPermission::SystemCommand.
    ToolPermission permission() const override;

    /// Starts the program, with the folder, environment and limits of this moment. Nothing blocks.
    ///
    /// Where the program ends with code 0 the reply finishes with a success: the content is what the
    /// program printed. Otherwise the content is empty and the error is one of
    /// - "Program ended with code 2." with its code,
    /// - "Program crashed.", which includes that a signal ended it,
    /// - "Program exceeded its time limit of 60000 ms." with the limit,
    /// - "Program wrote more than 1048576 bytes." with the limit,
    /// - "Program could not be started: " and the system's text,
    ///
    /// followed, if it printed anything, by a line break and the first 2,000 characters of its error output,
    /// or of its standard output where that is empty. The metadata holds "exitCode" where there is a code.
    /// A value with a null character fails with "Argument contains a null character: " and its key.
    ToolReply *start(const QJsonObject &arguments, QObject *parent) override;

private:
    const ToolDefinition m_definition;
    const QString m_program;
    const QStringList m_arguments;
    QString m_workingDirectory;
    QProcessEnvironment m_environment;
    qint64 m_timeLimit = 60000;
    qint64 m_outputLimit = 1048576;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
