// A chat model of one's own: its server answers with a line of JSON for each piece, {"text": "..."}.
// Prints the answer to a question: custom_model http://127.0.0.1:8080/chat "What is a valve?"

#include <qtagent/chatmodel.h>

#include <QtNetwork>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

class LineModel : public ChatModel
{
    QNetworkAccessManager m_network;

public:
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        QJsonArray body;
        for (const ChatMessage &message : messages)
            body.append(messageToJson(message));
        QNetworkRequest request(QUrl(config().baseUrl));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        QNetworkReply *lines = m_network.post(request, QJsonDocument(body).toJson());
        auto *reply = new ChatReply(parent ? parent : this);
        const auto read = [lines, reply] {
            QString delta;
            while (lines->canReadLine())
                delta += QJsonDocument::fromJson(lines->readLine())[QLatin1String("text")].toString();
            reply->appendDelta(delta);
        };
        const auto end = [lines, reply] {
            lines->deleteLater();
            lines->error() ? reply->fail(lines->errorString()) : reply->finish(reply->text());
        };
        // Queued, and what emits comes last: a slot may delete the reply, or the model and its lines.
        connect(lines, &QNetworkReply::readyRead, lines, read, Qt::QueuedConnection);
        connect(lines, &QNetworkReply::finished, lines, end, Qt::QueuedConnection);
        connect(reply, &ChatReply::canceled, lines, &QNetworkReply::abort);
        connect(reply, &QObject::destroyed, lines, [lines] { delete lines; });
        return reply;
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    LineModel model;
    model.setConfig(modelConfigFromJson({{QStringLiteral("baseUrl"), arguments.value(1)}}));
    ChatReply *reply = model.chat({ChatMessage::user(arguments.value(2))}, {}, &model);
    reply->whenEnded(&application, [](const ChatResult &result) {
        const bool isFinished = result.end == ChatResult::End::Finished; // else failed, canceled or deleted
        const QString message = isFinished ? result.text : result.error;
        std::fprintf(isFinished ? stdout : stderr, "%s\n", qUtf8Printable(message));
        QCoreApplication::exit(isFinished ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    return QCoreApplication::exec();
}
