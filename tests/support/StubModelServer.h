#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

// A model server on 127.0.0.1 for tests, in a thread of its own: scripted replies per method and path,
// and a record of every request received. Unscripted paths answer 404.
struct StubReply {
    int status = 200;
    QByteArray body;
    QByteArray contentType = "application/json";
    // Keep the client waiting until release() or the server stops, then answer.
    bool hold = false;
    // Close the connection after this many bytes of the body (the length header promises all of it).
    std::optional<qsizetype> cutAfter;
};

struct StubRequest {
    QString method;
    QString path;
    QByteArray body;
    QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
};

class StubModelServer {
public:
    using Handler = std::function<StubReply(const StubRequest &)>;

    StubModelServer();
    ~StubModelServer();

    QUrl url() const;

    // Replies for "GET"/"POST" of a path, one per request in order; the last one repeats.
    void reply(const QString &method, const QString &path, std::vector<StubReply> replies);
    void handle(const QString &method, const QString &path, Handler handler);

    std::vector<StubRequest> requests(const QString &path) const;
    // Whether `count` requests of the path arrived within the timeout.
    bool waitForRequests(const QString &path, std::size_t count, std::chrono::milliseconds timeout) const;
    // Lets every held reply go, now and later.
    void release();

    // An Ollama server that has these models.
    void serveOllama(const QStringList &models);
    // An OpenAI-compatible server like llama-server: these models, `n_ctx` in /props, and /tokenize
    // counting one token per `bytesPerToken` bytes of UTF-8, rounded up.
    void serveLlamaServer(const QStringList &models, qint64 contextTokens, int bytesPerToken = 4);

    static StubReply ollamaChat(const QString &content, const QString &doneReason = QStringLiteral("stop"),
        qint64 promptTokens = 100, qint64 answerTokens = 20);
    static StubReply openAIChat(const QString &content, const QString &finishReason = QStringLiteral("stop"),
        const std::optional<QString> &refusal = std::nullopt);
    static StubReply json(int status, const QByteArray &body) { return { .status = status, .body = body }; }

private:
    struct Private;
    std::unique_ptr<Private> d;
};
