#include "ModelClientFixture.h"

using namespace Extractor;
using Kind = GenerationError::Kind;

namespace {
struct Case {
    const char *name;
    StubReply reply;
    std::optional<Kind> expected;
};

StubReply raw(const QByteArray &body, const QByteArray &type = "application/json")
{
    StubReply reply = StubModelServer::json(200, body);
    reply.contentType = type;
    return reply;
}
} // namespace

TEST_F(ModelClientTest, httpStatuses_mapOntoGenerationErrors_inBothDialects)
{
    const Case cases[] = {
        { "429", StubModelServer::json(429, R"({"error":"too many requests"})"), Kind::rateLimited },
        { "503", StubModelServer::json(503, R"({"error":{"code":503,"message":"Loading model"}})"),
            Kind::concurrentRequests },
        { "model missing",
            StubModelServer::json(404, R"({"error":"model \"qwen2.5:3b\" not found, try pulling it first"})"),
            Kind::assetsUnavailable },
        { "context",
            StubModelServer::json(400, R"({"error":{"message":"the request exceeds the available context size"}})"),
            Kind::exceededContextWindowSize },
        { "schema", StubModelServer::json(400, R"({"error":"invalid JSON schema in format"})"),
            Kind::unsupportedGuide },
        { "500", StubModelServer::json(500, R"({"error":"out of memory"})"), Kind::other },
        { "HTML 502", raw("<html><body>Bad gateway</body></html>", "text/html"), std::nullopt },
    };
    for (const bool ollama : { true, false }) {
        StubModelServer stub;
        if (ollama)
            stub.serveOllama({ model });
        else
            stub.serveLlamaServer({ model }, 4096);
        const QString path = ollama ? QStringLiteral("/api/chat") : QStringLiteral("/v1/chat/completions");
        for (const Case &c : cases) {
            StubReply reply = c.reply;
            if (QByteArray(c.name) == "HTML 502")
                reply.status = 502;
            stub.reply(QStringLiteral("POST"), path, { reply });
            ModelServerClient::Options options;
            options.server = stub.url();
            options.model = model;
            ModelServerClient client(options);
            try {
                client.respondStructured(request(), {});
                ADD_FAILURE() << c.name << " succeeded";
            } catch (const GenerationError &error) {
                EXPECT_EQ(error.kind, c.expected.value_or(Kind::other)) << c.name << (ollama ? " ollama" : " openai");
                if (QByteArray(c.name) == "500")
                    EXPECT_EQ(error.description, u"The model server answered HTTP 500: out of memory");
                if (QByteArray(c.name) == "HTML 502")
                    EXPECT_EQ(error.description, u"The model server answered HTTP 502");
            }
        }
    }
}

TEST_F(ModelClientTest, structuredReplies_areCheckedNeverTrusted)
{
    server.serveOllama({ model });
    const QString cut = QStringLiteral(R"({"firstPage":true,"kind":"Util)");
    const Case cases[] = {
        { "valid", StubModelServer::ollamaChat(factsJson), std::nullopt },
        { "cut at the cap", StubModelServer::ollamaChat(cut, QStringLiteral("length"), 100, 300),
            Kind::decodingFailure },
        { "prose", StubModelServer::ollamaChat(QStringLiteral("The sender is Acme Water.")), Kind::decodingFailure },
        { "kind off the list",
            StubModelServer::ollamaChat(
                QString(factsJson).replace(QStringLiteral("Utility bill"), QStringLiteral("Water bill"))),
            Kind::decodingFailure },
        { "firstPage as text",
            StubModelServer::ollamaChat(QString(factsJson).replace(QStringLiteral("true"), QStringLiteral("\"true\""))),
            Kind::decodingFailure },
        { "field missing", StubModelServer::ollamaChat(QStringLiteral(R"({"firstPage":true,"kind":"Bill"})")),
            Kind::decodingFailure },
        { "empty body", raw(""), Kind::decodingFailure },
        { "not JSON", raw("Hello", "text/plain"), Kind::decodingFailure },
        { "HTML", raw("<!doctype html><title>OK</title>", "text/html"), Kind::decodingFailure },
        { "envelope cut", raw(R"({"message":{"role":"assistant","content":"{\"firstPage\")"), Kind::decodingFailure },
        { "content a number", raw(R"({"message":{"role":"assistant","content":42},"done":true})"),
            Kind::decodingFailure },
        { "message an array", raw(R"({"message":[1,2,3]})"), Kind::decodingFailure },
        { "counts out of range",
            raw(R"({"message":{"content":"{\"firstPage\":false,\"kind\":\"Bill\",\"organization\":\"\",)"
                R"(\"dateLabel\":\"\",\"date\":\"\"}"},"prompt_eval_count":1e300,"eval_count":-5})"),
            std::nullopt },
        { "refusal", raw(R"({"message":{"role":"assistant","content":"","refusal":"I can't read mail."}})"),
            Kind::refusal },
    };
    for (const Case &c : cases) {
        server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"), { c.reply });
        ModelServerClient ollama = client();
        EXPECT_EQ(structuredError(ollama), c.expected) << c.name << ": " << lastError.toStdString();
    }
}

TEST_F(ModelClientTest, openAIReplies_refusalAndContentFilter)
{
    server.serveLlamaServer({ model }, 4096);
    server.reply(QStringLiteral("POST"), QStringLiteral("/v1/chat/completions"),
        { StubModelServer::openAIChat(QString(), QStringLiteral("stop"), QStringLiteral("I can't help with that.")),
            StubModelServer::openAIChat(QString(), QStringLiteral("content_filter")), raw(R"({"choices":[]})") });
    ModelServerClient llama = client();
    try {
        llama.respondStructured(request(), {});
        ADD_FAILURE() << "no refusal";
    } catch (const GenerationError &error) {
        EXPECT_EQ(error.kind, Kind::refusal);
        EXPECT_EQ(error.refusalExplanation, u"I can't help with that.");
    }
    EXPECT_EQ(structuredError(llama), Kind::guardrailViolation);
    EXPECT_EQ(structuredError(llama), Kind::decodingFailure);
}

TEST_F(ModelClientTest, transportFailures_oversizeDroppedAndClosedServers)
{
    server.serveOllama({ model });
    StubReply huge = StubModelServer::ollamaChat(QString(10 * 1024 * 1024, u'x'));
    StubReply dropped = StubModelServer::ollamaChat(factsJson);
    dropped.cutAfter = 20;
    server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"), { huge, dropped });
    ModelServerClient ollama = client();
    EXPECT_EQ(structuredError(ollama), Kind::decodingFailure);
    EXPECT_TRUE(lastError.contains(u"larger than 4 MB")) << lastError.toStdString();
    // A server restarted mid-answer is a server not answering: the scan is retried later.
    EXPECT_EQ(structuredError(ollama), Kind::assetsUnavailable);

    QUrl closed;
    {
        StubModelServer gone;
        closed = gone.url();
    }
    ModelServerClient::Options options;
    options.server = closed;
    options.model = model;
    ModelServerClient nobody(options);
    EXPECT_EQ(structuredError(nobody), Kind::assetsUnavailable);
    EXPECT_EQ(lastError, u"The model server at 127.0.0.1:" + QString::number(closed.port()) + u" isn't answering");
}
