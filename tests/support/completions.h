#ifndef MIRELOQTLIB_QTAGENT_TESTS_COMPLETIONS_H
#define MIRELOQTLIB_QTAGENT_TESTS_COMPLETIONS_H

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// What a chat-completions service sends.

/// Returns the object of a whole answer with one choice. @p toolCalls is left out where it is empty.
QJsonObject completion(const QString &content, const QJsonArray &toolCalls = {});

/// Returns the bytes of one stream event that carries @p content: a "data: " line and an empty line.
QByteArray deltaEvent(const QString &content);

/// Returns the bytes of a stream's last event.
QByteArray doneEvent();

#endif
