// Asks for an answer in JSON and prints the fields named: json_chain "valves" question answer
// A field that the answer lacks is an error: json_chain "valves" price

#include <qtagent/outputparsers.h>
#include <qtagent/runnablechain.h>

#include <QtCore>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

// Stands in for a model that answers in JSON and, like many, puts it into a code fence.
class JsonModel : public ChatModel
{
public:
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        const QJsonObject answer{{QStringLiteral("question"), messages.last().content},
                                 {QStringLiteral("answer"), QStringLiteral("Ask a real model.")}};
        const QByteArray text = "```json\n" + QJsonDocument(answer).toJson() + "```";
        auto *reply = new ChatReply(parent ? parent : this);
        QTimer::singleShot(0, reply, [reply, text] { reply->finish(QString::fromUtf8(text)); });
        return reply;
    }
};

static void fail(const QString &error)
{
    qCritical("%s", qUtf8Printable(error));
    QCoreApplication::exit(EXIT_FAILURE);
}

static void print(const QString &answer, const QStringList &fields)
{
    QString error;
    const QJsonObject object = JsonOutputParser(fields).parse(answer, &error);
    if (!error.isEmpty())
        return fail(error);
    for (const QString &field : fields)
        std::printf("%s: %s\n", qUtf8Printable(field), qUtf8Printable(object[field].toString()));
    QCoreApplication::quit();
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList fields = QCoreApplication::arguments().mid(2);
    JsonModel model;
    RunnableChain chain;
    chain.setPromptTemplate(QStringLiteral("Explain {topic} as a JSON object with the fields {fields}."));
    chain.setModel(&model);

    ChatReply *reply = chain.invoke({{QStringLiteral("topic"), QCoreApplication::arguments().value(1)},
                                     {QStringLiteral("fields"), fields.join(QLatin1String(", "))}});
    reply->whenEnded(&application, [=](const ChatResult &result) {
        result.end == ChatResult::End::Finished ? print(result.text, fields) : fail(result.error);
    });
    return QCoreApplication::exec();
}
