#include "recordingmodel.h"

#include "recording_p.h"

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/retryingmodel.h>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A shorter one is a placeholder for a service that needs no key, and a word of many texts.
constexpr int shortestSecret = 8;

// What a profile says of a service that nobody else may know.
class Secrets
{
public:
    // Also of the models that this one asks.
    void add(const ChatModel *model)
    {
        for (; model; model = askedBy(model)) {
            add(model->config());
            if (const auto *client = qobject_cast<const OpenAICompatibleModel *>(model))
                add(client->requestOptions());
        }
    }

    void add(const ModelConfig &config)
    {
        const QUrl url(config.baseUrl.trimmed());
        add(config.apiKey.trimmed());
        add(asSent(config.apiKey));
        add(config.baseUrl.trimmed());
        add(url.authority());
        if (!url.host().isEmpty())
            m_hosts.append(url.host());
    }

    QString hide(QString text) const
    {
        for (const QString &secret : m_texts)
            text.replace(secret, hiddenText());
        return text;
    }

    QJsonValue hide(const QJsonValue &value) const
    {
        if (value.isString())
            return hide(value.toString());
        if (value.isArray())
            return hide(value.toArray());
        return value.isObject() ? QJsonValue(hide(value.toObject())) : value;
    }

    QJsonObject hide(const QJsonObject &object) const
    {
        QJsonObject hidden;
        for (auto member = object.begin(); member != object.end(); ++member)
            hidden.insert(hide(member.key()), hide(member.value()));
        return hidden;
    }

    // Qt writes addresses in other ways than profiles, and names hosts without one.
    QString hideInReport(QString report) const
    {
        static const QRegularExpression address(
            QStringLiteral(R"((?<![A-Za-z0-9+.-])[A-Za-z0-9+.-]++://[^\s"'<>]*)"));
        report = hide(report.replace(address, hiddenText()));
        for (const QString &host : m_hosts)
            report.replace(host, hiddenText(), Qt::CaseInsensitive);
        return report;
    }

private:
    static const ChatModel *askedBy(const ChatModel *model)
    {
        const auto *retrying = qobject_cast<const RetryingModel *>(model);
        return retrying ? retrying->model() : nullptr;
    }

    void add(const RequestOptions &options)
    {
        for (const QByteArray &value : options.headers)
            add(QString::fromUtf8(value));
    }

    // A header has no line breaks, and is told without blanks around it.
    static QString asSent(QString apiKey)
    {
        return apiKey.remove(QLatin1Char('\r')).remove(QLatin1Char('\n')).trimmed();
    }

    void add(const QString &text)
    {
        if (text.size() < shortestSecret || m_texts.contains(text))
            return;
        // Longer ones first: one may be the beginning of another.
        const auto isShorter = [&text](const QString &other) { return other.size() < text.size(); };
        m_texts.insert(std::find_if(m_texts.begin(), m_texts.end(), isShorter), text);
    }

    QJsonArray hide(const QJsonArray &array) const
    {
        QJsonArray hidden;
        for (const QJsonValue &value : array)
            hidden.append(hide(value));
        return hidden;
    }

    QStringList m_texts;
    QStringList m_hosts;
};

// Writes down what a reply emits, until its end.
class ReplyLog
{
public:
    ReplyLog(const QJsonObject &request, const Secrets &secrets, std::shared_ptr<RecordingFile> file)
        : m_secrets(secrets)
        , m_file(std::move(file))
    {
        m_recorded.request = secrets.hide(request);
        m_clock.start();
    }

    // Half a character, which models can end a piece in, cannot be written. It goes with the next piece.
    void addDelta(QString delta)
    {
        delta.prepend(m_half);
        m_half = delta.right(!delta.isEmpty() && delta.at(delta.size() - 1).isHighSurrogate() ? 1 : 0);
        delta.chop(m_half.size());
        add(QStringLiteral("delta"), delta);
    }

    void add(const QString &name, const QJsonValue &value)
    {
        if (m_file)
            m_recorded.signalsInOrder.append({m_clock.elapsed(), name, m_secrets.hide(value)});
    }

    void fail(const QString &report) { end(QStringLiteral("failed"), m_secrets.hideInReport(report)); }

    void end(const QString &name, const QJsonValue &value = QJsonValue::Undefined)
    {
        add(name, value);
        if (m_file)
            m_file->append(m_recorded);
        m_file.reset();
    }

private:
    const Secrets m_secrets;
    std::shared_ptr<RecordingFile> m_file; // null behind the end
    RecordedReply m_recorded;
    QString m_half;
    QElapsedTimer m_clock;
};

// The log lives as long as the reply.
void follow(ChatReply *reply, const std::shared_ptr<ReplyLog> &log)
{
    QObject::connect(reply, &ChatReply::deltaReceived, reply,
                     [log](const QString &delta) { log->addDelta(delta); });
    QObject::connect(reply, &ChatReply::responseReceived, reply,
                     [log](const QJsonObject &response) { log->add(QStringLiteral("response"), response); });
    QObject::connect(reply, &ChatReply::finished, reply,
                     [log](const QString &text) { log->end(QStringLiteral("finished"), text); });
    QObject::connect(reply, &ChatReply::failed, reply, [log](const QString &error) { log->fail(error); });
    QObject::connect(reply, &ChatReply::canceled, reply, [log] { log->end(QStringLiteral("canceled")); });
    QObject::connect(reply, &QObject::destroyed, reply, [log] { log->end(QStringLiteral("deleted")); });
}

} // namespace

RecordingModel::RecordingModel(ChatModel *model, const QString &path, QObject *parent)
    : ChatModel(parent)
    , m_model(model)
    , m_file(std::make_shared<RecordingFile>(path))
{}

RecordingModel::~RecordingModel() = default;

QString RecordingModel::error() const
{
    return m_file->error();
}

ChatReply *RecordingModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                                QObject *parent)
{
    QObject *owner = parent ? parent : this;
    if (!m_model)
        return ChatReply::failLater(QStringLiteral("There is no model to record."), owner);
    const std::shared_ptr<RecordingFile> file = m_file;
    const QPointer<ChatModel> model = m_model;
    const QJsonObject request = requestObject(messages, tools);
    Secrets secrets;
    secrets.add(config());
    secrets.add(model);
    ChatReply *reply = model->chat(messages, tools, owner);
    secrets.add(model); // one that fills its profile does so there
    if (reply)
        follow(reply, std::make_shared<ReplyLog>(request, secrets, file));
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
