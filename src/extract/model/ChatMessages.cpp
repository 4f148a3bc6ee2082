#include "extract/model/ChatMessages.h"

#include "extract/PageFacts.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Extractor::ChatMessages {
namespace {
// Any fixed number makes answers repeatable.
constexpr int seed = 42;

std::optional<qint64> count(const QJsonValue &value)
{
    // Any number may come; only a count a model could reach converts safely.
    if (!value.isDouble() || !(value.toDouble() >= 0 && value.toDouble() <= 1e12))
        return std::nullopt;
    return qint64(value.toDouble());
}
} // namespace

QString withSchema(const QString &prompt)
{
    return prompt + u"\n\nAnswer with one JSON object that follows this JSON Schema:\n"
        + QString::fromUtf8(PageFacts::schema());
}

QByteArray body(ServerKind server, const Request &request)
{
    const QJsonArray messages {
        QJsonObject {
            { QStringLiteral("role"), QStringLiteral("system") }, { QStringLiteral("content"), request.system } },
        QJsonObject { { QStringLiteral("role"), QStringLiteral("user") }, { QStringLiteral("content"), request.user } },
    };
    QJsonObject object { { QStringLiteral("model"), request.model }, { QStringLiteral("messages"), messages },
        { QStringLiteral("stream"), false } };
    if (server == ServerKind::ollama) {
        QJsonObject options { { QStringLiteral("temperature"), 0 }, { QStringLiteral("top_k"), 1 },
            { QStringLiteral("seed"), seed }, { QStringLiteral("num_ctx"), request.contextTokens } };
        if (request.maximumResponseTokens > 0)
            options.insert(QStringLiteral("num_predict"), request.maximumResponseTokens);
        object.insert(QStringLiteral("options"), options);
    } else {
        object.insert(QStringLiteral("temperature"), 0);
        object.insert(QStringLiteral("top_k"), 1);
        object.insert(QStringLiteral("seed"), seed);
        if (request.maximumResponseTokens > 0)
            object.insert(QStringLiteral("max_tokens"), request.maximumResponseTokens);
    }
    QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Compact);
    if (!request.structured)
        return text;
    // QJsonObject sorts keys, and the order of the schema's properties matters to the model, so the
    // schema's own text is spliced in.
    text.chop(1);
    if (server == ServerKind::ollama)
        return text + ",\"format\":" + PageFacts::schema() + '}';
    return text
        + ",\"response_format\":{\"type\":\"json_schema\",\"json_schema\":{\"name\":\"PageFacts\",\"strict\":true,"
          "\"schema\":"
        + PageFacts::schema() + "}}}";
}

std::optional<Reply> reply(ServerKind server, const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    QJsonObject message;
    Reply reply;
    if (server == ServerKind::ollama) {
        message = object.value(QStringLiteral("message")).toObject();
        reply.finishReason = object.value(QStringLiteral("done_reason")).toString();
        reply.promptTokens = count(object.value(QStringLiteral("prompt_eval_count")));
        reply.answerTokens = count(object.value(QStringLiteral("eval_count")));
    } else {
        const QJsonArray choices = object.value(QStringLiteral("choices")).toArray();
        if (choices.isEmpty())
            return std::nullopt;
        const QJsonObject choice = choices.first().toObject();
        message = choice.value(QStringLiteral("message")).toObject();
        reply.finishReason = choice.value(QStringLiteral("finish_reason")).toString();
        const QJsonObject usage = object.value(QStringLiteral("usage")).toObject();
        reply.promptTokens = count(usage.value(QStringLiteral("prompt_tokens")));
        reply.answerTokens = count(usage.value(QStringLiteral("completion_tokens")));
    }
    const QJsonValue refusal = message.value(QStringLiteral("refusal"));
    if (refusal.isString() && !refusal.toString().trimmed().isEmpty())
        reply.refusal = refusal.toString();
    const QJsonValue content = message.value(QStringLiteral("content"));
    if (content.isString())
        reply.content = content.toString();
    else if (!reply.refusal)
        return std::nullopt;
    return reply;
}

QString serverMessage(const QByteArray &body)
{
    QString message;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isObject()) {
        const QJsonObject object = document.object();
        const QJsonValue error = object.value(QStringLiteral("error"));
        if (error.isString())
            message = error.toString();
        else if (error.isObject())
            message = error.toObject().value(QStringLiteral("message")).toString();
        if (message.isEmpty())
            message = object.value(QStringLiteral("message")).toString();
        if (message.isEmpty())
            message = object.value(QStringLiteral("detail")).toString();
    } else if (!body.trimmed().startsWith('<')) { // HTML error pages say nothing useful
        message = QString::fromUtf8(body.left(1000));
    }
    message = message.simplified();
    if (message.size() > 300)
        message = message.left(299) + u'…';
    return message;
}
} // namespace Extractor::ChatMessages
