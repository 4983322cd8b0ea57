#include "pageoutput.h"

#include <qtagent/chatmodel.h>

#include <QApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPlainTextEdit>
#include <QTextCursor>
#include <QTextOption>

using MireloQtLib::QtAgent::ChatReply;

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
