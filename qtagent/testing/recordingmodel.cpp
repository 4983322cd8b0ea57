#include "recordingmodel.h"

#include "recording_p.h"

#include <qtagent/openaicompatiblemodel.h>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A shorter one is a placeholder for a service that needs no key, and a word of many texts.
constexpr int shortestSecret = 8;

const QString &hiddenText()
{
    static const QString text = QStringLiteral("[hidden]");
    return text;
}

// What a profile says of a service that nobody else may know.
class Secrets
{
public:
    void add(const ModelConfig &config)
    {
        const QUrl url(config.baseUrl.trimmed());
        add(config.apiKey.trimmed());
        add(config.baseUrl.trimmed());
        add(url.authority());
        if (!url.host().isEmpty())
            m_hosts.append(url.host());
    }

    void add(const RequestOptions &options)
    {
        for (const QByteArray &value : options.headers)
            add(QString::fromUtf8(value));
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
        static const QRegularExpression address(QStringLiteral(R"([A-Za-z][A-Za-z0-9+.-]*://[^\s"'<>]*)"));
        report = hide(report.replace(address, hiddenText()));
        for (const QString &host : m_hosts)
            report.replace(host, hiddenText(), Qt::CaseInsensitive);
        return report;
    }

private:
    void add(const QString &text)
    {
        if (text.size() >= shortestSecret)
            m_texts.append(text);
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
    QElapsedTimer m_clock;
};

// The log lives as long as the reply.
void follow(ChatReply *reply, const std::shared_ptr<ReplyLog> &log)
{
    QObject::connect(reply, &ChatReply::deltaReceived, reply,
                     [log](const QString &delta) { log->add(QStringLiteral("delta"), delta); });
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
    Secrets secrets;
    secrets.add(m_model->config());
    secrets.add(config());
    if (const auto *model = qobject_cast<OpenAICompatibleModel *>(m_model))
        secrets.add(model->requestOptions());
    const auto log = std::make_shared<ReplyLog>(requestObject(messages, tools), secrets, m_file);
    ChatReply *reply = m_model->chat(messages, tools, owner);
    if (reply)
        follow(reply, log);
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
