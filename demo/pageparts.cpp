#include "pageparts.h"

#include <qtagent/chatmodel.h>

#include <QApplication>
#include <QGroupBox>
#include <QHeaderView>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QTableView>
#include <QTextCursor>
#include <QTextOption>
#include <QVBoxLayout>

using MireloQtLib::QtAgent::ChatReply;

namespace {

constexpr int pageSpacing = 12;

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

QPlainTextEdit *createOutput(const QString &name)
{
    auto *output = new QPlainTextEdit;
    output->setReadOnly(true);
    output->setTabChangesFocus(true);
    output->setAccessibleName(name);
    return output;
}

QFont codeFont()
{
    QFont font = QApplication::font();
    font.setFamily(QStringLiteral("monospace"));
    font.setStyleHint(QFont::Monospace); // where no family has that name
    return font;
}

void showAsCode(QPlainTextEdit *editor)
{
    editor->setFont(codeFont());
    editor->setWordWrapMode(QTextOption::WrapAnywhere);
}

void stretchLastColumn(QTableView *table, int minimum)
{
    QHeaderView *header = table->horizontalHeader();
    header->setStretchLastSection(false);
    header->resizeSection(header->count() - 1, minimum);
    header->setStretchLastSection(true); // never below the width from which it begins
}

QGroupBox *createTitledArea(const QString &title, QWidget *content)
{
    auto *area = new QGroupBox(title);
    auto *layout = new QVBoxLayout(area);
    layout->addWidget(content);
    return area;
}

void layOutPage(QWidget *page, QWidget *form, QWidget *results)
{
    auto *layout = new QHBoxLayout(page);
    layout->setContentsMargins(pageMargin, pageMargin, pageMargin, pageMargin);
    layout->setSpacing(pageSpacing);
    layout->addWidget(form, 0);
    layout->addWidget(results, 1);
}

QString indentedJson(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson());
}

void appendText(QPlainTextEdit *output, const QString &text)
{
    output->moveCursor(QTextCursor::End);
    output->insertPlainText(text);
    output->ensureCursorVisible();
}

void deleteWhenOver(ChatReply *reply)
{
    QObject::connect(reply, &ChatReply::finished, reply, &QObject::deleteLater);
    QObject::connect(reply, &ChatReply::failed, reply, &QObject::deleteLater);
    QObject::connect(reply, &ChatReply::canceled, reply, &QObject::deleteLater);
}

void bindReply(ChatReply *reply, QPlainTextEdit *output, EarlierText earlierText)
{
    if (earlierText == EarlierText::Clear)
        output->clear();
    QObject::connect(reply, &ChatReply::deltaReceived, output,
                     [output](const QString &delta) { appendText(output, delta); });
    QObject::connect(reply, &ChatReply::failed, output, [output](const QString &error) {
        output->setPlainText(QStringLiteral("错误：%1").arg(error));
    });
    deleteWhenOver(reply);
}
