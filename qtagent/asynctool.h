#ifndef MIRELOQTLIB_QTAGENT_ASYNCTOOL_H
#define MIRELOQTLIB_QTAGENT_ASYNCTOOL_H

#include <qtagent/agenttool.h>

namespace MireloQtLib {
namespace QtAgent {

/// The result of one call of an AsyncTool, as it comes about.
///
/// A tool reports what happens; whoever started it listens:
/// @code
/// ToolReply *reply = tool->start(arguments, this);
/// connect(reply, &ToolReply::progressed, label, &QLabel::setText);
/// connect(reply, &ToolReply::finished, this, [reply](const ToolResult &result) {
///     show(toolResultText(result));
///     reply->deleteLater();
/// });
/// connect(stopButton, &QPushButton::clicked, reply, &ToolReply::cancel);
/// @endcode
///
/// A reply ends with exactly one of finished() and canceled(), unless it is deleted first, which emits
/// nothing but destroyed(). It may be deleted in a slot of any of its signals.
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

    /// Emits progressed(), also for an empty text. Does nothing once the reply has ended.
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
/// class Thermometer : public AsyncTool
/// {
///     ...
///     ToolReply *start(const QJsonObject &, QObject *parent) override
///     {
///         auto *reply = new ToolReply(parent);
///         connect(m_device, &Device::measured, reply, [reply](double celsius) {
///             ToolResult result;
///             result.success = true;
///             result.content = QString::number(celsius);
///             reply->finish(result);
///         });
///         connect(reply, &ToolReply::canceled, m_device, &Device::stop);
///         m_device->measure();
///         return reply;
///     }
/// };
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

} // namespace QtAgent
} // namespace MireloQtLib

#endif
