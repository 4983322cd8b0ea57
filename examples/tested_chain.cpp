// A test of a chain that needs no network and no key: a script says what the model answers, and the test sees
// what the model is asked, and what the program makes of the answer. CTest runs it.

#include <qtagent/outputparsers.h>
#include <qtagent/runnablechain.h>
#include <qtagent/testing/scriptedmodel.h>

#include <QCoreApplication>
#include <QJsonObject>

using namespace MireloQtLib::QtAgent;

// What is tested: a chain that asks for JSON.
static ChatReply *askForSettings(RunnableChain *chain, ChatModel *model, const QString &device)
{
    chain->setModel(model);
    chain->setSystemPrompt(QStringLiteral("Answer with a JSON object only."));
    chain->setPromptTemplate(QStringLiteral("Suggest the field pressure for {device}."));
    return chain->invoke({{QStringLiteral("device"), device}});
}

static QString fault(const ScriptedModel &model, const ChatResult &result)
{
    const QVector<ChatMessage> expected{
        ChatMessage::system(QStringLiteral("Answer with a JSON object only.")),
        ChatMessage::user(QStringLiteral("Suggest the field pressure for Pump-001."))};
    if (model.requests().size() != 1 || model.requests().first().messages != expected)
        return QStringLiteral("The model was asked something else.");
    QString error;
    const QJsonObject settings = JsonOutputParser({QStringLiteral("pressure")}).parse(result.text, &error);
    if (error.isEmpty() && settings[QLatin1String("pressure")].toInt() != 6)
        return QStringLiteral("Another pressure was read.");
    return error;
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    ScriptedModel model;
    model.addText({QStringLiteral("```json\n{\"pressure"), QStringLiteral("\": 6}\n```")});
    RunnableChain chain;
    ChatReply *reply = askForSettings(&chain, &model, QStringLiteral("Pump-001"));
    reply->whenEnded(&chain, [&model](const ChatResult &result) {
        const QString text = fault(model, result);
        if (!text.isEmpty())
            qCritical("%s", qUtf8Printable(text));
        QCoreApplication::exit(text.isEmpty() ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    return QCoreApplication::exec();
}
