#ifndef MIRELOQTLIB_QTAGENT_TESTS_FAULTRUN_H
#define MIRELOQTLIB_QTAGENT_TESTS_FAULTRUN_H

#include <qtagent/modelconfig.h>
#include <qtagent/requestoptions.h>

#include <QStringList>

// What a caller of the HTTP client sees of one request to a server that may do anything.

enum class AnswerMode { Whole, Stream };

/// The key that faultConfig() carries. No text that the client emits may contain it.
QString faultKey();

/// Returns a profile for @p baseUrl.
MireloQtLib::QtAgent::ModelConfig faultConfig(const QString &baseUrl, AnswerMode mode);

/// Sends one question, waits until the request is over and nothing of it is left, and returns every signal
/// in the order of emission, as a ReplyRecorder tells them. In the texts "{url}" stands for the request's
/// whole address and "{key}" for the key. With streamToolCalls the tool "f" is offered. Another entry ends
/// the list where a text holds a header or a reasoning that was sent.
QStringList signalsOf(const QString &baseUrl, AnswerMode mode,
                      const MireloQtLib::QtAgent::RequestOptions &options = {});

/// Returns every option set. Of an answer without tags, parts and calls they leave the text as it is.
MireloQtLib::QtAgent::RequestOptions allOptions();

/// Returns the report of a failed request. @p status and @p networkError are left out where empty.
QString failure(const QString &status, const QString &networkError, const QString &response);

#endif
