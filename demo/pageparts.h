#ifndef ORVANE_PAGEPARTS_H
#define ORVANE_PAGEPARTS_H

#include <QString>

QT_BEGIN_NAMESPACE
class QFont;
class QGroupBox;
class QJsonObject;
class QPlainTextEdit;
class QPushButton;
class QTableView;
class QVBoxLayout;
class QWidget;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class ChatReply;
} // namespace QtAgent
} // namespace MireloQtLib

// What the pages of the demo are put together from.

/// The margin around a page, in pixels.
constexpr int pageMargin = 14;

/// The size below which an input editor does not shrink, in pixels.
struct InputSize
{
    int width = 320;
    int height = 160;
};

/// Adds an input editor that holds @p text to @p layout, under a label that is its buddy. Tab leaves it.
QPlainTextEdit *addInput(QVBoxLayout *layout, const QString &label, const QString &text,
                         const InputSize &minimum = {});

/// Adds a button to @p layout. Return presses it while it has the focus, as a blank does.
QPushButton *addButton(QVBoxLayout *layout, const QString &text, const QString &objectName);

/// Lets Ctrl+Return press @p button from everywhere on @p page.
void pressByCtrlReturn(QPushButton *button, QWidget *page);

/// Enables @p stop and disables @p run while something is @p running, else the other way round. Where the one
/// that is disabled has the focus, @p input gets it; Qt would give it to whatever comes next.
void switchRunAndStop(bool running, QPushButton *run, QPushButton *stop, QWidget *input);

/// Returns a read-only editor with the accessible name @p name.
QPlainTextEdit *createOutput(const QString &name);

/// Returns a font for JSON and for what tools return, in which all characters are equally wide.
QFont codeFont();

/// Shows the text of @p editor in codeFont(). A line that is too long is broken anywhere, as terminals do it:
/// what a tool returns may be a megabyte without a blank.
void showAsCode(QPlainTextEdit *editor);

/// Lets the last column of @p table take the width that is left, and at least @p minimum pixels.
void stretchLastColumn(QTableView *table, int minimum);

/// Returns a group box titled @p title that holds @p content.
QGroupBox *createTitledArea(const QString &title, QWidget *content);

/// Lays @p form, which keeps its width, and @p results out side by side on @p page.
void layOutPage(QWidget *page, QWidget *form, QWidget *results);

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
