// Asks a question and prints the answer while it arrives: stream_reply "What is a valve?"
// The model is that of orvane.local.json or of the environment, else the offline mock model.

#include <qtagent/deepseekmodel.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/openaicompatiblemodel.h>

#include <QCoreApplication>

#include <cstdio>
#include <memory>

using namespace MireloQtLib::QtAgent;

static std::unique_ptr<ChatModel> modelFor(const QString &provider)
{
    if (provider == QLatin1String("openai"))
        return std::make_unique<OpenAICompatibleModel>();
    if (provider == QLatin1String("deepseek"))
        return std::make_unique<DeepSeekModel>();
    return std::make_unique<MockChatModel>();
}

static std::unique_ptr<ChatModel> configuredModel()
{
    const ModelProfiles loaded = loadModelProfiles();
    const ModelConfig config = loaded.profiles.at(loaded.currentIndex);
    std::unique_ptr<ChatModel> model = modelFor(config.provider);
    model->setConfig(config);
    return model;
}

static void print(const QString &text)
{
    std::fputs(qUtf8Printable(text), stdout);
    std::fflush(stdout);
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const std::unique_ptr<ChatModel> model = configuredModel();
    const QString question = QCoreApplication::arguments().value(1, QStringLiteral("What can you do?"));

    ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, &application);
    QObject::connect(reply, &ChatReply::deltaReceived, reply, &print);
    reply->whenEnded(&application, [](const ChatResult &result) {
        print(QStringLiteral("\n"));
        if (!result.error.isEmpty())
            qCritical("%s", qUtf8Printable(result.error));
        QCoreApplication::exit(result.end == ChatResult::End::Finished ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    return QCoreApplication::exec();
}
