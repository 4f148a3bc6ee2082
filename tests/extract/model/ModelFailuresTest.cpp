#include "core/Cancellation.h"
#include "extract/model/ModelSettings.h"

#include <QCoreApplication>
#include <QSettings>

#include <future>

#include "ModelClientFixture.h"

using namespace Extractor;

namespace {
struct Case {
    const char *name;
    StubReply reply;
    std::optional<Kind> expected;
};

StubReply raw(const QByteArray &body, const QByteArray &type = "application/json", int status = 200)
{
    StubReply reply = StubModelServer::json(status, body);
    reply.contentType = type;
    return reply;
}

Availability unavailable(const QString &problem)
{
    return { false, problem };
}
} // namespace

// ---- Errors ----

TEST_F(ModelClientTest, httpStatuses_mapOntoGenerationErrors_inBothDialects)
{
    const Case cases[] = {
        { "429", StubModelServer::json(429, R"({"error":"too many requests"})"), Kind::rateLimited },
        { "503", StubModelServer::json(503, R"({"error":{"code":503,"message":"Loading model"}})"),
            Kind::concurrentRequests },
        { "model missing", StubModelServer::json(404, R"({"error":"model \"qwen2.5:3b\" not found, try pulling it"})"),
            Kind::assetsUnavailable },
        { "context",
            StubModelServer::json(400, R"({"error":{"message":"the request exceeds the available context size"}})"),
            Kind::exceededContextWindowSize },
        { "schema", StubModelServer::json(400, R"({"error":"invalid JSON schema in format"})"),
            Kind::unsupportedGuide },
        { "500", StubModelServer::json(500, R"({"error":"out of memory"})"), Kind::other },
        { "HTML 502", raw("<html><body>Bad gateway</body></html>", "text/html", 502), Kind::other },
    };
    for (const bool ollama : { true, false }) {
        QStringList described;
        StubModelServer stub;
        if (ollama)
            stub.serveOllama({ model });
        else
            stub.serveLlamaServer({ model }, 4096);
        for (const Case &c : cases) {
            stub.reply(u"POST"_s, ollama ? u"/api/chat"_s : u"/v1/chat/completions"_s, { c.reply });
            ModelServerClient target = client(4096, stub.url());
            EXPECT_EQ(error(target), c.expected) << c.name << (ollama ? " ollama" : " openai");
            if (c.expected == Kind::other)
                described.append(lastError);
        }
        // The server's own words when it gives some, the status alone otherwise.
        EXPECT_EQ(described,
            (QStringList {
                u"The model server answered HTTP 500: out of memory"_s, u"The model server answered HTTP 502"_s }));
    }
}

