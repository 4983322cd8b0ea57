#ifndef MIRELOQTLIB_QTAGENT_REQUESTOPTIONS_H
#define MIRELOQTLIB_QTAGENT_REQUESTOPTIONS_H

#include <qtagent/qtagent_export.h>

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// What a service wants otherwise than the protocol's first version, and how its answers are read. All of it
/// is off by default, which suits most services.
///
/// @code
/// RequestOptions options;
/// options.useMaxCompletionTokens = true;
/// options.without = QStringList{QStringLiteral("temperature")};
/// options.extra = {{QStringLiteral("reasoning_effort"), QStringLiteral("low")}};
/// model->setRequestOptions(options);
/// @endcode
///
/// The body is changed in the order of the members below: `useMaxCompletionTokens`, `askForUsage`, `without`,
/// `extra`. "model", "messages", "tools" and "stream" are safe from the last two.
struct RequestOptions
{
    /// Keys that are merged into the body last, each replacing one of the same name. Null values are sent.
    QJsonObject extra;
    /// Keys that are left out of the body, for example "temperature".
    QStringList without;
    /// Headers, which replace those of the same name, whatever its case; an Authorization among them is sent
    /// in place of the profile's key, an empty one in place of any. Dropped are names that are no token,
    /// values with a line break or a NUL, and Host, Content-Length, Transfer-Encoding and Connection.
    QMap<QByteArray, QByteArray> headers;
    /// Whether the token limit is sent as "max_completion_tokens" in place of "max_tokens".
    bool useMaxCompletionTokens = false;
    /// Whether the reasoning that came with tool calls goes back with them in later requests of the model to
    /// the same address, under the key it came in. Without it some services refuse the next request; others
    /// refuse the key. What a message's metadata holds under "reasoning_content", "reasoning" or
    /// "reasoning_details" wins. The last 1,000 answers with calls are remembered. DeepSeekModel always does
    /// it.
    bool keepReasoning = false;
    /// Whether a request with tools is streamed, too, where the profile streams. The calls are handed over as
    /// one response before ChatReply::finished(), whole or not at all.
    bool streamToolCalls = false;
    /// Whether a streamed request asks for the tokens it takes (see CompletionReply::usage()).
    bool askForUsage = false;
    /// Whether text in `<think>`, `<thinking>`, `[THINK]` or `<mm:think>` at the beginning of an answer is
    /// reasoning, and a content that is a list of parts is read. Such reasoning never goes back: agents put
    /// an answer with calls into their conversation without it.
    bool readThinkTags = false;
    /// Whether a stream has to be complete: with an error event, a finish reason that tells of a failure, no
    /// answer, or no end it fails.
    bool strictStreams = false;
    /// Whether a request fails where no byte went either way for ModelConfig::timeoutMs, which is counted
    /// from the call. Comments in a stream count. 0 or less is no limit. The report has the network error
    /// "4 (No data for ... ms)" then; what had arrived was told before.
    bool applyTimeLimit = false;
    /// What stands behind the address and the path, with or without "?". It shows in error reports, so no key
    /// belongs here.
    QString query;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const RequestOptions &left, const RequestOptions &right);
    /// Returns whether a field differs.
    friend bool operator!=(const RequestOptions &left, const RequestOptions &right)
    {
        return !(left == right);
    }
};

/// Returns the options in @p object, whose keys are the names of the members. What is unknown or of the wrong
/// type is ignored.
QTAGENT_EXPORT RequestOptions requestOptionsFromJson(const QJsonObject &object);

/// Returns an object with what differs from the default in @p options, for requestOptionsFromJson().
QTAGENT_EXPORT QJsonObject requestOptionsToJson(const RequestOptions &options);

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::RequestOptions)

#endif
