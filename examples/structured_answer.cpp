// Asks the configured service for an answer that follows a JSON schema, and prints it:
// structured_answer "Where do valves leak?"

#include <qtagent/modelprofiles.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/outputparsers.h>

#include <QtCore>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

static const QStringList fields{QStringLiteral("part"), QStringLiteral("cause"), QStringLiteral("action")};

static QJsonObject schema()
{
    QJsonObject properties;
    for (const QString &field : fields)
        properties.insert(field, QJsonObject{{QStringLiteral("type"), QStringLiteral("string")}});
    return {{QStringLiteral("type"), QStringLiteral("object")},
            {QStringLiteral("properties"), properties},
            {QStringLiteral("required"), QJsonArray::fromStringList(fields)},
            {QStringLiteral("additionalProperties"), false}};
}

static RequestOptions structuredOptions()
{
    const QJsonObject format{{QStringLiteral("name"), QStringLiteral("fault")},
                             {QStringLiteral("strict"), true},
                             {QStringLiteral("schema"), schema()}};
    RequestOptions options;
    options.extra = {{QStringLiteral("response_format"),
                      QJsonObject{{QStringLiteral("type"), QStringLiteral("json_schema")},
                                  {QStringLiteral("json_schema"), format}}}};
    options.readThinkTags = true;
    return options;
}

static int fail(const QString &error)
{
    qCritical("%s", qUtf8Printable(error));
    return EXIT_FAILURE;
}

// A service that does not know schemas may still answer in JSON, with other fields.
static int print(const CompletionReply &reply)
{
    QString error;
    const QJsonObject object = JsonOutputParser(fields).parse(reply.text(), &error);
    if (!reply.refusal().isEmpty())
        return fail(QStringLiteral("Refused: %1").arg(reply.refusal()));
    if (reply.finishReason() == QLatin1String("length"))
        return fail(QStringLiteral("The answer was cut: raise maxTokens."));
    if (!error.isEmpty())
        return fail(error);
    for (const QString &field : fields)
        std::printf("%s: %s\n", qUtf8Printable(field), qUtf8Printable(object[field].toString()));
    return EXIT_SUCCESS;
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const ModelProfiles profiles = loadModelProfiles();
    const ModelConfig profile = profiles.profiles.at(profiles.currentIndex);
    if (profile.provider == QLatin1String("mock"))
        return fail(QStringLiteral("No service is configured."));
    OpenAICompatibleModel model;
    model.setConfig(profile);
    model.setRequestOptions(structuredOptions());

    const QString question = QCoreApplication::arguments().value(1);
    auto *reply = qobject_cast<CompletionReply *>(model.chat(
        {ChatMessage::system(QStringLiteral("Answer with a JSON object only: part, cause, action.")),
         ChatMessage::user(question)},
        {}, &model));
    reply->whenEnded(reply, [reply](const ChatResult &result) {
        const bool isAnswer = result.end == ChatResult::End::Finished;
        QCoreApplication::exit(isAnswer ? print(*reply) : fail(result.error));
    });
    return QCoreApplication::exec();
}
