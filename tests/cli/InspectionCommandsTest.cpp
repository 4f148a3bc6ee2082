#include "cli/Cli.h"
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"
#include "support/StubModelServer.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using namespace Qt::StringLiterals;

TEST(StatusCommand, makesACatalogueForANewFolderCountsItsScansAndExplainsAFileThatIsNone)
{
    QTemporaryDir dir;
    const Cli cli;
    const QStringList status { u"status"_s, dir.path(), u"--json"_s };
    EXPECT_EQ(QJsonDocument::fromJson(cli.run(status).out.toUtf8())[u"scans"_s], 0);
    {
        Database db(dir.filePath(ScanStore::fileName));
        for (const CatalogueFixtures::Row &row :
            { CatalogueFixtures::Row { .path = u"pending.pdf"_s }, { .path = u"read.pdf"_s, .ocrStatus = u"done"_s },
                { .path = u"filed.pdf"_s, .ocrStatus = u"done"_s, .extractStatus = u"done"_s },
                { .path = u"unreadable.pdf"_s, .ocrStatus = u"failed"_s }, { .path = u"gone.pdf"_s, .missing = true } })
            CatalogueFixtures::insertDocument(db, row);
    }
    const QJsonObject json = QJsonDocument::fromJson(cli.run(status).out.toUtf8()).object();
    for (const std::pair<QString, int> &count : std::vector<std::pair<QString, int>> {
             { u"scans"_s, 4 }, { u"pendingText"_s, 1 }, { u"pendingExtraction"_s, 1 }, { u"problems"_s, 2 } })
        EXPECT_EQ(json[count.first].toInt(-1), count.second) << count.first.toStdString();

    QFile file(dir.filePath(ScanStore::fileName));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(QByteArray(4096, 'x')) == 4096);
    file.close();
    const CliRun result = cli.run(status);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("not a database"_L1) && result.out.isEmpty()) << result.err.toStdString();
}

TEST(ModelCommand, saysWhetherTheModelCanBeUsedAndWhyNot)
{
    StubModelServer server;
    server.serveLlamaServer({ u"qwen2.5:3b"_s }, 8192);
    const QStringList model { u"model"_s, u"--model-server"_s, server.url().toString() };
    EXPECT_EQ(Cli().run(model).exitCode, 0);
    const CliRun missing = Cli().run(model + QStringList { u"--model"_s, u"llama3:8b"_s });
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_TRUE(missing.out.section(u'\n', 0, 0).contains("llama3:8b"_L1)) << missing.out.toStdString();
}

TEST(ReadCommand, printsEachPageWithItsRotationAndTheFilesHashAsTextOrJson)
{
    QTemporaryDir folder;
    const QString scan = folder.filePath(u"scan.pdf"_s);
    writeFakeScan(scan, { u"@rotation=90\nSideways page"_s, QString() });
    const Cli cli;
    const QJsonObject json = QJsonDocument::fromJson(cli.run({ u"read"_s, scan, u"--json"_s }).out.toUtf8()).object();
    const QString sha256 = json[u"sha256"_s].toString(), text = cli.run({ u"read"_s, scan }).out;
    EXPECT_EQ(sha256.size(), 64);
    for (const QString &shown : { u"rotation 90\nSideways page"_s, u"(no text)"_s, sha256 })
        EXPECT_TRUE(text.contains(shown)) << shown.toStdString() << " in " << text.toStdString();
    const QJsonArray pages = json[u"pages"_s].toArray();
    ASSERT_EQ(pages.size(), 2);
    EXPECT_EQ(pages[0][u"rotation"_s].toInt(), 90);
    EXPECT_EQ(pages[0][u"text"_s], u"Sideways page"_s);
}

// Bad usage, a file that can't be read, and a language whose data is missing; the real reader names
// the package that has it.
TEST(Cli, failuresExitWithOneAndSayWhyOnStandardError)
{
    Cli cli;
    for (const QStringList &bad : { QStringList {}, QStringList { u"frobnicate"_s }, QStringList { u"status"_s },
             QStringList { u"status"_s, u"/tmp"_s, u"--bogus"_s }, QStringList { u"read"_s, u"/nowhere.pdf"_s },
             QStringList { u"read"_s, u"/tmp/x.pdf"_s, u"--timeout"_s, u"0"_s } }) {
        const CliRun refused = cli.run(bad);
        EXPECT_TRUE(refused.exitCode == 1 && !refused.err.isEmpty() && refused.out.isEmpty())
            << bad.join(u' ').toStdString();
    }
    cli.useRealReader();
    const CliRun language = cli.run({ u"read"_s, u"/nowhere.pdf"_s, u"--languages"_s, u"eng+qqq"_s });
    EXPECT_EQ(language.exitCode, 1);
    EXPECT_TRUE(language.err.contains("tesseract-ocr-qqq"_L1)) << language.err.toStdString();
}

} // namespace
