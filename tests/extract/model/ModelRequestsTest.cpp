#include "extract/PageFacts.h"
#include "extract/model/ChatMessages.h"

#include <QJsonArray>
#include <QJsonDocument>

#include "ModelClientFixture.h"

using namespace Extractor;
using Kind = GenerationError::Kind;

namespace {
const PageFacts expectedFacts { true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"),
    QStringLiteral("Bill Date"), QStringLiteral("2024-03-12") };

void expectMessages(const QJsonObject &body, const QString &user)
{
    const QJsonArray messages = body.value(QStringLiteral("messages")).toArray();
    ASSERT_EQ(messages.size(), 2);
    EXPECT_EQ(messages[0].toObject().value(QStringLiteral("role")).toString(), u"system");
    EXPECT_EQ(messages[0].toObject().value(QStringLiteral("content")).toString(), u"File the mail.");
    EXPECT_EQ(messages[1].toObject().value(QStringLiteral("role")).toString(), u"user");
    EXPECT_EQ(messages[1].toObject().value(QStringLiteral("content")).toString(), user);
    EXPECT_EQ(body.value(QStringLiteral("model")).toString(), u"qwen2.5:3b");
    EXPECT_EQ(body.value(QStringLiteral("stream")), QJsonValue(false));
}
} // namespace

TEST_F(ModelClientTest, ollamaStructured_sendsSchemaInOrderGreedyOptionsAndContext)
{
    server.serveOllama({ model });
    server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"), { StubModelServer::ollamaChat(factsJson) });
    ModelServerClient ollama = client(8192);
    EXPECT_EQ(ollama.respondStructured(request(), {}), expectedFacts);

    const std::vector<StubRequest> sent = server.requests(QStringLiteral("/api/chat"));
    ASSERT_EQ(sent.size(), 1u);
    const QJsonObject body = sent[0].json();
    expectMessages(body, ChatMessages::withSchema(QStringLiteral("Page text")));
    EXPECT_TRUE(sent[0].body.contains(QByteArray("\"format\":").append(PageFacts::schema())));
    const QJsonObject options = body.value(QStringLiteral("options")).toObject();
    EXPECT_EQ(options.value(QStringLiteral("temperature")).toInt(-1), 0);
    EXPECT_EQ(options.value(QStringLiteral("top_k")).toInt(), 1);
    EXPECT_TRUE(options.value(QStringLiteral("seed")).isDouble());
    EXPECT_EQ(options.value(QStringLiteral("num_predict")).toInt(), 300);
    EXPECT_EQ(options.value(QStringLiteral("num_ctx")).toInt(), 8192);
    EXPECT_EQ(ollama.contextSize(), 8192);
    EXPECT_EQ(ollama.count(QStringLiteral("some words")), std::nullopt);
}

TEST_F(ModelClientTest, openAIStructured_sendsJsonSchemaResponseFormatAndMaxTokens)
{
    server.serveLlamaServer({ model }, 8192);
    server.reply(
        QStringLiteral("POST"), QStringLiteral("/v1/chat/completions"), { StubModelServer::openAIChat(factsJson) });
    ModelServerClient llama = client();
    EXPECT_EQ(llama.respondStructured(request(QStringLiteral("Page text"), 250), {}), expectedFacts);

    const std::vector<StubRequest> sent = server.requests(QStringLiteral("/v1/chat/completions"));
    ASSERT_EQ(sent.size(), 1u);
    const QJsonObject body = sent[0].json();
    expectMessages(body, ChatMessages::withSchema(QStringLiteral("Page text")));
    const QJsonObject format = body.value(QStringLiteral("response_format")).toObject();
    EXPECT_EQ(format.value(QStringLiteral("type")).toString(), u"json_schema");
    EXPECT_EQ(format.value(QStringLiteral("json_schema")).toObject().value(QStringLiteral("schema")).toObject(),
        QJsonDocument::fromJson(PageFacts::schema()).object());
    EXPECT_EQ(body.value(QStringLiteral("temperature")).toInt(-1), 0);
    EXPECT_EQ(body.value(QStringLiteral("top_k")).toInt(), 1);
    EXPECT_EQ(body.value(QStringLiteral("max_tokens")).toInt(), 250);
    EXPECT_EQ(llama.contextSize(), 8192);
}

