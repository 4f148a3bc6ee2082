#pragma once

#include "core/Error.h"
#include "extract/PageFacts.h"

#include <QString>
#include <QtGlobal>

#include <exception>
#include <optional>
#include <stop_token>

namespace Extractor {
// The two kinds of local model server spoken to.
enum class ServerKind { ollama, openAICompatible };

inline QString serverKindName(ServerKind kind)
{
    return kind == ServerKind::ollama ? QStringLiteral("Ollama") : QStringLiteral("OpenAI-compatible server");
}

// Token counting as the model sees it. The model-server client implements it where the server has a
// tokenizer; elsewhere there is no counter and counts stay absent.
class TokenCounter {
public:
    virtual ~TokenCounter() = default;
    // The number of tokens of the text, absent when the model can't count it.
    virtual std::optional<qint64> count(const QString &text) = 0;
};

// Why a model request produced no answer, in the cases the extractor tells apart.
struct GenerationError : Error {
    enum class Kind {
        exceededContextWindowSize,
        assetsUnavailable,
        guardrailViolation,
        unsupportedGuide,
        unsupportedLanguageOrLocale,
        decodingFailure,
        rateLimited,
        concurrentRequests,
        refusal,
        other, // anything else; `description` says what
    };

    // The message is `describe`'s: the case's title and the description.
    GenerationError(Kind kind, QString description, std::optional<QString> refusalExplanation = std::nullopt);

    Kind kind;
    // What went wrong, for a person (the server's own words where it gave any).
    QString description;
    // For a refusal: the model's explanation.
    std::optional<QString> refusalExplanation;
};

// Whether the model can be used now, and if not, why, as the status bar says it.
struct Availability {
    bool available = false;
    std::optional<QString> problem; // absent when available
    bool operator==(const Availability &) const = default;
};

// One request: the instructions as the system message, the prompt as the user message.
struct ModelRequest {
    QString instructions;
    QString prompt;
    int maximumResponseTokens = 0;
};

// The local model as the extractor uses it. Calls block and run on the model's own thread; each
// checks `stop` and gives up with Cancelled when it is requested, aborting a request in flight.
class LanguageModel : public TokenCounter {
public:
    virtual Availability availability(const std::stop_token &stop = {}) = 0;
    // The context window in tokens.
    virtual qint64 contextSize() = 0;
    // One line naming the model, the server, the context and the system, kept in every transcript.
    virtual QString systemDescription() = 0;
    // A structured answer checked against PageFacts::schema(); throws GenerationError.
    virtual PageFacts respondStructured(const ModelRequest &request, const std::stop_token &stop) = 0;
    // A plain-text answer; throws GenerationError.
    virtual QString respondText(const ModelRequest &request, const std::stop_token &stop) = 0;
};
} // namespace Extractor
