#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

Result cli(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(VELLUMARK_CLI), arguments);
    process.waitForFinished(60'000);
    return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
        QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError()) };
}

TEST(StatusCommand, filledCatalogue_printsCountsAsJson)
{
    QTemporaryDir dir;
    {
        ScanStore store(dir.path());
        Database db(QDir(dir.path()).filePath(ScanStore::fileName));
        using CatalogueFixtures::insertDocument;
        insertDocument(db, { .path = QStringLiteral("pending.pdf") });
        insertDocument(db, { .path = QStringLiteral("read.pdf"), .ocrStatus = QStringLiteral("done") });
        insertDocument(db,
            { .path = QStringLiteral("filed.pdf"),
                .ocrStatus = QStringLiteral("done"),
                .extractStatus = QStringLiteral("done") });
        insertDocument(db, { .path = QStringLiteral("unreadable.pdf"), .ocrStatus = QStringLiteral("failed") });
        insertDocument(db, { .path = QStringLiteral("gone.pdf"), .missing = true });
    }
    const Result result = cli({ QStringLiteral("status"), dir.path(), QStringLiteral("--json") });
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QJsonObject json = QJsonDocument::fromJson(result.out.toUtf8()).object();
    EXPECT_EQ(json.value(QStringLiteral("schemaVersion")).toInt(-1), 4);
    EXPECT_EQ(json.value(QStringLiteral("scans")).toInt(-1), 4);
    EXPECT_EQ(json.value(QStringLiteral("pendingText")).toInt(-1), 1);
    EXPECT_EQ(json.value(QStringLiteral("pendingExtraction")).toInt(-1), 1);
    EXPECT_EQ(json.value(QStringLiteral("problems")).toInt(-1), 2);

    const Result text = cli({ QStringLiteral("status"), dir.path() });
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_TRUE(text.out.contains(QStringLiteral("Problems: 2"))) << text.out.toStdString();
}

TEST(StatusCommand, newFolder_createsTheCatalogue)
{
    QTemporaryDir dir;
    const Result result = cli({ QStringLiteral("status"), dir.path(), QStringLiteral("--json") });
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(QFile::exists(dir.filePath(ScanStore::fileName)));
    EXPECT_EQ(QJsonDocument::fromJson(result.out.toUtf8()).object().value(QStringLiteral("scans")).toInt(-1), 0);
}

TEST(StatusCommand, unopenableCatalogue_explainsAndExitsWithTwo)
{
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("Mail 2024"));
    ASSERT_TRUE(QDir().mkpath(folder));
    QFile file(QDir(folder).filePath(ScanStore::fileName));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(4096, 'x'));
    file.close();

    const Result result = cli({ QStringLiteral("status"), folder });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, QStringLiteral("Couldn't open Vellumark.sqlite in Mail 2024: file is not a database\n"));
    EXPECT_TRUE(result.out.isEmpty());
}

TEST(StatusCommand, badUsage_exitsWithOne)
{
    EXPECT_EQ(cli({}).exitCode, 1);
    EXPECT_EQ(cli({ QStringLiteral("status") }).exitCode, 1);
    EXPECT_EQ(cli({ QStringLiteral("status"), QStringLiteral("/tmp"), QStringLiteral("--bogus") }).exitCode, 1);
    EXPECT_EQ(cli({ QStringLiteral("frobnicate") }).exitCode, 1);
    EXPECT_EQ(cli({ QStringLiteral("--help") }).exitCode, 0);
}

} // namespace
