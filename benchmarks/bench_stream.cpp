// What the client costs, beside a plain reader on QNetworkReply that keeps the whole body, the text and, for
// a plain answer, the parsed object. The client keeps the same, except for what it has read of a stream.
//
// Every measurement runs in a fresh process and asks a server in another one, so that CPU time and peak
// memory are the reader's own. Each iteration measures a pair; the columns are medians over the pairs:
//   cpu     the client's CPU time by the plain reader's   (goal: at most 1.25)
//   memory  likewise the growth of the peak memory        (goal: at most 1.15)
//   rate    events per second at 200,000 events by those at 20,000, both by the client (goal: at least 0.7)
//   wall    likewise the time on the clock
// Fifty requests in a row show what a kept-alive connection costs: the plain reader keeps its connection, and
// the client asks for a new one each time, which a server may ignore (goal: no more than where the server
// obeys). A tool call in 200,000 pieces costs no more for each than one in 20,000, and so does reasoning that
// comes through a RetryingModel (goal: a rate of at least 0.7).
// In a round with tools the service stamps its first text and goes on with a call a while later:
//   delay   milliseconds from the stamp to the signal, median (goal: at most 5)

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/retryingmodel.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

using namespace MireloQtLib::QtAgent;

namespace {

struct Workload
{
    bool stream = true;
    int requests = 1;
    bool tools = false;
    bool retried = false;
};

// All processes of a machine read the same clock.
qint64 nanoseconds()
{
    using namespace std::chrono;
    return duration_cast<std::chrono::nanoseconds>(steady_clock::now().time_since_epoch()).count();
}

QByteArray event(const QString &content, const QString &key = "content")
{
    const QJsonObject choice{{"index", 0}, {"delta", QJsonObject{{key, content}}}, {"finish_reason", {}}};
    const QJsonObject chunk{{"id", "chatcmpl-B9MBs8CjcvOU2jLn4n570S5qMJKcT"},
                            {"object", "chat.completion.chunk"},
                            {"created", 1741569952},
                            {"model", "gpt-4.1-mini-2025-04-14"},
                            {"system_fingerprint", "fp_44709d6fcb"},
                            {"choices", QJsonArray{choice}}};
    return "data: " + QJsonDocument(chunk).toJson(QJsonDocument::Compact) + "\n\n";
}

QByteArray wholeAnswer(int size)
{
    const QJsonObject message{{"role", "assistant"}, {"content", QString(size, 'x')}};
    return QJsonDocument(QJsonObject{{"choices", QJsonArray{QJsonObject{{"message", message}}}}})
        .toJson(QJsonDocument::Compact);
}

// One call whose arguments come in many pieces.
QByteArray callPieces(int count)
{
    const auto piece = [](const QJsonObject &call) {
        const QJsonObject choice{{"index", 0}, {"delta", QJsonObject{{"tool_calls", QJsonArray{call}}}}};
        return "data: "
             + QJsonDocument(QJsonObject{{"choices", QJsonArray{choice}}}).toJson(QJsonDocument::Compact)
             + "\n\n";
    };
    const auto arguments = [&piece](const QString &text) {
        return piece({{"index", 0}, {"function", QJsonObject{{"arguments", text}}}});
    };
    return piece({{"index", 0}, {"id", "c"}, {"function", QJsonObject{{"name", "write"}}}})
         + arguments("{\"text\":\"") + arguments("some words ").repeated(count) + arguments("\"}")
         + "data: [DONE]\n\n";
}

// A workload is named by its number of events, of pieces of a call or by one of some words.
Workload workload(const QString &name)
{
    if (name == "short" || name == "kept")
        return {false, 50};
    return {name != "plain", 1, name.startsWith("call") || name == "round", name.startsWith("think")};
}

QByteArray answerBody(const QString &name)
{
    constexpr int megabyte = 1024 * 1024;
    if (name == "line")
        return event(QString(16 * megabyte, 'x'));
    if (name == "plain")
        return wholeAnswer(64 * megabyte);
    if (name == "short" || name == "kept")
        return wholeAnswer(20);
    if (name.startsWith("call"))
        return callPieces(name.mid(4).toInt());
    if (name.startsWith("think"))
        return event("word ", "reasoning_content").repeated(name.mid(5).toInt()) + event("done")
             + "data: [DONE]\n\n";
    return event("word ").repeated(name.toInt()) + "data: [DONE]\n\n";
}

// The server: answers every request with the workload's body until it is killed.

void writeAll(QTcpSocket *socket, const QByteArray &bytes)
{
    constexpr int portion = 64 * 1024;
    for (int offset = 0; offset < bytes.size(); offset += portion) {
        socket->write(bytes.constData() + offset, std::min<qint64>(portion, bytes.size() - offset));
        while (socket->bytesToWrite() > 0) {
            if (!socket->waitForBytesWritten(-1))
                return;
        }
    }
}

bool isWholeRequest(const QByteArray &bytes)
{
    return bytes.contains("\r\n\r\n{") && bytes.endsWith('}');
}

void answerConnection(QTcpSocket *socket, const QByteArray &answer, bool closes)
{
    QByteArray request;
    while (socket->waitForReadyRead(-1)) {
        request += socket->readAll();
        if (!isWholeRequest(request))
            continue;
        writeAll(socket, answer);
        if (closes && request.contains("Connection: close")) {
            socket->disconnectFromHost();
            return;
        }
        request.clear();
    }
}

// The text of a round, and later its call.
void answerRound(QTcpSocket *socket)
{
    constexpr int silenceMs = 100;
    QByteArray request;
    while (!isWholeRequest(request) && socket->waitForReadyRead(-1))
        request += socket->readAll();
    writeAll(socket, "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n");
    QThread::msleep(silenceMs);
    writeAll(socket, event(QString::number(nanoseconds())));
    QThread::msleep(silenceMs);
    writeAll(socket, callPieces(1));
    socket->disconnectFromHost();
}

int serve(const QString &name)
{
    const QByteArray body = answerBody(name);
    const QByteArray length = QByteArray::number(body.size());
    const QByteArray answer = "HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body;
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost))
        return 1;
    std::printf("%d\n", int(server.serverPort()));
    std::fflush(stdout);
    while (server.waitForNewConnection(-1)) {
        const std::unique_ptr<QTcpSocket> socket(server.nextPendingConnection());
        if (name == "round")
            answerRound(socket.get());
        else
            answerConnection(socket.get(), answer, name != "kept");
    }
    return 0;
}

