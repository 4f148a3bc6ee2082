#include "support/StubModelServer.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <condition_variable>
#include <httplib.h>
#include <map>
#include <mutex>
#include <thread>

namespace {
QByteArray compact(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}
} // namespace

struct StubModelServer::Private {
    httplib::Server server;
    std::thread thread;
    int port = 0;
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::map<QString, Handler> handlers;
    std::vector<StubRequest> received;
    bool released = false;
    bool stopping = false;

    void serve(const httplib::Request &request, httplib::Response &response)
    {
        StubRequest stub { QString::fromStdString(request.method), QString::fromStdString(request.path),
            QByteArray::fromStdString(request.body) };
        Handler handler;
        {
            const std::lock_guard lock(mutex);
            received.push_back(stub);
            const auto found = handlers.find(stub.method + u' ' + stub.path);
            if (found != handlers.end())
                handler = found->second;
        }
        changed.notify_all();
        const StubReply reply = handler ? handler(stub) : json(404, R"({"error":"not found"})");
        if (reply.hold) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return released || stopping; });
        }
        response.status = reply.status;
        if (!reply.cutAfter) {
            response.set_content(reply.body.toStdString(), reply.contentType.toStdString());
            return;
        }
        const std::string body = reply.body.toStdString();
        const std::size_t cut = std::size_t(*reply.cutAfter);
        response.set_content_provider(body.size(), reply.contentType.toStdString(),
            [body, cut](std::size_t offset, std::size_t, httplib::DataSink &sink) {
                if (offset < cut)
                    sink.write(body.data() + offset, cut - offset);
                return offset < cut; // then fails, which drops the connection
            });
    }
};

QJsonObject StubRequest::json() const
{
    return QJsonDocument::fromJson(body).object();
}