TEST_F(ModelClientTest, structuredReplies_areCheckedNeverTrusted)
{
    server.serveOllama({ model });
    const QString cut = uR"({"firstPage":true,"kind":"Util)"_s;
    const Case cases[] = {
        { "valid", StubModelServer::ollamaChat(factsJson), std::nullopt },
        { "cut at the cap", StubModelServer::ollamaChat(cut, u"length"_s, 100, 300), Kind::decodingFailure },
        { "prose", StubModelServer::ollamaChat(u"The sender is Acme Water."_s), Kind::decodingFailure },
        { "kind off the list", StubModelServer::ollamaChat(QString(factsJson).replace(u"Utility"_s, u"Water"_s)),
            Kind::decodingFailure },
        { "field missing", StubModelServer::ollamaChat(uR"({"firstPage":true,"kind":"Bill"})"_s),
            Kind::decodingFailure },
        { "not JSON", raw("Hello", "text/plain"), Kind::decodingFailure },
        { "envelope cut", raw(R"({"message":{"role":"assistant","content":"{\"firstPage\")"), Kind::decodingFailure },
        { "counts out of range",
            raw(R"({"message":{"content":"{\"firstPage\":false,\"kind\":\"Bill\",\"organization\":\"\",)"
                R"(\"dateLabel\":\"\",\"date\":\"\"}"},"prompt_eval_count":1e300,"eval_count":-5})"),
            std::nullopt },
        { "refusal", raw(R"({"message":{"content":"","refusal":"I can't read mail."}})"), Kind::refusal },
    };
    for (const Case &c : cases) {
        server.reply(u"POST"_s, u"/api/chat"_s, { c.reply });
        ModelServerClient ollama = client();
        EXPECT_EQ(error(ollama), c.expected) << c.name << ": " << lastError.toStdString();
    }

    // OpenAI-compatible servers refuse or filter in their own fields.
    StubModelServer llamaServer;
    llamaServer.serveLlamaServer({ model }, 4096);
    llamaServer.reply(u"POST"_s, u"/v1/chat/completions"_s,
        { StubModelServer::openAIChat(QString(), u"stop"_s, u"I can't help with that."_s),
            StubModelServer::openAIChat(QString(), u"content_filter"_s), raw(R"({"choices":[]})") });
    ModelServerClient llama = client(4096, llamaServer.url());
    try {
        llama.respondStructured(request(), {});
        ADD_FAILURE() << "no refusal";
    } catch (const GenerationError &refused) {
        EXPECT_EQ(refused.kind, Kind::refusal);
        EXPECT_EQ(refused.refusalExplanation, u"I can't help with that.");
    }
    EXPECT_EQ(error(llama), Kind::guardrailViolation);
    EXPECT_EQ(error(llama), Kind::decodingFailure);
}

TEST_F(ModelClientTest, transportFailures_oversizeDroppedAndClosedServers)
{
    server.serveOllama({ model });
    StubReply dropped = StubModelServer::ollamaChat(factsJson);
    dropped.cutAfter = 20;
    server.reply(u"POST"_s, u"/api/chat"_s, { StubModelServer::ollamaChat(QString(10 * 1024 * 1024, u'x')), dropped });
    ModelServerClient ollama = client();
    EXPECT_EQ(error(ollama), Kind::decodingFailure);
    EXPECT_TRUE(lastError.contains(u"larger than 4 MB")) << lastError.toStdString();
    // A server restarted mid-answer is a server not answering: the scan is retried later.
    EXPECT_EQ(error(ollama), Kind::assetsUnavailable);

    const QUrl closed = closedServer();
    ModelServerClient nobody = client(4096, closed);
    EXPECT_EQ(error(nobody), Kind::assetsUnavailable);
    EXPECT_EQ(lastError, u"The model server at 127.0.0.1:"_s + QString::number(closed.port()) + u" isn't answering"_s);
}

// ---- Stopping and servers that never answer ----

TEST_F(ModelClientTest, stopRequested_abortsTheRequestInFlightAndSendsNoOther)
{
    server.serveOllama({ model });
    StubReply held = StubModelServer::ollamaChat(factsJson);
    held.hold = true;
    server.reply(u"POST"_s, u"/api/chat"_s, { held });
    ModelServerClient::Options options;
    options.server = server.url();
    options.model = model; // the default limits: only the stop can end this request soon
    ModelServerClient ollama(options);
    std::stop_source stop;
    auto answer = std::async(std::launch::async, [&] { return ollama.respondStructured(request(), stop.get_token()); });
    ASSERT_TRUE(server.waitForRequests(u"/api/chat"_s, 1, std::chrono::seconds(20)));
    stop.request_stop();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_THROW(answer.get(), Cancelled);
    server.release();

    EXPECT_THROW(ollama.respondText(request(), stop.get_token()), Cancelled);
    EXPECT_THROW(ollama.availability(stop.get_token()), Cancelled);
    EXPECT_EQ(server.requests(u"/api/chat"_s).size(), 1u);
}

TEST_F(ModelClientTest, serverThatNeverAnswers_failsAfterTheIdleLimitOrTheProbeLimit)
{
    server.serveOllama({ model });
    StubReply held = StubModelServer::ollamaChat(factsJson);
    held.hold = true;
    server.reply(u"POST"_s, u"/api/chat"_s, { held });
    ModelServerClient::Options options = client().options();
    options.limits.total = std::chrono::minutes(5); // only the idle limit can end it within the deadline
    ModelServerClient ollama(options);
    auto answer = std::async(std::launch::async, [&] { return error(ollama); });
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(answer.get(), Kind::assetsUnavailable);

    StubModelServer silent;
    StubReply version = StubModelServer::json(200, R"({"version":"0.5.7"})");
    version.hold = true;
    silent.reply(u"GET"_s, u"/api/version"_s, { version });
    options = client(4096, silent.url()).options();
    options.limits.probe = std::chrono::seconds(1);
    EXPECT_FALSE(ModelServerClient(options).availability().available);
    silent.release();
    server.release();
}

// ---- Availability, as the user reads it ----

TEST_F(ModelClientTest, ollamaAvailability_modelListedOrMissing)
{
    server.serveOllama({ u"llama3.2:latest"_s, model });
    EXPECT_EQ(client().availability(), (Availability { true, std::nullopt }));
    EXPECT_EQ(client().serverKind(), ServerKind::ollama);

    server.serveOllama({ u"qwen2.5:latest"_s });
    EXPECT_EQ(client().availability(), unavailable(u"The model “qwen2.5:3b” isn't installed on the model server"_s));
    ModelServerClient::Options untagged = client().options();
    untagged.model = u"qwen2.5"_s;
    EXPECT_TRUE(ModelServerClient(untagged).availability().available);

    server.reply(u"GET"_s, u"/api/tags"_s, { StubModelServer::json(200, "<html></html>") });
    EXPECT_EQ(client().availability(), unavailable(u"The local model is unavailable"_s));
}

TEST_F(ModelClientTest, openAIAvailability_loadingListedNotAnsweringOrNoServer)
{
    // llama-server answers 503 everywhere while it loads its model.
    server.reply(u"GET"_s, u"/api/version"_s, { StubModelServer::json(503, "{}") });
    server.reply(u"GET"_s, u"/v1/models"_s,
        { StubModelServer::json(503, R"({"error":{"code":503,"message":"Loading model"}})") });
    ModelServerClient llama = client();
    EXPECT_EQ(llama.availability(), unavailable(u"The local model is still loading"_s));
    server.serveLlamaServer({ model }, 4096);
    EXPECT_EQ(llama.availability(), (Availability { true, std::nullopt }));
    EXPECT_EQ(llama.serverKind(), ServerKind::openAICompatible);
    // A server given with its /v1 path gets the API paths below it.
    EXPECT_TRUE(client(4096, QUrl(server.url().toString() + u"/v1/"_s)).availability().available);

    const QUrl closed = closedServer();
    EXPECT_EQ(client(4096, closed).availability(),
        unavailable(u"The model server at 127.0.0.1:"_s + QString::number(closed.port()) + u" isn't answering"_s));
    EXPECT_EQ(
        client(4096, QUrl(u"ftp://127.0.0.1/"_s)).availability(), unavailable(u"Choose a model server in Settings"_s));
}

TEST(ModelSettings, load_storedValuesBadContextAndOverrides)
{
    // Settings of their own, apart from other tests running at the same time.
    QCoreApplication::setOrganizationName(u"VellumarkTests"_s);
    QCoreApplication::setApplicationName(u"ModelSettingsTest"_s);
    QSettings stored;
    stored.setValue(ModelSettings::serverKey, u" localhost:8080 "_s);
    stored.setValue(ModelSettings::modelKey, u"llama3.2"_s);
    stored.setValue(ModelSettings::contextKey, 8192);
    const ModelSettings settings = ModelSettings::load();
    EXPECT_EQ(settings.server, QUrl(u"http://localhost:8080"_s));
    EXPECT_EQ(settings.model, u"llama3.2");
    EXPECT_EQ(settings.contextTokens, 8192);
    stored.setValue(ModelSettings::contextKey, u"lots"_s);
    EXPECT_EQ(ModelSettings::load().contextTokens, ModelSettings::defaultContext);
    stored.clear();

    const ModelSettings run = settings.overridden(u"http://10.0.0.2:1234/v1"_s, u"mistral"_s);
    EXPECT_EQ(run.server, QUrl(u"http://10.0.0.2:1234/v1"_s));
    EXPECT_EQ(run.client()->options().model, u"mistral");
    EXPECT_EQ(settings.overridden(u" "_s, std::nullopt).model, u"llama3.2");
}
