#ifndef ORVANE_PAGEFORM_H
#define ORVANE_PAGEFORM_H

#include <QString>

QT_BEGIN_NAMESPACE
class QPlainTextEdit;
class QPushButton;
class QVBoxLayout;
class QWidget;
QT_END_NAMESPACE

// The inputs and buttons of a page.

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

#endif
