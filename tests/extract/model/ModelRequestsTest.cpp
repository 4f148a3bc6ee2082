#include "extract/PageFacts.h"
#include "extract/model/ChatMessages.h"

#include <QJsonArray>
#include <QJsonDocument>

#include "ModelClientFixture.h"

using namespace Extractor;

// What each dialect sends: the instructions and the prompt (with the schema when the answer is
// structured), the schema where the server constrains the answer to it, the cap and Ollama's context.
TEST_F(ModelClientTest, requests_carryMessagesSchemaCapAndContextInEachDialect)
{
    for (const bool ollama : { true, false }) {
        SCOPED_TRACE(ollama ? "Ollama" : "OpenAI-compatible");
        StubModelServer stub;
        const QString path = ollama ? u"/api/chat"_s : u"/v1/chat/completions"_s;
        ollama ? stub.serveOllama({ model }) : stub.serveLlamaServer({ model }, 8192);
        const auto reply = [ollama](const QString &text) {
            return ollama ? StubModelServer::ollamaChat(text) : StubModelServer::openAIChat(text);
        };
        stub.reply(u"POST"_s, path, { reply(factsJson), reply(u"plain"_s) });
        ModelServerClient target = client(6000, stub.url());
        EXPECT_EQ(target.respondStructured(request(u"Page text"_s, 250), {}),
            (PageFacts { true, u"Utility bill"_s, u"Acme Water"_s, u"Bill Date"_s, u"2024-03-12"_s }));
        EXPECT_EQ(target.respondText(request(u"Page text"_s, 150), {}), u"plain");
        EXPECT_EQ(target.contextSize(), ollama ? 6000 : 8192);

        const std::vector<StubRequest> sent = stub.requests(path);
        ASSERT_EQ(sent.size(), 2u);
        const QJsonObject structured = sent[0].json();
        const QJsonObject text = sent[1].json();
        const auto user = [](const QJsonObject &body) { return body[u"messages"_s][1][u"content"_s].toString(); };
        EXPECT_EQ(user(structured), ChatMessages::withSchema(u"Page text"_s));
        EXPECT_EQ(user(text), u"Page text"_s);
        if (ollama) {
            // As written, properties in order: the model answers them in that order.
            EXPECT_TRUE(sent[0].body.contains(QByteArray("\"format\":").append(PageFacts::schema())));
            EXPECT_FALSE(text.contains(u"format"_s));
            EXPECT_EQ(structured[u"options"_s][u"num_predict"_s].toInt(), 250);
            EXPECT_EQ(text[u"options"_s][u"num_ctx"_s].toInt(), 6000);
        } else {
            EXPECT_EQ(structured[u"response_format"_s][u"json_schema"_s][u"schema"_s].toObject(),
                QJsonDocument::fromJson(PageFacts::schema()).object());
            EXPECT_FALSE(text.contains(u"response_format"_s));
            EXPECT_EQ(text[u"max_tokens"_s].toInt(), 150);
        }
    }
}

TEST_F(ModelClientTest, ollamaOverflow_decidedByBytesBeforeSendingAndByCountsAfter)
{
    server.serveOllama({ model });
    server.reply(u"POST"_s, u"/api/chat"_s,
        { StubModelServer::ollamaChat(u"ok"_s, u"stop"_s, 800, 99),
            StubModelServer::ollamaChat(u"ok"_s, u"stop"_s, 900, 100) });
    ModelServerClient ollama = client(1000);
    // 14 bytes of instructions + 2686 of prompt = 900 estimated tokens, + 100 for the answer: fits exactly.
    const ModelRequest fits = request(QString(2686, u'a'), 100);
    EXPECT_EQ(error(ollama, false, fits), std::nullopt);
    EXPECT_EQ(error(ollama, false, request(fits.prompt + u"abc"_s, 100)), Kind::exceededContextWindowSize);
    EXPECT_EQ(server.requests(u"/api/chat"_s).size(), 1u);
    // The second reply used 900 + 100 tokens: the whole context, so the prompt may have been cut.
    EXPECT_EQ(error(ollama, false, fits), Kind::exceededContextWindowSize);
}

TEST_F(ModelClientTest, llamaServerOverflow_countsTokensAndTheCapAgainstNCtx)
{
    // One token per byte: the instructions are 14, the template 16, so 470 of prompt and a cap of 12
    // fill 512 exactly.
    server.serveLlamaServer({ model }, 512, 1);
    server.reply(u"POST"_s, u"/v1/chat/completions"_s, { StubModelServer::openAIChat(u"ok"_s) });
    ModelServerClient llama = client();
    EXPECT_EQ(error(llama, false, request(QString(470, u'a'), 12)), std::nullopt);
    EXPECT_EQ(error(llama, false, request(QString(470, u'a'), 13)), Kind::exceededContextWindowSize);
    EXPECT_EQ(server.requests(u"/v1/chat/completions"_s).size(), 1u);
}
