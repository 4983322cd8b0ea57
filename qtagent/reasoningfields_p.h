#ifndef MIRELOQTLIB_QTAGENT_REASONINGFIELDS_P_H
#define MIRELOQTLIB_QTAGENT_REASONINGFIELDS_P_H

#include <qtagent/completionreply.h>

namespace MireloQtLib {
namespace QtAgent {

// The reasoning of a reply under the keys in which the service sent it, as it may be sent back.
class ReasoningFields
{
public:
    // Without this a reply's reasoning counts as sent under "reasoning_content".
    static void set(CompletionReply *reply, const QJsonObject &fields);

    // Returns an empty object where @p reply has no reasoning.
    static QJsonObject of(const ChatReply &reply);
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
