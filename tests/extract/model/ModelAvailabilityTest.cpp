#include "extract/model/ModelSettings.h"

#include <QCoreApplication>
#include <QSettings>

#include "ModelClientFixture.h"

using namespace Extractor;

namespace {
Availability unavailable(const QString &problem)
{
    return { false, problem };
}
} // namespace

TEST_F(ModelClientTest, ollamaAvailability_modelListedOrMissing)
{
    server.serveOllama({ QStringLiteral("llama3.2:latest"), model });
    EXPECT_EQ(client().availability(), (Availability { true, std::nullopt }));
    EXPECT_EQ(client().serverKind(), ServerKind::ollama);

    server.serveOllama({ QStringLiteral("qwen2.5:latest") });
    EXPECT_EQ(client().availability(),
        unavailable(QStringLiteral("The model “qwen2.5:3b” isn't installed on the model server")));
    ModelServerClient::Options untagged = client().options();
    untagged.model = QStringLiteral("qwen2.5");
    EXPECT_TRUE(ModelServerClient(untagged).availability().available);

    server.reply(QStringLiteral("GET"), QStringLiteral("/api/tags"), { StubModelServer::json(200, "<html></html>") });
    EXPECT_EQ(client().availability(), unavailable(QStringLiteral("The local model is unavailable")));
}

TEST_F(ModelClientTest, openAIAvailability_loadingListedAndNotAnswering)
{
    // llama-server answers 503 everywhere while it loads its model.
    server.reply(QStringLiteral("GET"), QStringLiteral("/api/version"), { StubModelServer::json(503, "{}") });
    server.reply(QStringLiteral("GET"), QStringLiteral("/v1/models"),
        { StubModelServer::json(503, R"({"error":{"code":503,"message":"Loading model"}})") });
    ModelServerClient llama = client();
    EXPECT_EQ(llama.availability(), unavailable(QStringLiteral("The local model is still loading")));
    server.serveLlamaServer({ model }, 4096);
    EXPECT_EQ(llama.availability(), (Availability { true, std::nullopt }));
    EXPECT_EQ(llama.serverKind(), ServerKind::openAICompatible);

    QUrl closed;
    {
        StubModelServer gone;
        closed = gone.url();
    }
    ModelServerClient::Options options = llama.options();
    options.server = closed;
    EXPECT_EQ(ModelServerClient(options).availability(),
        unavailable(u"The model server at 127.0.0.1:" + QString::number(closed.port()) + u" isn't answering"));
    options.server = QUrl(QStringLiteral("ftp://127.0.0.1/"));
    EXPECT_EQ(
        ModelServerClient(options).availability(), unavailable(QStringLiteral("Choose a model server in Settings")));
}

TEST_F(ModelClientTest, probeThatNeverAnswers_isNotAnswering)
{
    StubReply held = StubModelServer::json(200, R"({"version":"0.5.7"})");
    held.hold = true;
    server.reply(QStringLiteral("GET"), QStringLiteral("/api/version"), { held });
    ModelServerClient::Options options = client().options();
    options.limits.probe = std::chrono::seconds(1);
    EXPECT_FALSE(ModelServerClient(options).availability().available);
    server.release();
}

class ModelSettingsTest : public ::testing::Test {
protected:
    // Settings of their own, apart from other tests running at the same time.
    void SetUp() override
    {
        QCoreApplication::setOrganizationName(QStringLiteral("VellumarkTests"));
        QCoreApplication::setApplicationName(QStringLiteral("ModelSettingsTest"));
        QSettings().clear();
    }
    void TearDown() override { QSettings().clear(); }
};

TEST_F(ModelSettingsTest, load_storedValuesBadContextAndOverrides)
{
    QSettings().setValue(ModelSettings::serverKey, QStringLiteral(" localhost:8080 "));
    QSettings().setValue(ModelSettings::modelKey, QStringLiteral("llama3.2"));
    QSettings().setValue(ModelSettings::contextKey, 8192);
    const ModelSettings settings = ModelSettings::load();
    EXPECT_EQ(settings.server, QUrl(QStringLiteral("http://localhost:8080")));
    EXPECT_EQ(settings.model, u"llama3.2");
    EXPECT_EQ(settings.contextTokens, 8192);

    QSettings().setValue(ModelSettings::contextKey, QStringLiteral("lots"));
    EXPECT_EQ(ModelSettings::load().contextTokens, ModelSettings::defaultContext);

    const ModelSettings run = settings.overridden(QStringLiteral("http://10.0.0.2:1234/v1"), QStringLiteral("mistral"));
    EXPECT_EQ(run.server, QUrl(QStringLiteral("http://10.0.0.2:1234/v1")));
    EXPECT_EQ(run.model, u"mistral");
    EXPECT_EQ(settings.overridden(QStringLiteral(" "), std::nullopt).model, u"llama3.2");
    EXPECT_EQ(run.client()->options().model, u"mistral");
}

TEST_F(ModelClientTest, serverWithV1Path_getsTheApiPathsBelowIt)
{
    server.serveLlamaServer({ model }, 4096);
    ModelServerClient::Options options = client().options();
    options.server = QUrl(server.url().toString() + u"/v1/");
    EXPECT_TRUE(ModelServerClient(options).availability().available);
    EXPECT_EQ(server.requests(QStringLiteral("/v1/models")).size(), 1u);
}
