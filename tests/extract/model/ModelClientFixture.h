#pragma once

#include "extract/model/ModelServerClient.h"
#include "support/StubModelServer.h"

#include <gtest/gtest.h>

#include "support/Printing.h"

// A stub server and a client for it with short limits, so that failures show within seconds.
class ModelClientTest : public ::testing::Test {
protected:
    static inline const QString model = QStringLiteral("qwen2.5:3b");
    static inline const QString factsJson = QStringLiteral(
        R"({"firstPage":true,"kind":"Utility bill","organization":"Acme Water","dateLabel":"Bill Date","date":"2024-03-12"})");

    Extractor::ModelServerClient client(qint64 contextTokens = 4096)
    {
        Extractor::ModelServerClient::Options options;
        options.server = server.url();
        options.model = model;
        options.contextTokens = contextTokens;
        options.limits.probe = std::chrono::seconds(5);
        options.limits.idle = std::chrono::seconds(1);
        options.limits.total = std::chrono::seconds(5);
        return Extractor::ModelServerClient(options);
    }

    static Extractor::ModelRequest request(const QString &prompt = QStringLiteral("Page text"), int cap = 300)
    {
        return { QStringLiteral("File the mail."), prompt, cap };
    }

    // The kind of error a structured request ends with; absent when it succeeds.
    std::optional<Extractor::GenerationError::Kind> structuredError(Extractor::ModelServerClient &target)
    {
        try {
            target.respondStructured(request(), {});
        } catch (const Extractor::GenerationError &error) {
            lastError = error.description;
            return error.kind;
        }
        return std::nullopt;
    }

    StubModelServer server;
    QString lastError;
};
