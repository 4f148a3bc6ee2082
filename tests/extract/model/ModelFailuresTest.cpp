#include "core/Cancellation.h"
#include "extract/model/ModelSettings.h"

#include <QCoreApplication>
#include <QSettings>

#include <future>

#include "ModelClientFixture.h"

using namespace Extractor;

namespace {
StubReply raw(const QByteArray &body, const QByteArray &type = "application/json")
{
    StubReply reply = StubModelServer::json(200, body);
    reply.contentType = type;
    return reply;
}

// A server on a port nobody listens on any more.
QUrl closedServer()
{
    StubModelServer gone;
    return gone.url();
}
} // namespace

// The kinds decide what the extraction does next: try later, shorten the request, or give up the page.
TEST_F(ModelClientTest, httpStatuses_mapOntoGenerationErrors_inBothDialects)
{
    const std::pair<StubReply, Kind> cases[] = {
        { StubModelServer::json(429, R"({"error":"too many requests"})"), Kind::rateLimited },
        { StubModelServer::json(503, R"({"error":{"code":503,"message":"Loading model"}})"), Kind::concurrentRequests },
        { StubModelServer::json(404, R"({"error":"model \"qwen2.5:3b\" not found, try pulling it"})"),
            Kind::assetsUnavailable },
        { StubModelServer::json(400, R"({"error":{"message":"the request exceeds the available context size"}})"),
            Kind::exceededContextWindowSize },
        { StubModelServer::json(400, R"({"error":"invalid JSON schema in format"})"), Kind::unsupportedGuide },
        { StubModelServer::json(500, R"({"error":"out of memory"})"), Kind::other },
    };
    for (const bool ollama : { true, false }) {
        StubModelServer stub;
        ollama ? stub.serveOllama({ model }) : stub.serveLlamaServer({ model }, 4096);
        for (const auto &[reply, kind] : cases) {
            stub.reply(u"POST"_s, ollama ? u"/api/chat"_s : u"/v1/chat/completions"_s, { reply });
            ModelServerClient target = client(4096, stub.url());
            EXPECT_EQ(error(target), kind) << reply.body.toStdString() << (ollama ? " ollama" : " openai");
        }
        // The server's own words.
        EXPECT_EQ(lastError, u"The model server answered HTTP 500: out of memory"_s);
    }
}

TEST_F(ModelClientTest, repliesAreCheckedNeverTrusted)
{
    server.serveOllama({ model });
    StubReply dropped = StubModelServer::ollamaChat(factsJson);
    dropped.cutAfter = 20;
    const std::pair<StubReply, std::optional<Kind>> cases[] = {
        { StubModelServer::ollamaChat(factsJson), std::nullopt },
        { StubModelServer::ollamaChat(uR"({"firstPage":true,"kind":"Util)"_s, u"length"_s, 100, 300),
            Kind::decodingFailure },
        { StubModelServer::ollamaChat(u"The sender is Acme Water."_s), Kind::decodingFailure },
        { raw("Hello", "text/plain"), Kind::decodingFailure },
        { raw(R"({"message":{"role":"assistant","content":"{\"firstPage\")"), Kind::decodingFailure },
        // Token counts out of range are no counts.
        { raw(R"({"message":{"content":"{\"firstPage\":false,\"kind\":\"Bill\",\"organization\":\"\",)"
              R"(\"dateLabel\":\"\",\"date\":\"\"}"},"prompt_eval_count":1e300,"eval_count":-5})"),
            std::nullopt },
        { raw(R"({"message":{"content":"","refusal":"I can't read mail."}})"), Kind::refusal },
        { StubModelServer::ollamaChat(QString(10 * 1024 * 1024, u'x')), Kind::decodingFailure },
        // A server restarted mid-answer is a server not answering: the scan is retried later.
        { dropped, Kind::assetsUnavailable },
    };
    for (const auto &[reply, kind] : cases) {
        server.reply(u"POST"_s, u"/api/chat"_s, { reply });
        ModelServerClient ollama = client();
        EXPECT_EQ(error(ollama), kind) << reply.body.left(80).toStdString() << ": " << lastError.toStdString();
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

TEST_F(ModelClientTest, stopRequested_abortsTheRequestInFlightAndSendsNoOther)
{
    server.serveOllama({ model });
    StubReply held = StubModelServer::ollamaChat(factsJson);
    held.hold = true;
    server.reply(u"POST"_s, u"/api/chat"_s, { held });
    // The default limits: only the stop can end this request soon.
    ModelServerClient ollama({ .server = server.url(), .model = model });
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
    ModelServerClient::Options patient = options();
    patient.limits.total = std::chrono::minutes(5); // only the idle limit can end it within the deadline
    ModelServerClient ollama(patient);
    auto answer = std::async(std::launch::async, [&] { return error(ollama); });
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(answer.get(), Kind::assetsUnavailable);

    server.reply(u"GET"_s, u"/api/version"_s, { held });
    patient.limits.probe = std::chrono::seconds(1);
    EXPECT_FALSE(ModelServerClient(patient).availability().available);
    server.release();
}

TEST_F(ModelClientTest, availability_modelListedLoadingOrNoServer)
{
    server.serveOllama({ u"llama3.2:latest"_s, u"qwen2.5:latest"_s });
    EXPECT_EQ(
        client().availability().problem, u"The model \u201Cqwen2.5:3b\u201D isn't installed on the model server"_s);
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
    EXPECT_EQ(llama.serverKind(), ServerKind::openAICompatible);
    // A server given with its /v1 path gets the API paths below it.
    EXPECT_TRUE(client(4096, QUrl(loading.url().toString() + u"/v1/"_s)).availability().available);

    const QUrl closed = closedServer();
    EXPECT_EQ(client(4096, closed).availability().problem,
        u"The model server at 127.0.0.1:"_s + QString::number(closed.port()) + u" isn't answering"_s);
}

TEST(ModelSettings, load_storedValuesBadContextAndOverrides)
{
    // Settings of their own, apart from other tests running at the same time.
    QCoreApplication::setOrganizationName(u"VellumarkTests"_s);
    QCoreApplication::setApplicationName(u"ModelSettingsTest"_s);
    QSettings stored;
    stored.setValue(ModelSettings::serverKey, u" localhost:8080 "_s);
    stored.setValue(ModelSettings::modelKey, u"llama3.2"_s);
    stored.setValue(ModelSettings::contextKey, u"lots"_s);
    const ModelSettings settings = ModelSettings::load();
    stored.clear();
    EXPECT_EQ(settings.server, QUrl(u"http://localhost:8080"_s));
    EXPECT_EQ(settings.contextTokens, ModelSettings::defaultContext);

    const ModelSettings run = settings.overridden(u"http://10.0.0.2:1234/v1"_s, u"mistral"_s);
    EXPECT_EQ(run.server, QUrl(u"http://10.0.0.2:1234/v1"_s));
    EXPECT_EQ(run.client()->options().model, u"mistral");
    EXPECT_EQ(settings.overridden(u" "_s, std::nullopt).model, u"llama3.2");
}
