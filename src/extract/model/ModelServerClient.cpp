#include "extract/model/ModelServerClient.h"

#include "extract/Instructions.h"
#include "extract/model/ChatMessages.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Extractor {
namespace {
// Tokens a chat template adds around the two messages; /tokenize counts only the texts.
constexpr qint64 chatTemplateTokens = 16;
constexpr std::size_t countsKept = 8;

QString notAnswering(const QString &address)
{
    return u"The model server at " + address + u" isn't answering";
}

QString notInstalled(const QString &model)
{
    return u"The model “" + model + u"” isn't installed on the model server";
}

// Ollama adds ":latest" to a name given without a tag.
bool sameModel(const QString &listed, const QString &wanted)
{
    return listed == wanted || (!wanted.contains(u':') && listed == wanted + u":latest");
}

QString excerpt(const QString &text)
{
    const QString line = text.simplified();
    return line.size() > 200 ? line.left(199) + u'…' : line;
}

QJsonObject jsonObject(const QByteArray &body)
{
    return QJsonDocument::fromJson(body).object();
}

std::optional<qint64> positive(const QJsonValue &value)
{
    if (!value.isDouble() || value.toDouble() < 1 || value.toDouble() > 1e12)
        return std::nullopt;
    return qint64(value.toDouble());
}

// Throws the generation error an HTTP status other than 200 stands for.
void throwForStatus(const HttpResponse &response, const QString &model, bool structured)
{
    const QString message = ChatMessages::serverMessage(response.body);
    const QString suffix = message.isEmpty() ? QString() : u": " + message;
    const QString lower = message.toLower();
    using Kind = GenerationError::Kind;
    const QString status = u" (HTTP " + QString::number(response.status) + u')';
    if (response.status == 429)
        throw GenerationError(Kind::rateLimited, u"The model server is rate limiting requests" + status + suffix);
    if (response.status == 503)
        throw GenerationError(Kind::concurrentRequests, u"The model server is busy" + status + suffix);
    if (lower.contains(u"context")
        && (lower.contains(u"exceed") || lower.contains(u"too long") || lower.contains(u"maximum")))
        throw GenerationError(
            Kind::exceededContextWindowSize, u"The request is too long for the model" + status + suffix);
    if (lower.contains(u"model")
        && (lower.contains(u"not found") || lower.contains(u"does not exist") || lower.contains(u"not installed")))
        throw GenerationError(Kind::assetsUnavailable, notInstalled(model) + status + suffix);
    if (structured && response.status == 400
        && (lower.contains(u"format") || lower.contains(u"schema") || lower.contains(u"grammar")))
        throw GenerationError(Kind::unsupportedGuide, u"The model server rejected the answer schema" + status + suffix);
    throw GenerationError(Kind::other, u"The model server answered HTTP " + QString::number(response.status) + suffix);
}
} // namespace

struct ModelServerClient::Answer {
    ServerKind kind;
    ChatMessages::Reply reply;
};

ModelServerClient::ModelServerClient(Options options)
    : options_(std::move(options))
{
}

QUrl ModelServerClient::endpoint(const QString &path) const
{
    // OpenAI-compatible servers are often written down with their "/v1"; the paths add it themselves.
    QString base = options_.server.path();
    while (base.endsWith(u'/'))
        base.chop(1);
    if (base.endsWith(u"/v1"))
        base.chop(3);
    QUrl url = options_.server;
    url.setPath(base + path);
    url.setQuery(QString());
    url.setFragment(QString());
    return url;
}

QString ModelServerClient::address() const
{
    return serverAddress(options_.server);
}

HttpResponse ModelServerClient::get(const QString &path, const std::stop_token &stop)
{
    return httpTransfer(endpoint(path), QByteArray(), options_.limits, HttpTimeouts::probe, stop);
}

HttpResponse ModelServerClient::post(
    const QString &path, const QByteArray &body, HttpTimeouts timeouts, const std::stop_token &stop)
{
    return httpTransfer(endpoint(path), body, options_.limits, timeouts, stop);
}

