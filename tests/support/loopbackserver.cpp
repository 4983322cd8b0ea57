#include "loopbackserver.h"

#include <QJsonDocument>

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

// More than any test has in flight: a held answer occupies a thread.
constexpr int threadCount = 24;

LoopbackRequest recorded(const httplib::Request &request)
{
    LoopbackRequest record;
    record.method = QByteArray::fromStdString(request.method);
    record.path = QByteArray::fromStdString(request.target);
    for (const auto &header : request.headers) {
        QByteArray &value = record.headers[QByteArray::fromStdString(header.first).toLower()];
        value += (value.isEmpty() ? "" : ", ") + QByteArray::fromStdString(header.second);
    }
    record.body = QByteArray::fromStdString(request.body);
    record.json = QJsonDocument::fromJson(record.body).object();
    return record;
}

} // namespace

LoopbackAnswer LoopbackAnswer::json(const QJsonObject &object)
{
    return withStatus(200, QJsonDocument(object).toJson(QJsonDocument::Compact));
}

LoopbackAnswer LoopbackAnswer::stream(const QVector<QByteArray> &pieces)
{
    LoopbackAnswer answer;
    answer.contentType = "text/event-stream";
    answer.pieces = pieces;
    return answer;
}

LoopbackAnswer LoopbackAnswer::withStatus(int status, const QByteArray &body, const QByteArray &contentType)
{
    LoopbackAnswer answer;
    answer.status = status;
    answer.contentType = contentType;
    answer.pieces = {body};
    return answer;
}

LoopbackAnswer LoopbackAnswer::held(int sentPieces) const
{
    LoopbackAnswer answer = *this;
    answer.heldAfter = sentPieces;
    return answer;
}

class LoopbackServer::Private
{
public:
    Private();
    ~Private();

    void answer(const httplib::Request &request, httplib::Response &response);
    LoopbackAnswer answerTo(const LoopbackRequest &request, int *turn);
    bool write(const LoopbackAnswer &answer, int turn, httplib::DataSink &sink);
    void waitForRelease(int turn);

    httplib::Server server;
    int port = 0;
    std::thread thread;
    mutable std::mutex mutex;
    std::condition_variable releasedCondition;
    bool released = false;
    int heldAnswers = 0;
    int releasedAnswers = 0;
    Handler handler;
    QVector<LoopbackAnswer> queue;
    QVector<LoopbackRequest> requests;
    std::atomic<qint64> bytesSent = 0;
};

LoopbackServer::Private::Private()
{
    const auto handle = [this](const httplib::Request &request, httplib::Response &response) {
        answer(request, response);
    };
    server.Get(".*", handle);
    server.Post(".*", handle);
    server.Delete(".*", handle);
    server.new_task_queue = [] { return new httplib::ThreadPool(threadCount); };
    // A kept connection would occupy a thread, and hold up the end of a test.
    server.set_keep_alive_max_count(1);
    port = server.bind_to_any_port("127.0.0.1");
    if (port <= 0)
        qFatal("The loopback server found no free port.");
    thread = std::thread([this] { server.listen_after_bind(); });
    while (!server.is_running())
        std::this_thread::yield();
}

LoopbackServer::Private::~Private()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        released = true;
    }
    releasedCondition.notify_all();
    server.stop();
    thread.join();
}

void LoopbackServer::Private::answer(const httplib::Request &request, httplib::Response &response)
{
    int turn = 0; // among those that are held
    const LoopbackAnswer answer = answerTo(recorded(request), &turn);
    if (answer.heldAfter == 0)
        waitForRelease(turn);
    response.status = answer.status;
    for (auto header = answer.headers.begin(); header != answer.headers.end(); ++header)
        response.set_header(header.key().constData(), header.value().toStdString());
    const std::string contentType = answer.contentType.toStdString();
    if (answer.pieces.size() == 1 && answer.heldAfter <= 0) {
        response.set_content(answer.pieces.first().toStdString(), contentType.c_str());
        return;
    }
    response.set_chunked_content_provider(
        contentType.c_str(),
        [this, answer, turn](size_t, httplib::DataSink &sink) { return write(answer, turn, sink); });
}

LoopbackAnswer LoopbackServer::Private::answerTo(const LoopbackRequest &request, int *turn)
{
    const std::lock_guard<std::mutex> lock(mutex);
    LoopbackAnswer answer = LoopbackAnswer::withStatus(500, "No answer was scripted.", "text/plain");
    if (!queue.isEmpty())
        answer = queue.takeFirst();
    else if (handler)
        answer = handler(request);
    if (answer.heldAfter >= 0)
        *turn = heldAnswers++;
    requests.append(request);
    return answer;
}

bool LoopbackServer::Private::write(const LoopbackAnswer &answer, int turn, httplib::DataSink &sink)
{
    for (int i = 0; i < answer.pieces.size(); ++i) {
        if (i > 0 && i == answer.heldAfter)
            waitForRelease(turn);
        const QByteArray &piece = answer.pieces.at(i);
        // An empty chunk would end the answer.
        if (!piece.isEmpty() && !sink.write(piece.constData(), size_t(piece.size())))
            return false;
        bytesSent += piece.size();
    }
    if (answer.heldAfter > 0 && answer.heldAfter >= answer.pieces.size())
        waitForRelease(turn);
    sink.done();
    return true;
}

void LoopbackServer::Private::waitForRelease(int turn)
{
    std::unique_lock<std::mutex> lock(mutex);
    releasedCondition.wait(lock, [this, turn] { return released || turn < releasedAnswers; });
}

LoopbackServer::LoopbackServer()
    : d(std::make_unique<Private>())
{}

LoopbackServer::~LoopbackServer() = default;

QString LoopbackServer::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1/v1").arg(d->port);
}

void LoopbackServer::enqueue(const LoopbackAnswer &answer)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->queue.append(answer);
}

void LoopbackServer::setHandler(const Handler &handler)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->handler = handler;
}

void LoopbackServer::release()
{
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        d->released = true;
    }
    d->releasedCondition.notify_all();
}

void LoopbackServer::releaseOne()
{
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        ++d->releasedAnswers;
    }
    d->releasedCondition.notify_all();
}

QVector<LoopbackRequest> LoopbackServer::requests() const
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->requests;
}

qint64 LoopbackServer::bytesSent() const
{
    return d->bytesSent;
}
