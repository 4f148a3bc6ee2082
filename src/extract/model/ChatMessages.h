#pragma once

#include "extract/model/LanguageModel.h"

#include <QByteArray>
#include <QString>

#include <optional>

// The chat request and reply bodies of the two server dialects: Ollama's /api/chat and the OpenAI
// chat-completions API.
namespace Extractor::ChatMessages {
struct Request {
    QString model;
    QString system;
    QString user;
    int maximumResponseTokens = 0;
    qint64 contextTokens = 0; // sent to Ollama only; other servers fix it when they start
    bool structured = false; // answer by the PageFacts schema
};

// The JSON body, with greedy sampling and, when structured, the schema with its property order kept.
QByteArray body(ServerKind server, const Request &request);

struct Reply {
    QString content;
    std::optional<QString> refusal;
    QString finishReason; // "stop", "length", "content_filter", or empty
    std::optional<qint64> promptTokens;
    std::optional<qint64> answerTokens;
};

// The reply of a successful request; absent unless it has the dialect's shape with a text answer.
std::optional<Reply> reply(ServerKind server, const QByteArray &body);

// The server's own words in an error body ({"error": "..."}, {"error": {"message": "..."}},
// {"message": "..."}, or short plain text), on one line and at most 300 characters; empty if none.
QString serverMessage(const QByteArray &body);

// The user message of a structured request: the prompt followed by the schema as text.
QString withSchema(const QString &prompt);
} // namespace Extractor::ChatMessages