std::optional<ServerKind> ModelServerClient::serverKind(const std::stop_token &stop)
{
    {
        const std::lock_guard lock(mutex_);
        if (kind_)
            return kind_;
    }
    return detectServerKind(stop);
}

std::optional<ServerKind> ModelServerClient::detectServerKind(const std::stop_token &stop)
{
    HttpResponse response;
    try {
        response = get(QStringLiteral("/api/version"), stop);
    } catch (const HttpFailure &) {
        return std::nullopt;
    }
    const bool ollama = response.status == 200 && jsonObject(response.body).value(QStringLiteral("version")).isString();
    const ServerKind kind = ollama ? ServerKind::ollama : ServerKind::openAICompatible;
    const std::lock_guard lock(mutex_);
    if (kind_ != kind) {
        kind_ = kind;
        askedServerContext_ = false;
        serverContext_.reset();
        noTokenizer_ = false;
        counts_.clear();
    }
    return kind;
}

ServerKind ModelServerClient::requireServerKind(const std::stop_token &stop)
{
    const std::optional<ServerKind> kind = serverKind(stop);
    if (!kind)
        throw GenerationError(GenerationError::Kind::assetsUnavailable, notAnswering(address()));
    return *kind;
}

ModelServerClient::Offer ModelServerClient::offer(const std::stop_token &stop)
{
    Offer offer;
    const QUrl &server = options_.server;
    if (!server.isValid() || server.host().isEmpty() || (server.scheme() != u"http" && server.scheme() != u"https")) {
        offer.availability = { false, QStringLiteral("Choose a model server in Settings") };
        return offer;
    }
    // Asked afresh each time: the server on that port may have been replaced.
    offer.kind = detectServerKind(stop);
    if (!offer.kind) {
        offer.availability = { false, notAnswering(address()) };
        return offer;
    }
    const bool ollama = *offer.kind == ServerKind::ollama;
    const QString path = ollama ? QStringLiteral("/api/tags") : QStringLiteral("/v1/models");
    HttpResponse response;
    try {
        response = get(path, stop);
    } catch (const HttpFailure &) {
        offer.kind.reset();
        offer.availability = { false, notAnswering(address()) };
        return offer;
    }
    if (response.status == 503) {
        offer.availability = { false, QStringLiteral("The local model is still loading") };
        return offer;
    }
    const QJsonValue list = jsonObject(response.body).value(ollama ? QStringLiteral("models") : QStringLiteral("data"));
    if (response.status != 200 || !list.isArray()) {
        const QString message = ChatMessages::serverMessage(response.body);
        const QString answer = response.status != 200
            ? QString(u"HTTP " + QString::number(response.status) + u" to " + path
                + (message.isEmpty() ? QString() : u": " + message))
            : path + u" with no list of models: " + excerpt(QString::fromUtf8(response.body.left(400)));
        offer.listProblem = u"The model server at " + address() + u" answered " + answer;
        offer.availability = { false, QStringLiteral("The local model is unavailable") };
        return offer;
    }
    // Ollama lists a model by "name" and "model", which are the same today; either names it.
    const QStringList keys = ollama ? QStringList { QStringLiteral("name"), QStringLiteral("model") }
                                    : QStringList { QStringLiteral("id") };
    bool found = false;
    for (const QJsonValue &entry : list.toArray()) {
        QString listed;
        for (const QString &key : keys) {
            const QString name = entry.toObject().value(key).toString();
            found = found || sameModel(name, options_.model);
            if (listed.isEmpty())
                listed = name;
        }
        if (!listed.isEmpty() && !offer.models.contains(listed))
            offer.models << listed;
    }
    offer.availability
        = found ? Availability { true, std::nullopt } : Availability { false, notInstalled(options_.model) };
    return offer;
}

Availability ModelServerClient::availability(const std::stop_token &stop)
{
    return offer(stop).availability;
}