StubModelServer::StubModelServer()
    : d(std::make_unique<Private>())
{
    const auto serve
        = [this](const httplib::Request &request, httplib::Response &response) { d->serve(request, response); };
    d->server.Get(".*", serve);
    d->server.Post(".*", serve);
    // The socket listens from here on, so clients may connect before the thread accepts.
    d->port = d->server.bind_to_any_port("127.0.0.1");
    d->thread = std::thread([this] { d->server.listen_after_bind(); });
    // stop() does nothing before the loop runs, which would leave the destructor waiting forever.
    while (!d->server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

StubModelServer::~StubModelServer()
{
    {
        const std::lock_guard lock(d->mutex);
        d->stopping = true;
    }
    d->changed.notify_all();
    d->server.stop();
    d->thread.join();
}

QUrl StubModelServer::url() const
{
    return QUrl(u"http://127.0.0.1:" + QString::number(d->port));
}

void StubModelServer::reply(const QString &method, const QString &path, std::vector<StubReply> replies)
{
    auto queue = std::make_shared<std::vector<StubReply>>(std::move(replies));
    auto next = std::make_shared<std::size_t>(0);
    // Called under no lock of ours from several server threads at once.
    auto guard = std::make_shared<std::mutex>();
    handle(method, path, [queue, next, guard](const StubRequest &) {
        const std::lock_guard lock(*guard);
        if (queue->empty())
            return json(404, R"({"error":"not found"})");
        const StubReply &reply = queue->at(std::min(*next, queue->size() - 1));
        ++*next;
        return reply;
    });
}

void StubModelServer::handle(const QString &method, const QString &path, Handler handler)
{
    const std::lock_guard lock(d->mutex);
    d->handlers[method + u' ' + path] = std::move(handler);
}

std::vector<StubRequest> StubModelServer::requests() const
{
    const std::lock_guard lock(d->mutex);
    return d->received;
}

std::vector<StubRequest> StubModelServer::requests(const QString &path) const
{
    std::vector<StubRequest> result;
    for (const StubRequest &request : requests()) {
        if (request.path == path)
            result.push_back(request);
    }
    return result;
}

bool StubModelServer::waitForRequests(const QString &path, std::size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(d->mutex);
    return d->changed.wait_for(lock, timeout, [&] {
        return std::size_t(std::count_if(d->received.begin(), d->received.end(), [&](const StubRequest &request) {
            return request.path == path;
        })) >= count;
    });
}

void StubModelServer::release()
{
    {
        const std::lock_guard lock(d->mutex);
        d->released = true;
    }
    d->changed.notify_all();
}

void StubModelServer::serveOllama(const QStringList &models)
{
    reply(QStringLiteral("GET"), QStringLiteral("/api/version"), { json(200, R"({"version":"0.5.7"})") });
    QJsonArray list;
    for (const QString &model : models)
        list.append(QJsonObject { { QStringLiteral("name"), model }, { QStringLiteral("model"), model } });
    reply(QStringLiteral("GET"), QStringLiteral("/api/tags"),
        { json(200, compact({ { QStringLiteral("models"), list } })) });
}

void StubModelServer::serveLlamaServer(const QStringList &models, qint64 contextTokens, int bytesPerToken)
{
    QJsonArray list;
    for (const QString &model : models)
        list.append(
            QJsonObject { { QStringLiteral("id"), model }, { QStringLiteral("object"), QStringLiteral("model") } });
    reply(QStringLiteral("GET"), QStringLiteral("/v1/models"),
        { json(200,
            compact({ { QStringLiteral("object"), QStringLiteral("list") }, { QStringLiteral("data"), list } })) });
    reply(QStringLiteral("GET"), QStringLiteral("/props"),
        { json(200,
            compact({ { QStringLiteral("default_generation_settings"),
                QJsonObject { { QStringLiteral("n_ctx"), contextTokens } } } })) });
    handle(QStringLiteral("POST"), QStringLiteral("/tokenize"), [bytesPerToken](const StubRequest &request) {
        const qsizetype bytes = request.json().value(QStringLiteral("content")).toString().toUtf8().size();
        QJsonArray tokens;
        for (qsizetype i = 0; i < (bytes + bytesPerToken - 1) / bytesPerToken; ++i)
            tokens.append(int(i % 1000));
        return json(200, compact({ { QStringLiteral("tokens"), tokens } }));
    });
}

StubReply StubModelServer::ollamaChat(
    const QString &content, const QString &doneReason, qint64 promptTokens, qint64 answerTokens)
{
    return json(200,
        compact({ { QStringLiteral("model"), QStringLiteral("stub") },
            { QStringLiteral("message"),
                QJsonObject {
                    { QStringLiteral("role"), QStringLiteral("assistant") }, { QStringLiteral("content"), content } } },
            { QStringLiteral("done"), true }, { QStringLiteral("done_reason"), doneReason },
            { QStringLiteral("prompt_eval_count"), promptTokens }, { QStringLiteral("eval_count"), answerTokens } }));
}

StubReply StubModelServer::openAIChat(
    const QString &content, const QString &finishReason, const std::optional<QString> &refusal)
{
    QJsonObject message { { QStringLiteral("role"), QStringLiteral("assistant") },
        { QStringLiteral("content"), refusal ? QJsonValue(QJsonValue::Null) : QJsonValue(content) } };
    if (refusal)
        message.insert(QStringLiteral("refusal"), *refusal);
    const QJsonObject choice { { QStringLiteral("index"), 0 }, { QStringLiteral("message"), message },
        { QStringLiteral("finish_reason"), finishReason } };
    return json(200,
        compact({ { QStringLiteral("object"), QStringLiteral("chat.completion") },
            { QStringLiteral("choices"), QJsonArray { choice } },
            { QStringLiteral("usage"),
                QJsonObject {
                    { QStringLiteral("prompt_tokens"), 100 }, { QStringLiteral("completion_tokens"), 20 } } } }));
}

StubReply StubModelServer::json(int status, const QByteArray &body)
{
    StubReply reply;
    reply.status = status;
    reply.body = body;
    return reply;
}
