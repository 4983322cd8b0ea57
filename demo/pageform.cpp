#include "pageform.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>

namespace {

// A key that is held down presses the button once.
void addShortcut(const QKeySequence &keys, QWidget *scope, Qt::ShortcutContext context, QPushButton *button)
{
    auto *shortcut = new QShortcut(keys, scope);
    shortcut->setContext(context);
    shortcut->setAutoRepeat(false);
    QObject::connect(shortcut, &QShortcut::activated, button, [button] { button->click(); });
}

} // namespace

QPlainTextEdit *addInput(QVBoxLayout *layout, const QString &label, const QString &text,
                         const InputSize &minimum)
{
    auto *input = new QPlainTextEdit(text);
    input->setMinimumSize(minimum.width, minimum.height);
    input->setTabChangesFocus(true);
    auto *inputLabel = new QLabel(label);
    inputLabel->setBuddy(input);
    layout->addWidget(inputLabel, 0);
    layout->addWidget(input, 1);
    return input;
}

QPushButton *addButton(QVBoxLayout *layout, const QString &text, const QString &objectName)
{
    auto *button = new QPushButton(text);
    button->setObjectName(objectName);
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter})
        addShortcut(key, button, Qt::WidgetShortcut, button);
    layout->addWidget(button, 0);
    return button;
}

void pressByCtrlReturn(QPushButton *button, QWidget *page)
{
    button->setToolTip(QStringLiteral("Ctrl+Return"));
    for (const QString &keys : {QStringLiteral("Ctrl+Return"), QStringLiteral("Ctrl+Enter")})
        addShortcut(QKeySequence::fromString(keys), page, Qt::WidgetWithChildrenShortcut, button);
}

void switchRunAndStop(bool running, QPushButton *run, QPushButton *stop, QWidget *input)
{
    const QPushButton *disabled = running ? run : stop;
    if (disabled->window()->focusWidget() == disabled)
        input->setFocus();
    run->setEnabled(!running);
    stop->setEnabled(running);
}
