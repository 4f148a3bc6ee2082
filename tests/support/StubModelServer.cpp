#include "support/StubModelServer.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <httplib.h>
#include <map>
#include <mutex>
#include <thread>

namespace {
using namespace Qt::StringLiterals;

StubReply ok(const QJsonObject &object)
{
    return StubModelServer::json(200, QJsonDocument(object).toJson(QJsonDocument::Compact));
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

    void serve(const httplib::Request &request, httplib::Response &response)
    {
        StubRequest stub { QString::fromStdString(request.method), QString::fromStdString(request.path),
            QByteArray::fromStdString(request.body) };
        Handler handler;
        {
            const std::lock_guard lock(mutex);
            received.push_back(stub);
            handler = handlers[stub.method + u' ' + stub.path];
        }
        changed.notify_all();
        const StubReply reply = handler ? handler(stub) : json(404, R"({"error":"not found"})");
        if (reply.hold) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return released; });
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

StubModelServer::StubModelServer()
    : d(std::make_unique<Private>())
{
    const auto serve = [this](const httplib::Request &in, httplib::Response &out) { d->serve(in, out); };
    d->server.Get(".*", serve).Post(".*", serve);
    // One request per connection: a connection a client left open would hold the server's stop for
    // the whole keep-alive timeout.
    d->server.set_keep_alive_max_count(1);
    // The socket listens from here on, so clients may connect before the thread accepts.
    d->port = d->server.bind_to_any_port("127.0.0.1");
    d->thread = std::thread([this] { d->server.listen_after_bind(); });
    // stop() does nothing before the loop runs, which would leave the destructor waiting forever.
    while (!d->server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

StubModelServer::~StubModelServer()
{
    release();
    d->server.stop();
    d->thread.join();
}

QUrl StubModelServer::url() const
{
    return QUrl(u"http://127.0.0.1:" + QString::number(d->port));
}

void StubModelServer::reply(const QString &method, const QString &path, std::vector<StubReply> replies)
{
    if (replies.empty())
        replies.push_back(json(404, R"({"error":"not found"})"));
    // Called from several server threads at once.
    auto next = std::make_shared<std::atomic<std::size_t>>(0);
    handle(method, path, [replies = std::move(replies), next](const StubRequest &) {
        return replies.at(std::min(next->fetch_add(1), replies.size() - 1));
    });
}

void StubModelServer::handle(const QString &method, const QString &path, Handler handler)
{
    const std::lock_guard lock(d->mutex);
    d->handlers[method + u' ' + path] = std::move(handler);
}

std::vector<StubRequest> StubModelServer::requests(const QString &path) const
{
    const std::lock_guard lock(d->mutex);
    std::vector<StubRequest> result = d->received;
    std::erase_if(result, [&](const StubRequest &request) { return request.path != path; });
    return result;
}

bool StubModelServer::waitForRequests(const QString &path, std::size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(d->mutex);
    const auto arrived = [&] { return std::ranges::count(d->received, path, &StubRequest::path) >= qsizetype(count); };
    return d->changed.wait_for(lock, timeout, arrived);
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
    reply(u"GET"_s, u"/api/version"_s, { json(200, R"({"version":"0.5.7"})") });
    QJsonArray list;
    for (const QString &model : models)
        list.append(QJsonObject { { u"name"_s, model }, { u"model"_s, model } });
    reply(u"GET"_s, u"/api/tags"_s, { ok({ { u"models"_s, list } }) });
}

void StubModelServer::serveLlamaServer(const QStringList &models, qint64 contextTokens, int bytesPerToken)
{
    QJsonArray list;
    for (const QString &model : models)
        list.append(QJsonObject { { u"id"_s, model }, { u"object"_s, u"model"_s } });
    reply(u"GET"_s, u"/v1/models"_s, { ok({ { u"object"_s, u"list"_s }, { u"data"_s, list } }) });
    reply(u"GET"_s, u"/props"_s,
        { ok({ { u"default_generation_settings"_s, QJsonObject { { u"n_ctx"_s, contextTokens } } } }) });
    handle(u"POST"_s, u"/tokenize"_s, [bytesPerToken](const StubRequest &request) {
        const qsizetype bytes = request.json().value(u"content"_s).toString().toUtf8().size();
        QJsonArray tokens;
        for (qsizetype i = 0; i < (bytes + bytesPerToken - 1) / bytesPerToken; ++i)
            tokens.append(int(i % 1000));
        return ok({ { u"tokens"_s, tokens } });
    });
}

StubReply StubModelServer::ollamaChat(
    const QString &content, const QString &doneReason, qint64 promptTokens, qint64 answerTokens)
{
    return ok({ { u"model"_s, u"stub"_s },
        { u"message"_s, QJsonObject { { u"role"_s, u"assistant"_s }, { u"content"_s, content } } }, { u"done"_s, true },
        { u"done_reason"_s, doneReason }, { u"prompt_eval_count"_s, promptTokens },
        { u"eval_count"_s, answerTokens } });
}

StubReply StubModelServer::openAIChat(
    const QString &content, const QString &finishReason, const std::optional<QString> &refusal)
{
    QJsonObject message { { u"role"_s, u"assistant"_s },
        { u"content"_s, refusal ? QJsonValue(QJsonValue::Null) : QJsonValue(content) } };
    if (refusal)
        message.insert(u"refusal"_s, *refusal);
    const QJsonObject choice { { u"index"_s, 0 }, { u"message"_s, message }, { u"finish_reason"_s, finishReason } };
    return ok({ { u"object"_s, u"chat.completion"_s }, { u"choices"_s, QJsonArray { choice } },
        { u"usage"_s, QJsonObject { { u"prompt_tokens"_s, 100 }, { u"completion_tokens"_s, 20 } } } });
}
