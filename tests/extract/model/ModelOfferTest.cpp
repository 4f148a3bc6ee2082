#include "extract/Instructions.h"
#include "extract/model/ModelSettings.h"

#include "ModelClientFixture.h"

using namespace Extractor;

// Both dialects list their models under the names requests use; the chosen one decides availability.
TEST_F(ModelClientTest, offer_listsTheModelsOfEitherDialect)
{
    server.serveOllama({ u"llama3.2:latest"_s, model });
    const ModelServerClient::Offer ollama = client().offer();
    EXPECT_EQ(ollama.kind, ServerKind::ollama);
    EXPECT_EQ(ollama.models, (QStringList { u"llama3.2:latest"_s, model }));
    EXPECT_TRUE(ollama.availability.available);
    EXPECT_FALSE(ollama.listProblem);

    StubModelServer llamaServer;
    llamaServer.serveLlamaServer({ u"gemma-3-4b"_s }, 4096);
    const ModelServerClient::Offer llama = client(4096, llamaServer.url()).offer();
    EXPECT_EQ(llama.kind, ServerKind::openAICompatible);
    EXPECT_EQ(llama.models, QStringList { u"gemma-3-4b"_s });
    EXPECT_EQ(llama.availability.problem, u"The model “qwen2.5:3b” isn't installed on the model server"_s);
}

// A server that answers with something else than a model list says so and offers nothing; one that
// doesn't answer has no dialect.
TEST_F(ModelClientTest, offer_garbageOrSilence_saysWhyAndListsNothing)
{
    server.reply(u"GET"_s, u"/api/version"_s, { StubModelServer::json(200, "<html>It works!</html>") });
    server.reply(u"GET"_s, u"/v1/models"_s,
        { StubModelServer::json(200, "<html>It works!</html>"), StubModelServer::json(404, "Not Found"),
            StubModelServer::json(200, R"({"data":"none"})") });
    for (const QString &why : { u"with no list of models: <html>It works!</html>"_s, u"HTTP 404 to /v1/models"_s,
             u"with no list of models"_s }) {
        const ModelServerClient::Offer garbage = client().offer();
        EXPECT_TRUE(garbage.models.isEmpty());
        EXPECT_FALSE(garbage.availability.available);
        ASSERT_TRUE(garbage.listProblem);
        EXPECT_TRUE(garbage.listProblem->contains(why)) << garbage.listProblem->toStdString();
    }

    QUrl gone;
    {
        StubModelServer stopped;
        gone = stopped.url();
    }
    const ModelServerClient::Offer silent = client(4096, gone).offer();
    EXPECT_FALSE(silent.kind);
    EXPECT_FALSE(silent.listProblem);
    EXPECT_EQ(silent.availability.problem, u"The model server at " + serverAddress(gone) + u" isn't answering");
}

TEST(ModelSettingsTest, serverProblem_refusesWhatCantNameAServer)
{
    for (const QString &usable : { QString(), u"  "_s, u"localhost:8080"_s, u"http://127.0.0.1:11434"_s,
             u"https://models.example.org/v1"_s, u"[::1]:8080"_s }) {
        EXPECT_FALSE(ModelSettings::serverProblem(usable)) << usable.toStdString();
    }
    for (const QString &unusable :
        { u"not a server"_s, u"ftp://files.example.org"_s, u"http://"_s, u"localhost:99999"_s, u"http://a b"_s })
        EXPECT_TRUE(ModelSettings::serverProblem(unusable)) << unusable.toStdString();
}
