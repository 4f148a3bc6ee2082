#include "cli/Cli.h"
#include "support/StubModelServer.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using namespace Qt::StringLiterals;

TEST(ModelCommand, saysWhetherTheModelCanBeUsedAndWhyNot)
{
    StubModelServer server;
    server.serveLlamaServer({ u"qwen2.5:3b"_s }, 8192);
    const QString url = server.url().toString();
    const Cli cli;

    const CliRun available = cli.run({ u"model"_s, u"--model-server"_s, url });
    EXPECT_EQ(available.exitCode, 0) << available.err.toStdString();
    EXPECT_TRUE(available.out.contains("qwen2.5:3b"_L1) && available.out.contains("8192"_L1))
        << available.out.toStdString();

    const CliRun missing = cli.run({ u"model"_s, u"--model-server"_s, url, u"--model"_s, u"llama3:8b"_s, u"--json"_s });
    EXPECT_EQ(missing.exitCode, 3);
    const QJsonObject json = QJsonDocument::fromJson(missing.out.toUtf8()).object();
    EXPECT_FALSE(json[u"available"_s].toBool(true));
    EXPECT_TRUE(json[u"status"_s].toString().contains("llama3:8b"_L1));
}

} // namespace
