#ifndef MIRELOQTLIB_QTAGENT_MOCKCHATMODEL_H
#define MIRELOQTLIB_QTAGENT_MOCKCHATMODEL_H

#include <qtagent/chatmodel.h>

namespace MireloQtLib {
namespace QtAgent {

/// A model that answers from a script, without a network. Its profile is ignored.
///
/// @code
/// auto *model = new MockChatModel(this);
/// ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, this);
/// reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
/// @endcode
///
/// The answer depends on the conversation and the tools alone; the first rule that fits decides:
/// - a conversation that holds a "tool" message is answered with a summary of all tool results;
/// - where tools are offered and the last user message speaks of devices or reports (one of abnormal,
///   device, report, export, 设备, 异常, 报告, 导出 in it), the answer calls those of
///   find_abnormal_devices, generate_alarm_summary and export_report that are offered, or says that
///   there is no tool for devices where none of the three is;
/// - everything else is answered with a fixed notice.
///
/// The texts are Chinese, and are translated where a QTranslator has them, as QObject::tr() does.
///
/// Texts are streamed word by word, the first on the next turn of the event loop and the others 45 ms
/// apart. Every word ends in a space, and so does the whole text. Tool calls arrive on the next turn as
/// responseReceived() and an empty finished(); a canceled reply still emits that responseReceived().
///
/// A reply that is owned by somebody else goes on when the model is deleted. Both belong to one thread.
class QTAGENT_EXPORT MockChatModel : public ChatModel
{
    Q_OBJECT

public:
    /// Creates a model, which needs no profile.
    explicit MockChatModel(QObject *parent = nullptr);
    ~MockChatModel() override;

    /// Answers from the script, as ChatModel::chat() describes. The reply never fails.
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
