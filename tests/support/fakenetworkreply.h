#ifndef QTAGENT_TESTS_FAKENETWORKREPLY_H
#define QTAGENT_TESTS_FAKENETWORKREPLY_H

#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>
#include <cstring>

/// An answer of status 200 that arrives when the test says so, without a network.
class FakeNetworkReply : public QNetworkReply
{
public:
    FakeNetworkReply()
    {
        setRequest(QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1/v1/chat/completions"))));
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, 200);
        setAttribute(QNetworkRequest::HttpReasonPhraseAttribute, QStringLiteral("OK"));
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

    void receive(const QByteArray &bytes)
    {
        m_bytes += bytes;
        Q_EMIT readyRead();
    }

    void end()
    {
        setFinished(true);
        Q_EMIT finished();
    }

    void abort() override {}

    qint64 bytesAvailable() const override { return m_bytes.size() + QNetworkReply::bytesAvailable(); }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        const auto length = std::min<qint64>(size, m_bytes.size());
        std::memcpy(data, m_bytes.constData(), size_t(length));
        m_bytes.remove(0, int(length));
        return length;
    }

private:
    QByteArray m_bytes;
};

#endif
