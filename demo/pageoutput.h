#ifndef ORVANE_PAGEOUTPUT_H
#define ORVANE_PAGEOUTPUT_H

#include <QString>

QT_BEGIN_NAMESPACE
class QFont;
class QJsonObject;
class QPlainTextEdit;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class ChatReply;
} // namespace QtAgent
} // namespace MireloQtLib

// The texts that a page shows, also those that stream in.

/// Returns a read-only editor with the accessible name @p name.
QPlainTextEdit *createOutput(const QString &name);

/// Returns a font for JSON and for what tools return, in which all characters are equally wide.
QFont codeFont();

/// Shows the text of @p editor in codeFont(). A line that is too long is broken anywhere, as terminals do it:
/// what a tool returns may be a megabyte without a blank.
void showAsCode(QPlainTextEdit *editor);

/// Returns @p object as JSON text to show.
QString indentedJson(const QJsonObject &object);

/// Inserts @p text at the end of @p output as plain text and scrolls to it.
void appendText(QPlainTextEdit *output, const QString &text);

/// Lets @p reply delete itself once it has finished, failed or been canceled.
void deleteWhenOver(MireloQtLib::QtAgent::ChatReply *reply);

/// What becomes of the text that an output holds when a reply is bound to it.
enum class EarlierText { Clear, Keep };

/// Streams @p reply into @p output: its deltas are appended, a failure replaces the text by "错误：" and
/// the report. The reply deletes itself when it is over.
void bindReply(MireloQtLib::QtAgent::ChatReply *reply, QPlainTextEdit *output, EarlierText earlierText);

#endif