TEST_F(ModelClientTest, plainText_bothDialects_sendPromptAloneAndReturnTheReply)
{
    const QString reply = QStringLiteral("First page: yes\nType: Bill\nOrganization: Acme");
    server.serveOllama({ model });
    server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"),
        { StubModelServer::ollamaChat(reply, QStringLiteral("length")) });
    EXPECT_EQ(client().respondText(request(QStringLiteral("Page text"), 150), {}), reply);
    const QJsonObject ollamaBody = server.requests(QStringLiteral("/api/chat")).at(0).json();
    expectMessages(ollamaBody, QStringLiteral("Page text"));
    EXPECT_FALSE(ollamaBody.contains(QStringLiteral("format")));
    EXPECT_EQ(ollamaBody.value(QStringLiteral("options")).toObject().value(QStringLiteral("num_predict")).toInt(), 150);

    StubModelServer llamaServer;
    llamaServer.serveLlamaServer({ model }, 4096);
    llamaServer.reply(
        QStringLiteral("POST"), QStringLiteral("/v1/chat/completions"), { StubModelServer::openAIChat(reply) });
    ModelServerClient::Options options;
    options.server = llamaServer.url();
    options.model = model;
    EXPECT_EQ(ModelServerClient(options).respondText(request(), {}), reply);
    const QJsonObject openAIBody = llamaServer.requests(QStringLiteral("/v1/chat/completions")).at(0).json();
    expectMessages(openAIBody, QStringLiteral("Page text"));
    EXPECT_FALSE(openAIBody.contains(QStringLiteral("response_format")));
}

TEST_F(ModelClientTest, llamaServerCounting_tokenizesAndFallsBackToTheSettingWithoutProps)
{
    server.serveLlamaServer({ model }, 2048, 4);
    ModelServerClient llama = client();
    EXPECT_EQ(llama.count(QStringLiteral("twelve bytes")), 3);
    EXPECT_EQ(llama.count(QString()), 0);
    EXPECT_EQ(llama.count(QStringLiteral("twelve bytes")), 3);
    EXPECT_EQ(server.requests(QStringLiteral("/tokenize")).size(), 2u); // the repeated text was kept
    EXPECT_TRUE(llama.systemDescription().startsWith(u"qwen2.5:3b on OpenAI-compatible server at 127.0.0.1:"
        + QString::number(server.url().port()) + u", context 2048 tokens, Linux "));

    // A server with neither /props nor /tokenize (LM Studio): the setting, and no counts, asked once.
    StubModelServer plain;
    plain.reply(QStringLiteral("GET"), QStringLiteral("/v1/models"), { StubModelServer::json(200, R"({"data":[]})") });
    ModelServerClient::Options options;
    options.server = plain.url();
    options.model = model;
    options.contextTokens = 3000;
    ModelServerClient other(options);
    EXPECT_EQ(other.contextSize(), 3000);
    EXPECT_EQ(other.count(QStringLiteral("a")), std::nullopt);
    EXPECT_EQ(other.count(QStringLiteral("b")), std::nullopt);
    EXPECT_EQ(plain.requests(QStringLiteral("/tokenize")).size(), 1u);
}

TEST_F(ModelClientTest, ollamaOverflow_decidedByBytesBeforeSendingAndByCountsAfter)
{
    server.serveOllama({ model });
    server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"),
        { StubModelServer::ollamaChat(QStringLiteral("ok"), QStringLiteral("stop"), 800, 99),
            StubModelServer::ollamaChat(QStringLiteral("ok"), QStringLiteral("stop"), 900, 100) });
    ModelServerClient ollama = client(1000);
    // 14 bytes of instructions + 2686 of prompt = 900 estimated tokens, + 100 for the answer: fits exactly.
    const ModelRequest fits { QStringLiteral("File the mail."), QString(2686, u'a'), 100 };
    EXPECT_EQ(ollama.respondText(fits, {}), u"ok");
    try {
        ollama.respondText({ fits.instructions, fits.prompt + u"abc", 100 }, {});
        ADD_FAILURE() << "no overflow";
    } catch (const GenerationError &error) {
        EXPECT_EQ(error.kind, Kind::exceededContextWindowSize);
    }
    EXPECT_EQ(server.requests(QStringLiteral("/api/chat")).size(), 1u);
    // The second reply used 900 + 100 tokens: the whole context, so the prompt may have been cut.
    try {
        ollama.respondText(fits, {});
        ADD_FAILURE() << "no overflow";
    } catch (const GenerationError &error) {
        EXPECT_EQ(error.kind, Kind::exceededContextWindowSize);
    }
}

TEST_F(ModelClientTest, llamaServerOverflow_countsTokensAndTheCapAgainstNCtx)
{
    // One token per byte: "File the mail." is 14, the template 16, so 470 bytes of prompt and a cap of
    // 12 fill 512 exactly.
    server.serveLlamaServer({ model }, 512, 1);
    server.reply(QStringLiteral("POST"), QStringLiteral("/v1/chat/completions"),
        { StubModelServer::openAIChat(QStringLiteral("ok")) });
    ModelServerClient llama = client();
    EXPECT_EQ(llama.respondText({ QStringLiteral("File the mail."), QString(470, u'a'), 12 }, {}), u"ok");
    try {
        llama.respondText({ QStringLiteral("File the mail."), QString(470, u'a'), 13 }, {});
        ADD_FAILURE() << "no overflow";
    } catch (const GenerationError &error) {
        EXPECT_EQ(error.kind, Kind::exceededContextWindowSize);
        EXPECT_TRUE(error.description.contains(u"context holds 512")) << error.description.toStdString();
    }
    EXPECT_EQ(server.requests(QStringLiteral("/v1/chat/completions")).size(), 1u);
}