// The two readers. Each calls `done` with the text when an answer is complete.

using Done = std::function<void(const QString &text)>;

class Reader
{
public:
    virtual ~Reader() = default;
    virtual void ask(const Done &done) = 0;

    // Seconds from the stamp of the first text to its signal, or less than 0.
    double delay = -1;
};

class Client : public Reader
{
public:
    Client(const QString &baseUrl, const Workload &work)
    {
        ModelConfig config;
        config.baseUrl = baseUrl;
        config.model = "m";
        config.stream = work.stream;
        m_model.setConfig(config);
        if (work.tools)
            streamToolCalls();
        if (work.retried)
            m_asked = &m_retrying;
    }

    void ask(const Done &done) override
    {
        ChatReply *reply = m_asked->chat({ChatMessage::user("Hi")}, m_tools, nullptr);
        QObject::connect(reply, &ChatReply::deltaReceived, reply, [this](const QString &text) {
            if (m_deltas++ == 0)
                delay = double(nanoseconds() - text.toLongLong()) * 1e-9;
        });
        QObject::connect(reply, &ChatReply::finished, reply, [this, reply, done](const QString &text) {
            done(m_tools.isEmpty() ? text : argumentsOf(*reply));
        });
        QObject::connect(reply, &ChatReply::failed, reply,
                         [](const QString &error) { qFatal("%s", qPrintable(error)); });
    }

private:
    void streamToolCalls()
    {
        RequestOptions options;
        options.streamToolCalls = true;
        m_model.setRequestOptions(options);
        m_tools = {{"write", "Writes.", {{"type", "object"}}, ToolPermission::ReadOnly}};
    }

    static QString argumentsOf(const ChatReply &reply)
    {
        return reply.toolCalls().at(0).toObject()["function"].toObject()["arguments"].toString();
    }

    OpenAICompatibleModel m_model;
    RetryingModel m_retrying{&m_model};
    ChatModel *m_asked = &m_model;
    QVector<ToolDefinition> m_tools;
    int m_deltas = 0;
};

