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

    Extractor::ModelServerClient client(qint64 contextTokens = 4096, const QUrl &url = {})
    {
        Extractor::ModelServerClient::Options options;
        options.server = url.isEmpty() ? server.url() : url;
        options.model = model;
        options.contextTokens = contextTokens;
        options.limits.probe = std::chrono::seconds(5);
        options.limits.idle = std::chrono::seconds(1);
        options.limits.total = std::chrono::seconds(5);
        return Extractor::ModelServerClient(options);
    }
    static Extractor::ModelRequest request(const QString &prompt = u"Page text"_s, int cap = 300)
    {
        return { u"File the mail."_s, prompt, cap };
    }
    // The kind of error a request ends with; absent when it succeeds.
    std::optional<Kind> error(
        Extractor::ModelServerClient &target, bool structured = true, const Extractor::ModelRequest &asked = request())
    {
        try {
            if (structured)
                target.respondStructured(asked, {});
            else
                target.respondText(asked, {});
        } catch (const Extractor::GenerationError &failure) {
            lastError = failure.description;
            return failure.kind;
        }
        return std::nullopt;
    }
    // A server on a port nobody listens on any more.
    static QUrl closedServer()
    {
        StubModelServer gone;
        return gone.url();
    }

    StubModelServer server;
    QString lastError;
};
