#include "store/Database.h"

#include "store/Migrations.h"
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"
#include "support/Printing.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sqlite3.h>

using namespace Qt::StringLiterals;
using namespace CatalogueFixtures;

namespace {

QByteArray fileHash(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256)
                                          : QByteArray();
}

TEST(Database, failuresThrowAndLeaveNothingBehind)
{
    QTemporaryDir dir;
    const QString absent = dir.filePath(u"absent"_s);
    EXPECT_THROW(Database(absent + u"/Vellumark.sqlite"_s), Database::Error);
    EXPECT_FALSE(QFileInfo::exists(absent));

    Database db(dir.filePath(u"scratch.sqlite"_s));
    db.execute(u"CREATE TABLE t (s UNIQUE)"_s);
    EXPECT_EQ(db.run(u"INSERT INTO t VALUES (?), (?)"_s, { u"\u65e5\u672c"_s, 2 }), 2);
    EXPECT_THROW(db.run(u"INSERT INTO t VALUES (2)"_s), Database::Error);
    // A statement left open after a failure would keep the file busy.
    EXPECT_EQ(sqlite3_next_stmt(db.handle(), nullptr), nullptr);
    // An UPDATE matching nothing reports 0, not the count of the statement before it.
    EXPECT_EQ(db.run(u"UPDATE t SET s = 0 WHERE s = 99"_s), 0);
}

class MigrationsTest : public ::testing::Test {
protected:
    QString catalogue() const { return dir.filePath(ScanStore::fileName); }
    QTemporaryDir dir;
};

class OldCatalogueTest : public MigrationsTest, public ::testing::WithParamInterface<int> { };

// A catalogue left by an older release is brought up to date with its data intact and its full-text
// index rebuilt from it.
TEST_P(OldCatalogueTest, migratesWithDataAndIndex)
{
    const int version = GetParam();
    createCatalogue(dir.path(), version);
    std::int64_t filed = 0;
    {
        Database db(catalogue());
        const auto org = insertOrganization(db, u"Stadtwerke Zürich"_s);
        filed = insertDocument(db,
            { .path = u"2024/bill.pdf"_s,
                .ocrStatus = u"done"_s,
                .extractStatus = u"done"_s,
                .date = u"2024-05-01"_s,
                .organizationID = org });
        insertPage(db, filed, 1, u"second page"_s);
        insertPage(db, filed, 0, u"first page"_s);
        insertDocument(db, { .path = u"new.pdf"_s });
        if (version >= 2)
            db.run(u"UPDATE documents SET extract_log = 'log' WHERE id = ?"_s, { filed });
        // From version 3 on, the release that wrote the catalogue kept the index up to date itself.
        if (version >= 3)
            db.run(Migrations::fullTextFill() + u"1"_s);
    }

    ScanStore store(dir.path());
    EXPECT_EQ(store.schemaVersion(), 4);
    EXPECT_EQ(store.documents().size(), 2u);
    if (version >= 2)
        EXPECT_EQ(store.documents(DocumentIDs { filed }).at(0).extractLog, u"log"_s);
    Database db(catalogue());
    EXPECT_EQ(scalar(db, u"SELECT COUNT(*) FROM documents_fts"_s), u"2"_s);
    EXPECT_EQ(scalar(db, u"SELECT text FROM documents_fts WHERE rowid = "_s + QString::number(filed)),
        u"first page\nsecond page"_s);
    for (const char *match : { "name:bill", "organization:zurich", "date:2024" })
        EXPECT_EQ(ftsMatches(db, QString::fromUtf8(match)), std::vector<std::int64_t> { filed }) << match;
}

INSTANTIATE_TEST_SUITE_P(Versions, OldCatalogueTest, ::testing::Values(1, 2, 3));

// A current or newer catalogue is opened without a write; a file that is no catalogue is left as it was.
TEST_F(MigrationsTest, onlyOldCataloguesAreWritten)
{
    createCatalogue(dir.path(), 4);
    {
        Database db(catalogue());
        insertDocument(db, { .path = u"a.pdf"_s });
    }
    for (const int version : { 4, 7 }) {
        Database(catalogue()).execute(u"PRAGMA user_version = "_s + QString::number(version));
        const QByteArray before = fileHash(catalogue());
        ScanStore store(dir.path());
        EXPECT_EQ(store.schemaVersion(), version);
        EXPECT_EQ(store.documents().size(), 1u);
        EXPECT_EQ(fileHash(catalogue()), before);
    }

    QFile file(catalogue());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QByteArray("These are my notes, not a database.\n").repeated(200));
    file.close();
    const QByteArray before = fileHash(catalogue());
    EXPECT_THROW(ScanStore store(dir.path()), Database::Error);
    EXPECT_EQ(fileHash(catalogue()), before);
}

// A step that fails is rolled back on its own; the steps before it stay, and the next open resumes
// from the version they left.
TEST_F(MigrationsTest, failingStep_rollsBackThatStepAndKeepsEarlierOnes)
{
    createCatalogue(dir.path(), 1);
    // Step 3 creates this table; finding it already there makes the step fail.
    Database(catalogue()).execute(u"CREATE TABLE settings (key TEXT)"_s);
    EXPECT_THROW(ScanStore store(dir.path()), Database::Error);

    Database db(catalogue());
    EXPECT_EQ(Migrations::storedVersion(db), 2);
    db.execute(u"DROP TABLE settings"_s);
    EXPECT_EQ(ScanStore(dir.path()).schemaVersion(), 4);
}

// Two processes opening an old catalogue at once: the one that waited for the lock finds the steps
// taken by the other and takes none of them again.
TEST_F(MigrationsTest, twoConnectionsAtOnce_takeEachStepOnce)
{
    createCatalogue(dir.path(), 1);
    Database waiting(catalogue());
    Database other(catalogue());
    other.execute(u"BEGIN IMMEDIATE"_s);
    // Called while `waiting` has read the version and waits for the lock `other` holds.
    const auto otherMigrates = [](void *data, int attempts) -> int {
        auto *db = static_cast<Database *>(data);
        if (attempts == 0) {
            db->execute(u"ROLLBACK"_s);
            Migrations::migrate(*db);
        }
        return attempts < 100;
    };
    sqlite3_busy_handler(waiting.handle(), otherMigrates, &other);
    EXPECT_NO_THROW(Migrations::migrate(waiting));
    EXPECT_EQ(Migrations::storedVersion(other), 4);
    EXPECT_EQ(Migrations::storedVersion(waiting), 4);
}

} // namespace
