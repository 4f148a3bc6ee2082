// Any bytes as the model server's reply body, in both dialects, and as an error body.
#include "extract/PageFacts.h"
#include "extract/model/ChatMessages.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray body(reinterpret_cast<const char *>(data), qsizetype(size));
    using Extractor::ServerKind;
    for (const ServerKind kind : { ServerKind::ollama, ServerKind::openAICompatible }) {
        const std::optional<Extractor::ChatMessages::Reply> reply = Extractor::ChatMessages::reply(kind, body);
        if (reply && (reply->promptTokens.value_or(0) < 0 || reply->answerTokens.value_or(0) < 0))
            std::abort();
        if (reply)
            PageFacts::decode(reply->content.toUtf8());
    }
    // The server's words go on one line of the activity log.
    const QString message = Extractor::ChatMessages::serverMessage(body);
    if (message.size() > 300 || message.contains(QLatin1Char('\n')))
        std::abort();
    return 0;
}