qint64 ModelServerClient::contextSize()
{
    const std::optional<ServerKind> kind = serverKind();
    if (kind != ServerKind::openAICompatible)
        return options_.contextTokens;
    {
        const std::lock_guard lock(mutex_);
        if (askedServerContext_)
            return serverContext_.value_or(options_.contextTokens);
    }
    std::optional<qint64> context;
    try {
        // llama-server tells its n_ctx in /props (at the top in older versions); vLLM gives
        // max_model_len with each model.
        const HttpResponse props = get(QStringLiteral("/props"), {});
        const QJsonObject object = jsonObject(props.body);
        if (props.status == 200)
            context = positive(
                object.value(QStringLiteral("default_generation_settings")).toObject().value(QStringLiteral("n_ctx")));
        if (props.status == 200 && !context)
            context = positive(object.value(QStringLiteral("n_ctx")));
        if (!context) {
            const HttpResponse models = get(QStringLiteral("/v1/models"), {});
            const QJsonArray list = jsonObject(models.body).value(QStringLiteral("data")).toArray();
            for (const QJsonValue &entry : list) {
                if (sameModel(entry.toObject().value(QStringLiteral("id")).toString(), options_.model))
                    context = positive(entry.toObject().value(QStringLiteral("max_model_len")));
            }
        }
    } catch (const HttpFailure &) {
        return options_.contextTokens; // asked again next time
    }
    const std::lock_guard lock(mutex_);
    askedServerContext_ = true;
    serverContext_ = context;
    return context.value_or(options_.contextTokens);
}

QString ModelServerClient::systemDescription()
{
    const ServerKind kind = serverKind().value_or(ServerKind::ollama);
    return Extractor::systemDescription(options_.model, kind, options_.server, contextSize());
}

std::optional<qint64> ModelServerClient::count(const QString &text)
{
    return count(text, {});
}

std::optional<qint64> ModelServerClient::count(const QString &text, const std::stop_token &stop)
{
    if (serverKind(stop) != ServerKind::openAICompatible)
        return std::nullopt;
    {
        const std::lock_guard lock(mutex_);
        if (noTokenizer_)
            return std::nullopt;
        for (const auto &[counted, tokens] : counts_) {
            if (counted == text)
                return tokens;
        }
    }
    const std::optional<qint64> tokens = tokenize(text, stop);
    if (tokens) {
        const std::lock_guard lock(mutex_);
        if (counts_.size() == countsKept)
            counts_.erase(counts_.begin());
        counts_.emplace_back(text, *tokens);
    }
    return tokens;
}

std::optional<qint64> ModelServerClient::tokenize(const QString &text, const std::stop_token &stop)
{
    HttpResponse response;
    try {
        const QByteArray body
            = QJsonDocument(QJsonObject { { QStringLiteral("content"), text } }).toJson(QJsonDocument::Compact);
        response = post(QStringLiteral("/tokenize"), body, HttpTimeouts::probe, stop);
    } catch (const HttpFailure &) {
        return std::nullopt;
    }
    if (response.status == 404 || response.status == 405 || response.status == 501) {
        const std::lock_guard lock(mutex_);
        noTokenizer_ = true;
    }
    if (response.status != 200)
        return std::nullopt;
    const QJsonObject object = jsonObject(response.body);
    const QJsonValue tokens = object.value(QStringLiteral("tokens"));
    if (tokens.isArray())
        return tokens.toArray().size();
    const QJsonValue count = object.value(QStringLiteral("count"));
    if (count.isDouble() && count.toDouble() >= 0 && count.toDouble() <= 1e12)
        return qint64(count.toDouble());
    return std::nullopt;
}

void ModelServerClient::checkContext(
    ServerKind kind, const QString &system, const QString &user, int cap, const std::stop_token &stop)
{
    // Servers cut an over-long prompt silently and answer from what is left, so it is decided here.
    const qint64 context = kind == ServerKind::ollama ? options_.contextTokens : contextSize();
    std::optional<qint64> tokens;
    if (kind == ServerKind::openAICompatible) {
        const std::optional<qint64> forSystem = count(system, stop);
        const std::optional<qint64> forUser = forSystem ? count(user, stop) : std::nullopt;
        if (forSystem && forUser)
            tokens = *forSystem + *forUser + chatTemplateTokens;
    }
    bool estimated = false;
    if (!tokens) {
        // Without a tokenizer: about 3 bytes a token, which overestimates the tokens of ordinary text.
        const qint64 bytes = system.toUtf8().size() + user.toUtf8().size();
        tokens = (bytes + 2) / 3;
        estimated = true;
    }
    if (*tokens + cap > context)
        throw GenerationError(GenerationError::Kind::exceededContextWindowSize,
            u"The request needs " + (estimated ? QStringLiteral("about ") : QString()) + QString::number(*tokens)
                + u" tokens and " + QString::number(cap) + u" for the answer; the context holds "
                + QString::number(context));
}

