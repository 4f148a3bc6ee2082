#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

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
} // namespace Extractor