class PlainReader : public Reader
{
public:
    PlainReader(const QString &baseUrl, bool stream)
        : m_request(QUrl(baseUrl + "/chat/completions"))
        , m_stream(stream)
    {
        m_request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    }

    void ask(const Done &done) override
    {
        m_reply = m_network.post(m_request, QByteArrayLiteral("{}"));
        if (m_stream)
            QObject::connect(m_reply, &QNetworkReply::readyRead, &m_network, [this] { readEvents(); });
        QObject::connect(m_reply, &QNetworkReply::finished, &m_network, [this, done] {
            m_stream ? readEvents() : readObject();
            m_reply->deleteLater();
            done(m_text);
        });
    }

private:
    void readEvents()
    {
        m_body += m_reply->readAll();
        for (int end = m_body.indexOf('\n', m_offset); end >= 0; end = m_body.indexOf('\n', m_offset)) {
            const QByteArray line = QByteArray::fromRawData(m_body.constData() + m_offset, end - m_offset);
            m_offset = end + 1;
            if (!line.startsWith("data: "))
                continue;
            const QByteArray data = QByteArray::fromRawData(line.constData() + 6, line.size() - 6);
            const QJsonObject chunk = QJsonDocument::fromJson(data).object();
            m_text += chunk["choices"].toArray().at(0).toObject()["delta"].toObject()["content"].toString();
        }
    }

    void readObject()
    {
        m_body = m_reply->readAll();
        m_object = QJsonDocument::fromJson(m_body).object();
        m_text = m_object["choices"].toArray().at(0).toObject()["message"].toObject()["content"].toString();
    }

    QNetworkAccessManager m_network;
    QNetworkRequest m_request;
    QNetworkReply *m_reply = nullptr;
    bool m_stream;
    QByteArray m_body;
    int m_offset = 0;
    QString m_text;
    QJsonObject m_object;
};

