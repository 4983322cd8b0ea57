#include "replyrecorder.h"

namespace MireloQtLib {
namespace QtAgent {

ReplyRecorder::ReplyRecorder(ChatReply *reply, QObject *parent)
    : QObject(parent)
{
    if (!reply) {
        m_over = true;
        return;
    }
    m_over = !reply->isRunning();
    connect(reply, &ChatReply::deltaReceived, this,
            [this](const QString &delta) { add(QStringLiteral("delta: ") + delta); });
    connect(reply, &ChatReply::responseReceived, this, [this] { add(QStringLiteral("response")); });
    connect(reply, &ChatReply::finished, this,
            [this](const QString &text) { end(QStringLiteral("finished: ") + text); });
    connect(reply, &ChatReply::failed, this,
            [this](const QString &error) { end(QStringLiteral("failed: ") + error); });
    connect(reply, &ChatReply::canceled, this, [this] { end(QStringLiteral("canceled")); });
    connect(reply, &QObject::destroyed, this, [this] { end(QStringLiteral("deleted")); });
}

ReplyRecorder::~ReplyRecorder() = default;

QStringList ReplyRecorder::lines() const
{
    return m_lines;
}

bool ReplyRecorder::isOver() const
{
    return m_over;
}

void ReplyRecorder::add(const QString &line)
{
    m_lines.append(line);
}

void ReplyRecorder::end(const QString &line)
{
    add(line);
    if (m_over)
        return;
    m_over = true;
    Q_EMIT over();
}

} // namespace QtAgent
} // namespace MireloQtLib
