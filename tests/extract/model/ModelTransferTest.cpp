#include <future>
#include <thread>

#include "ModelClientFixture.h"
#include "core/Cancellation.h"

using namespace Extractor;

TEST_F(ModelClientTest, stopRequested_abortsTheRequestInFlight)
{
    server.serveOllama({ model });
    StubReply held = StubModelServer::ollamaChat(factsJson);
    held.hold = true;
    server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"), { held });
    ModelServerClient::Options options;
    options.server = server.url();
    options.model = model; // the default limits: only the stop can end this request soon
    ModelServerClient ollama(options);
    std::stop_source stop;
    auto answer = std::async(std::launch::async, [&] { return ollama.respondStructured(request(), stop.get_token()); });
    ASSERT_TRUE(server.waitForRequests(QStringLiteral("/api/chat"), 1, std::chrono::seconds(20)));
    stop.request_stop();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_THROW(answer.get(), Cancelled);
    server.release();

    // Stopped before it starts: nothing is sent.
    EXPECT_THROW(ollama.respondText(request(), stop.get_token()), Cancelled);
    EXPECT_THROW(ollama.availability(stop.get_token()), Cancelled);
    EXPECT_EQ(server.requests(QStringLiteral("/api/chat")).size(), 1u);
}

TEST_F(ModelClientTest, serverThatNeverAnswers_failsAfterTheIdleLimit)
{
    server.serveOllama({ model });
    StubReply held = StubModelServer::ollamaChat(factsJson);
    held.hold = true;
    server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"), { held });
    ModelServerClient::Options options = client().options();
    options.limits.total = std::chrono::minutes(5); // only the idle limit can end it within the deadline
    ModelServerClient ollama(options);
    auto answer = std::async(std::launch::async, [&] { return structuredError(ollama); });
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(answer.get(), GenerationError::Kind::assetsUnavailable);
    server.release();
}