// One measurement, in a process of its own. It prints CPU seconds, wall seconds, kilobytes, the number of
// characters and the delay of the first text.

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &time) {
        return double(time.tv_sec) + double(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

long peakKilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int measure(const QString &kind, const QString &baseUrl, const Workload &work)
{
    const std::unique_ptr<Reader> reader = [&]() -> std::unique_ptr<Reader> {
        if (kind == "client")
            return std::make_unique<Client>(baseUrl, work);
        return std::make_unique<PlainReader>(baseUrl, work.stream);
    }();
    int open = work.requests;
    qint64 characters = 0;
    Done done = [&](const QString &text) {
        characters = text.size();
        if (--open == 0)
            QCoreApplication::quit();
        else
            reader->ask(done);
    };
    const double cpuBefore = cpuSeconds();
    const long peakBefore = peakKilobytes();
    QElapsedTimer wall;
    wall.start();
    reader->ask(done);
    QCoreApplication::exec();
    std::printf("%f %f %ld %lld %f\n", cpuSeconds() - cpuBefore, double(wall.nsecsElapsed()) * 1e-9,
                peakKilobytes() - peakBefore, static_cast<long long>(characters), reader->delay);
    return 0;
}

// The parent's side.

struct Measurement
{
    double cpu = 0;
    double wall = 0;
    double memory = 0;
    double characters = 0;
    double delay = 0;
};

class ServerProcess
{
public:
    explicit ServerProcess(const QString &name)
        : m_name(name)
    {
        m_process.start(QCoreApplication::applicationFilePath(), {"--serve", name});
        m_process.waitForReadyRead(-1);
        m_baseUrl = "http://127.0.0.1:" + QString::fromLatin1(m_process.readLine().trimmed());
    }

    ~ServerProcess()
    {
        m_process.kill();
        m_process.waitForFinished(-1);
    }

    Measurement measure(const QString &kind) const
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QCoreApplication::applicationFilePath(), {"--measure", kind, m_name, m_baseUrl});
        process.waitForFinished(-1);
        const QList<QByteArray> numbers = process.readAll().trimmed().split(' ');
        if (numbers.size() != 5)
            qFatal("A measurement failed.");
        return {numbers[0].toDouble(), numbers[1].toDouble(), numbers[2].toDouble(), numbers[3].toDouble(),
                numbers[4].toDouble()};
    }

private:
    QString m_name;
    QString m_baseUrl;
    QProcess m_process;
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

void besideThePlainReader(benchmark::State &state, const QString &name)
{
    const ServerProcess server(name);
    std::vector<double> cpu;
    std::vector<double> memory;
    std::vector<double> wall;
    for ([[maybe_unused]] auto iteration : state) {
        const Measurement plain = server.measure("plain");
        const Measurement client = server.measure("client");
        if (client.characters != plain.characters)
            state.SkipWithError("The two readers read different texts.");
        cpu.push_back(client.cpu / plain.cpu);
        memory.push_back(client.memory / plain.memory);
        wall.push_back(client.wall / plain.wall);
        state.SetIterationTime(client.wall);
    }
    state.counters["cpu"] = median(cpu);
    state.counters["memory"] = median(memory);
    state.counters["wall"] = median(wall);
}

void requestsInARow(benchmark::State &state)
{
    const ServerProcess server("short");
    std::vector<double> wall;
    for ([[maybe_unused]] auto iteration : state) {
        const Measurement plain = server.measure("plain");
        const Measurement client = server.measure("client");
        wall.push_back(client.wall / plain.wall);
        state.SetIterationTime(client.wall);
    }
    state.counters["wall"] = median(wall);
}

// Whether the server keeps connections that were to be closed makes no difference.
void requestsBesideKeptConnections(benchmark::State &state)
{
    const ServerProcess closing("short");
    const ServerProcess keeping("kept");
    std::vector<double> wall;
    for ([[maybe_unused]] auto iteration : state) {
        const Measurement closed = closing.measure("client");
        const Measurement kept = keeping.measure("client");
        wall.push_back(kept.wall / closed.wall);
        state.SetIterationTime(kept.wall);
    }
    state.counters["wall"] = median(wall);
}

void rateOfMany(benchmark::State &state, const QString &prefix)
{
    const ServerProcess few(prefix + "20000");
    const ServerProcess many(prefix + "200000");
    std::vector<double> rate;
    for ([[maybe_unused]] auto iteration : state) {
        const double fewWall = few.measure("client").wall;
        const double manyWall = many.measure("client").wall;
        rate.push_back((200000 / manyWall) / (20000 / fewWall));
        state.SetIterationTime(manyWall);
    }
    state.counters["rate"] = median(rate);
}

void firstTextOfARound(benchmark::State &state)
{
    const ServerProcess server("round");
    std::vector<double> delay;
    for ([[maybe_unused]] auto iteration : state) {
        delay.push_back(server.measure("client").delay * 1000);
        state.SetIterationTime(delay.back() / 1000);
    }
    state.counters["delay"] = median(delay);
}

void addBenchmark(const char *title, int pairs, const std::function<void(benchmark::State &)> &function)
{
    benchmark::RegisterBenchmark(title, function)
        ->UseManualTime()
        ->Iterations(pairs)
        ->Unit(benchmark::kMillisecond);
}

void addBenchmarks()
{
    const auto beside = [](const char *name) {
        return [name](benchmark::State &state) { besideThePlainReader(state, name); };
    };
    addBenchmark("stream of 20,000 events", 11, beside("20000"));
    addBenchmark("stream of 200,000 events", 7, beside("200000"));
    addBenchmark("one line of 16 MB", 7, beside("line"));
    addBenchmark("plain answer of 64 MB", 7, beside("plain"));
    addBenchmark("fifty requests in a row", 3, requestsInARow);
    addBenchmark("fifty requests, connections kept by closed", 3, requestsBesideKeptConnections);
    addBenchmark("events per second, 200,000 by 20,000", 7,
                 [](benchmark::State &state) { rateOfMany(state, QString()); });
    addBenchmark("pieces of a call per second, 200,000 by 20,000", 7,
                 [](benchmark::State &state) { rateOfMany(state, "call"); });
    addBenchmark("reasoning asked for again, 200,000 by 20,000", 7,
                 [](benchmark::State &state) { rateOfMany(state, "think"); });
    addBenchmark("first text of a round with tools", 31, firstTextOfARound);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--serve")
        return serve(arguments.value(2));
    if (arguments.value(1) == "--measure")
        return measure(arguments.value(2), arguments.value(4), workload(arguments.value(3)));
    addBenchmarks();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
