#pragma once

#include "extract/model/ModelServerClient.h"
#include "support/Printing.h"
#include "support/StubModelServer.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using Kind = Extractor::GenerationError::Kind;

// A stub server and clients for it with short limits, so that failures show within seconds.
class ModelClientTest : public ::testing::Test {
protected:
    static inline const QString model = u"qwen2.5:3b"_s;
    static inline const QString factsJson = uR"({"firstPage":true,"kind":"Utility bill","organization":"Acme Water",)"
                                            uR"("dateLabel":"Bill Date","date":"2024-03-12"})"_s;

    Extractor::ModelServerClient::Options options(qint64 contextTokens = 4096, const QUrl &url = {})
    {
        return { url.isEmpty() ? server.url() : url, model, contextTokens,
            { .probe = std::chrono::seconds(5), .idle = std::chrono::seconds(1), .total = std::chrono::seconds(5) } };
    }
    Extractor::ModelServerClient client(qint64 contextTokens = 4096, const QUrl &url = {})
    {
        return Extractor::ModelServerClient(options(contextTokens, url));
    }
    static Extractor::ModelRequest request(const QString &prompt = u"Page text"_s, int cap = 300)
    {
        return { u"File the mail."_s, prompt, cap };
    }
    // The kind of error a request ends with, absent when it succeeds; its description or refusal in lastError.
    std::optional<Kind> error(
        Extractor::ModelServerClient &target, bool structured = true, const Extractor::ModelRequest &asked = request())
    {
        try {
            structured ? void(target.respondStructured(asked, {})) : void(target.respondText(asked, {}));
        } catch (const Extractor::GenerationError &failure) {
            lastError = failure.refusalExplanation.value_or(failure.description);
            return failure.kind;
        }
        return std::nullopt;
    }

    StubModelServer server;
    QString lastError;
};
