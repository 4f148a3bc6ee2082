#include "support/StubModelServer.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct ModelRun {
    int exitCode = -1;
    QString out;
};

ModelRun model(const QStringList &arguments)
{
    QTemporaryDir config;
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(VELLUMARK_CLI), QStringList { QStringLiteral("model") } + arguments);
    process.waitForFinished(60'000);
    return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
        QString::fromUtf8(process.readAllStandardOutput()) };
}

TEST(ModelCommand, saysWhetherTheModelCanBeUsedAsTheStatusBarWould)
{
    StubModelServer server;
    server.serveLlamaServer({ QStringLiteral("qwen2.5:3b") }, 8192);
    const QString url = server.url().toString();

    const ModelRun available = model({ QStringLiteral("--model-server"), url });
    EXPECT_EQ(available.exitCode, 0);
    EXPECT_EQ(available.out,
        QStringLiteral("Local model available\nServer: ") + url
            + QStringLiteral("\nModel: qwen2.5:3b\nContext: 8192 tokens\n"));

    const ModelRun missing = model({ QStringLiteral("--model-server"), url, QStringLiteral("--model"),
        QStringLiteral("llama3:8b"), QStringLiteral("--json") });
    EXPECT_EQ(missing.exitCode, 3);
    const QJsonObject json = QJsonDocument::fromJson(missing.out.toUtf8()).object();
    EXPECT_FALSE(json.value(QStringLiteral("available")).toBool(true));
    EXPECT_EQ(json.value(QStringLiteral("status")).toString(),
        QStringLiteral("Local model unavailable: The model “llama3:8b” isn't installed on the model server"));
    EXPECT_FALSE(json.contains(QStringLiteral("context")));
}

} // namespace