ModelServerClient::Answer ModelServerClient::ask(
    const ModelRequest &request, bool structured, const std::stop_token &stop)
{
    using Kind = GenerationError::Kind;
    const ServerKind kind = requireServerKind(stop);
    ChatMessages::Request chat;
    chat.model = options_.model;
    chat.system = request.instructions;
    chat.user = structured ? ChatMessages::withSchema(request.prompt) : request.prompt;
    chat.maximumResponseTokens = request.maximumResponseTokens;
    chat.contextTokens = options_.contextTokens;
    chat.structured = structured;
    checkContext(kind, chat.system, chat.user, chat.maximumResponseTokens, stop);

    HttpResponse response;
    try {
        response
            = post(kind == ServerKind::ollama ? QStringLiteral("/api/chat") : QStringLiteral("/v1/chat/completions"),
                ChatMessages::body(kind, chat), HttpTimeouts::generation, stop);
    } catch (const HttpFailure &failure) {
        switch (failure.kind) {
        case HttpFailure::Kind::tooLarge:
            throw GenerationError(Kind::decodingFailure, failure.message());
        case HttpFailure::Kind::unreachable:
        case HttpFailure::Kind::timedOut:
            throw GenerationError(Kind::assetsUnavailable, notAnswering(address()) + u": " + failure.message());
        case HttpFailure::Kind::other:
            break;
        }
        throw GenerationError(Kind::other, failure.message());
    }
    if (response.status != 200)
        throwForStatus(response, options_.model, structured);
    std::optional<ChatMessages::Reply> reply = ChatMessages::reply(kind, response.body);
    if (!reply)
        throw GenerationError(Kind::decodingFailure,
            u"The model server's answer isn't a chat reply: " + excerpt(QString::fromUtf8(response.body)));
    if (reply->refusal)
        throw GenerationError(Kind::refusal, QStringLiteral("The model refused to answer"), reply->refusal->left(2000));
    if (reply->finishReason == u"content_filter")
        throw GenerationError(
            Kind::guardrailViolation, QStringLiteral("The model server's content filter stopped the answer"));
    std::optional<qint64> context;
    if (kind == ServerKind::ollama) {
        context = options_.contextTokens;
    } else {
        const std::lock_guard lock(mutex_);
        context = serverContext_;
    }
    if (context && reply->promptTokens && reply->answerTokens
        && *reply->promptTokens + *reply->answerTokens >= *context)
        throw GenerationError(Kind::exceededContextWindowSize,
            u"The prompt and the answer filled the context of " + QString::number(*context) + u" tokens");
    if (structured && reply->finishReason == u"length")
        throw GenerationError(Kind::decodingFailure,
            u"The answer was cut off at " + QString::number(request.maximumResponseTokens) + u" tokens");
    return { kind, std::move(*reply) };
}

PageFacts ModelServerClient::respondStructured(const ModelRequest &request, const std::stop_token &stop)
{
    const Answer answer = ask(request, true, stop);
    const std::optional<PageFacts> facts = PageFacts::decode(answer.reply.content.toUtf8());
    if (!facts)
        throw GenerationError(GenerationError::Kind::decodingFailure,
            u"The answer doesn't follow the PageFacts schema: " + excerpt(answer.reply.content));
    return *facts;
}

QString ModelServerClient::respondText(const ModelRequest &request, const std::stop_token &stop)
{
    return ask(request, false, stop).reply.content;
}
} // namespace Extractor
