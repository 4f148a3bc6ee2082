#include "cli/Cli.h"
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using namespace Qt::StringLiterals;

TEST(StatusCommand, makesACatalogueForANewFolderAndCountsItsScans)
{
    QTemporaryDir dir;
    const Cli cli;
    const QStringList status { u"status"_s, dir.path(), u"--json"_s };
    EXPECT_EQ(QJsonDocument::fromJson(cli.run(status).out.toUtf8())[u"scans"_s], 0);
    {
        Database db(dir.filePath(ScanStore::fileName));
        using CatalogueFixtures::insertDocument;
        const QString done = u"done"_s;
        insertDocument(db, { .path = u"pending.pdf"_s });
        insertDocument(db, { .path = u"read.pdf"_s, .ocrStatus = done });
        insertDocument(db, { .path = u"filed.pdf"_s, .ocrStatus = done, .extractStatus = done });
        insertDocument(db, { .path = u"unreadable.pdf"_s, .ocrStatus = u"failed"_s });
        insertDocument(db, { .path = u"gone.pdf"_s, .missing = true });
    }
    const QJsonObject json = QJsonDocument::fromJson(cli.run(status).out.toUtf8()).object();
    for (const std::pair<QString, int> &count : std::vector<std::pair<QString, int>> {
             { u"scans"_s, 4 }, { u"pendingText"_s, 1 }, { u"pendingExtraction"_s, 1 }, { u"problems"_s, 2 } })
        EXPECT_EQ(json[count.first].toInt(-1), count.second) << count.first.toStdString();
}

TEST(StatusCommand, aFileThatIsNoCatalogueIsExplainedWithStatusTwo)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(ScanStore::fileName));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(4096, 'x'));
    file.close();
    const CliRun result = Cli().run({ u"status"_s, dir.path() });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("not a database"_L1) && result.out.isEmpty()) << result.err.toStdString();
}

TEST(StatusCommand, badUsageExitsWithOne)
{
    const Cli cli;
    for (const QStringList &bad : { QStringList {}, QStringList { u"status"_s },
             QStringList { u"status"_s, u"/tmp"_s, u"--bogus"_s }, QStringList { u"frobnicate"_s } })
        EXPECT_EQ(cli.run(bad).exitCode, 1) << bad.join(u' ').toStdString();
    EXPECT_EQ(cli.run({ u"--help"_s }).exitCode, 0);
}

} // namespace
