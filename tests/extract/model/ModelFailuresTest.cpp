#include "core/Cancellation.h"

#include <future>

#include "ModelClientFixture.h"

using namespace Extractor;

// Whatever a server sends is checked. The kinds of error decide what the extraction does next: try
// later, shorten the request, ask for plain text or give up the page.
TEST_F(ModelClientTest, repliesAreCheckedNeverTrusted)
{
    const auto ok = [](const QByteArray &body) { return StubModelServer::json(200, body); };
    StubReply dropped = StubModelServer::ollamaChat(factsJson);
    dropped.cutAfter = 20;
    const std::pair<StubReply, std::optional<Kind>> cases[] = {
        { StubModelServer::ollamaChat(factsJson), std::nullopt },
        { StubModelServer::json(429, R"({"error":"too many requests"})"), Kind::rateLimited },
        { StubModelServer::json(503, R"({"error":{"code":503,"message":"Loading model"}})"), Kind::concurrentRequests },
        { StubModelServer::json(404, R"({"error":"model \"qwen2.5:3b\" not found, try pulling it"})"),
            Kind::assetsUnavailable },
        { StubModelServer::json(400, R"({"error":{"message":"the request exceeds the available context size"}})"),
            Kind::exceededContextWindowSize },
        { StubModelServer::json(400, R"({"error":"invalid JSON schema in format"})"), Kind::unsupportedGuide },
        { StubModelServer::ollamaChat(uR"({"firstPage":true,"kind":"Util)"_s, u"length"_s, 100, 300),
            Kind::decodingFailure },
        { ok("Hello"), Kind::decodingFailure },
        { ok(R"({"message":{"role":"assistant","content":"{\"firstPage\")"), Kind::decodingFailure },
        // Token counts out of range are no counts.
        { ok(R"({"message":{"content":"{\"firstPage\":false,\"kind\":\"Bill\",\"organization\":\"\",)"
             R"(\"dateLabel\":\"\",\"date\":\"\"}"},"prompt_eval_count":1e300,"eval_count":-5})"),
            std::nullopt },
        { ok(R"({"message":{"content":"","refusal":"I can't read mail."}})"), Kind::refusal },
        { StubModelServer::ollamaChat(QString(10 * 1024 * 1024, u'x')), Kind::decodingFailure },
        // A server restarted mid-answer is a server not answering: the scan is retried later.
        { dropped, Kind::assetsUnavailable },
        { StubModelServer::json(500, R"({"error":"out of memory"})"), Kind::other },
    };
    server.serveOllama({ model });
    for (const auto &[reply, kind] : cases) {
        server.reply(u"POST"_s, u"/api/chat"_s, { reply });
        ModelServerClient ollama = client();
        EXPECT_EQ(error(ollama), kind) << reply.body.left(80).toStdString() << ": " << lastError.toStdString();
    }
    // The server's own words.
    EXPECT_EQ(lastError, u"The model server answered HTTP 500: out of memory"_s);

    // OpenAI-compatible servers refuse or filter in their own fields.
    StubModelServer llamaServer;
    llamaServer.serveLlamaServer({ model }, 4096);
    llamaServer.reply(u"POST"_s, u"/v1/chat/completions"_s,
        { StubModelServer::openAIChat(QString(), u"stop"_s, u"I can't help with that."_s),
            StubModelServer::openAIChat(QString(), u"content_filter"_s),
            StubModelServer::json(200, R"({"choices":[]})") });
    ModelServerClient llama = client(4096, llamaServer.url());
    EXPECT_EQ(error(llama), Kind::refusal);
    EXPECT_EQ(lastError, u"I can't help with that.");
    EXPECT_EQ(error(llama), Kind::guardrailViolation);
    EXPECT_EQ(error(llama), Kind::decodingFailure);
}

// A request to a server that never answers ends at once when stopped, and otherwise after the idle limit.
TEST_F(ModelClientTest, aRequestNeverAnswered_isEndedByAStopOrTheIdleLimit)
{
    server.serveOllama({ model });
    StubReply held = StubModelServer::ollamaChat(factsJson);
    held.hold = true;
    server.reply(u"POST"_s, u"/api/chat"_s, { held });
    // The default limits: only the stop can end this request soon.
    ModelServerClient patient({ .server = server.url(), .model = model });
    std::stop_source stop;
    auto answer
        = std::async(std::launch::async, [&] { return patient.respondStructured(request(), stop.get_token()); });
    ASSERT_TRUE(server.waitForRequests(u"/api/chat"_s, 1, std::chrono::seconds(20)));
    stop.request_stop();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_THROW(answer.get(), Cancelled);
    // Nothing more is sent once stopped.
    EXPECT_THROW(patient.respondText(request(), stop.get_token()), Cancelled);
    EXPECT_THROW(patient.availability(stop.get_token()), Cancelled);
    EXPECT_EQ(server.requests(u"/api/chat"_s).size(), 1u);

    ModelServerClient::Options idle = options();
    idle.limits.total = std::chrono::minutes(5); // only the idle limit can end it within the deadline
    ModelServerClient ollama(idle);
    auto failed = std::async(std::launch::async, [&] { return error(ollama); });
    ASSERT_EQ(failed.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(failed.get(), Kind::assetsUnavailable);

    server.reply(u"GET"_s, u"/api/version"_s, { held });
    idle.limits.probe = std::chrono::seconds(1);
    EXPECT_FALSE(ModelServerClient(idle).availability().available);
    server.release();
}

TEST_F(ModelClientTest, availability_modelListedByAnyTagOrStillLoading)
{
    server.serveOllama({ u"llama3.2:latest"_s, u"qwen2.5:latest"_s });
    EXPECT_FALSE(client().availability().available);
    ModelServerClient::Options untagged = options();
    untagged.model = u"qwen2.5"_s;
    EXPECT_TRUE(ModelServerClient(untagged).availability().available);

    // llama-server answers 503 everywhere while it loads its model.
    StubModelServer loading;
    loading.reply(u"GET"_s, u"/api/version"_s, { StubModelServer::json(503, "{}") });
    loading.reply(u"GET"_s, u"/v1/models"_s,
        { StubModelServer::json(503, R"({"error":{"code":503,"message":"Loading model"}})") });
    ModelServerClient llama = client(4096, loading.url());
    EXPECT_EQ(llama.availability().problem, u"The local model is still loading"_s);
    loading.serveLlamaServer({ model }, 4096);
    EXPECT_TRUE(llama.availability().available);
    // A server given with its /v1 path gets the API paths below it.
    EXPECT_TRUE(client(4096, QUrl(loading.url().toString() + u"/v1/"_s)).availability().available);
}
