#pragma once

#include "extract/model/HttpTransfer.h"
#include "extract/model/LanguageModel.h"

#include <QStringList>
#include <QUrl>

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace Extractor {
// The local model behind a model server the user runs: Ollama's native API when the server answers
// GET /api/version, the OpenAI chat-completions API otherwise. Nothing the server sends is trusted.
class ModelServerClient : public LanguageModel {
public:
    struct Options {
        QUrl server;
        QString model;
        // The context to ask Ollama for; servers that fix their own and don't tell fall back to it.
        qint64 contextTokens = 4096;
        HttpLimits limits;
    };

    explicit ModelServerClient(Options options);

    const Options &options() const { return options_; }
    // The dialect, asked of the server on first use; absent while the server doesn't answer.
    std::optional<ServerKind> serverKind(const std::stop_token &stop = {});

    // What the server offers and whether the chosen model can be used there, from one look at it.
    struct Offer {
        std::optional<ServerKind> kind; // absent while the server doesn't answer
        QStringList models; // by the names requests use
        // Why the server's answer held no list of models, when it answered with something else.
        std::optional<QString> listProblem;
        Availability availability;
    };
    Offer offer(const std::stop_token &stop = {});

    Availability availability(const std::stop_token &stop = {}) override;
    qint64 contextSize() override;
    QString systemDescription() override;
    PageFacts respondStructured(const ModelRequest &request, const std::stop_token &stop) override;
    QString respondText(const ModelRequest &request, const std::stop_token &stop) override;
    std::optional<qint64> count(const QString &text) override;

private:
    struct Answer;
    QUrl endpoint(const QString &path) const;
    HttpResponse get(const QString &path, const std::stop_token &stop);
    HttpResponse post(const QString &path, const QByteArray &body, HttpTimeouts timeouts, const std::stop_token &stop);
    std::optional<ServerKind> detectServerKind(const std::stop_token &stop);
    ServerKind requireServerKind(const std::stop_token &stop);
    std::optional<qint64> count(const QString &text, const std::stop_token &stop);
    std::optional<qint64> tokenize(const QString &text, const std::stop_token &stop);
    void checkContext(
        ServerKind kind, const QString &system, const QString &user, int cap, const std::stop_token &stop);
    Answer ask(const ModelRequest &request, bool structured, const std::stop_token &stop);
    QString address() const;

    Options options_;
    // What the server told about itself, asked once; guarded because availability may be polled from
    // another thread than the requests.
    std::mutex mutex_;
    std::optional<ServerKind> kind_;
    std::optional<qint64> serverContext_;
    bool askedServerContext_ = false;
    bool noTokenizer_ = false;
    // The last few counts: the instructions and the schema come back on every page of a scan.
    std::vector<std::pair<QString, qint64>> counts_;
};
} // namespace Extractor
