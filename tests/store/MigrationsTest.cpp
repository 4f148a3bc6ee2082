#include "store/Migrations.h"

#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace CatalogueFixtures;

namespace {

QByteArray fileHash(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

QStringList columns(Database &db, const QString &table)
{
    Statement statement = db.prepare(QStringLiteral("SELECT name FROM pragma_table_info(?)"));
    statement.bind({ table });
    QStringList names;
    while (statement.step())
        names.append(statement.text(0));
    return names;
}

std::optional<QString> ftsColumn(Database &db, std::int64_t id, const QString &column)
{
    return scalar(db,
        QStringLiteral("SELECT ") + column + QStringLiteral(" FROM documents_fts WHERE rowid = ")
            + QString::number(id));
}

class MigrationsTest : public ::testing::Test {
protected:
    QString catalogue() const { return QDir(dir.path()).filePath(ScanStore::fileName); }
    QTemporaryDir dir;
};

class OldCatalogueTest : public MigrationsTest, public ::testing::WithParamInterface<int> { };

// A catalogue left by an older release, with scans, pages and an organization, is brought up to date
// with its data intact and its full-text index rebuilt from it.
TEST_P(OldCatalogueTest, filledOldCatalogue_migratesWithDataAndIndex)
{
    const int version = GetParam();
    createCatalogue(dir.path(), version);
    std::int64_t filed = 0;
    std::int64_t bare = 0;
    {
        Database db(catalogue());
        const auto org = insertOrganization(db, QStringLiteral("Stadtwerke Zürich"));
        filed = insertDocument(db,
            { .path = QStringLiteral("2024/bill.pdf"),
                .ocrStatus = QStringLiteral("done"),
                .extractStatus = QStringLiteral("done"),
                .date = QStringLiteral("2024-05-01"),
                .organizationID = org });
        insertPage(db, filed, 1, QStringLiteral("second page"));
        insertPage(db, filed, 0, QStringLiteral("first page"));
        bare = insertDocument(db, { .path = QStringLiteral("new.pdf") });
        if (version >= 2)
            db.run(QStringLiteral("UPDATE documents SET extract_log = 'log' WHERE id = ?"), { filed });
        // From version 3 on, the release that wrote the catalogue kept the index up to date itself.
        if (version >= 3)
            db.run(Migrations::fullTextFill() + QStringLiteral("1"));
    }

    ScanStore store(dir.path());
    EXPECT_EQ(store.schemaVersion(), 4);

    Database db(catalogue());
    EXPECT_EQ(scalar(db, QStringLiteral("SELECT COUNT(*) FROM documents")), QStringLiteral("2"));
    EXPECT_EQ(scalar(db, QStringLiteral("SELECT COUNT(*) FROM documents_fts")), QStringLiteral("2"));
    EXPECT_EQ(ftsColumn(db, filed, QStringLiteral("name")), QStringLiteral("2024/bill.pdf"));
    EXPECT_EQ(ftsColumn(db, filed, QStringLiteral("organization")), QStringLiteral("Stadtwerke Zürich"));
    EXPECT_EQ(ftsColumn(db, filed, QStringLiteral("date")), QStringLiteral("2024-05-01"));
    EXPECT_EQ(ftsColumn(db, filed, QStringLiteral("text")), QStringLiteral("first page\nsecond page"));
    EXPECT_EQ(ftsColumn(db, bare, QStringLiteral("text")), QString());
    // Diacritics are folded by the tokenizer.
    EXPECT_EQ(ftsMatches(db, QStringLiteral("zurich")), std::vector<std::int64_t> { filed });

    if (version >= 2) {
        EXPECT_EQ(store.documents(DocumentIDs { filed }).at(0).extractLog, QStringLiteral("log"));
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, OldCatalogueTest, ::testing::Values(1, 2, 3));

TEST_F(MigrationsTest, currentOrNewerCatalogue_isOpenedWithoutAnyWrite)
{
    createCatalogue(dir.path(), 4);
    {
        Database db(catalogue());
        insertDocument(db, { .path = QStringLiteral("a.pdf") });
    }
    const QByteArray atCurrent = fileHash(catalogue());
    EXPECT_EQ(ScanStore(dir.path()).schemaVersion(), 4);
    EXPECT_EQ(fileHash(catalogue()), atCurrent);

    {
        Database db(catalogue());
        db.execute(QStringLiteral("PRAGMA user_version = 7"));
    }
    const QByteArray atNewer = fileHash(catalogue());
    ScanStore store(dir.path());
    EXPECT_EQ(store.schemaVersion(), 7);
    EXPECT_EQ(store.documents().size(), 1u);
    EXPECT_EQ(fileHash(catalogue()), atNewer);
}

TEST_F(MigrationsTest, zeroLengthFile_isTreatedAsNewCatalogue)
{
    QFile file(catalogue());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    ScanStore store(dir.path());
    EXPECT_EQ(store.schemaVersion(), 4);
    EXPECT_TRUE(store.documents().empty());
}

TEST_F(MigrationsTest, fileThatIsNotADatabase_failsWithSqliteMessageAndStaysUntouched)
{
    QFile file(catalogue());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray("These are my notes, not a database.\n").repeated(200));
    file.close();
    const QByteArray before = fileHash(catalogue());

    try {
        ScanStore store(dir.path());
        FAIL() << "opened a file that is not a database";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("file is not a database"));
    }
    EXPECT_EQ(fileHash(catalogue()), before);
}

// A step that fails is rolled back on its own; the steps before it stay, and the next open resumes
// from the version they left.
TEST_F(MigrationsTest, failingStep_rollsBackThatStepAndKeepsEarlierOnes)
{
    createCatalogue(dir.path(), 1);
    {
        Database db(catalogue());
        // Step 3 creates this table; finding it already there makes the step fail.
        db.execute(QStringLiteral("CREATE TABLE settings (key TEXT)"));
    }
    try {
        ScanStore store(dir.path());
        FAIL() << "the migration should have failed";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("table settings already exists"));
    }

    Database db(catalogue());
    EXPECT_EQ(Migrations::storedVersion(db), 2);
    const QStringList documentColumns = columns(db, QStringLiteral("documents"));
    EXPECT_TRUE(documentColumns.contains(QStringLiteral("similar_document_id")));
    EXPECT_FALSE(documentColumns.contains(QStringLiteral("extract_trace")));
    EXPECT_EQ(columns(db, QStringLiteral("documents_fts")).size(), 4);

    db.execute(QStringLiteral("DROP TABLE settings"));
    EXPECT_EQ(ScanStore(dir.path()).schemaVersion(), 4);
}

TEST_F(MigrationsTest, catalogueLockedByAnotherWriter_failsAfterWaiting)
{
    Database other(catalogue());
    other.execute(QStringLiteral("BEGIN IMMEDIATE"));
    try {
        ScanStore store(dir.path());
        FAIL() << "migrated a catalogue another connection holds locked";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("database is locked"));
    }
    other.execute(QStringLiteral("ROLLBACK"));
    EXPECT_EQ(ScanStore(dir.path()).schemaVersion(), 4);
}

TEST_F(MigrationsTest, foreignKeys_followDeletedOrganizationsAndDocuments)
{
    ScanStore store(dir.path());
    Database db(catalogue());
    db.execute(QStringLiteral("PRAGMA foreign_keys = ON"));
    const auto org = insertOrganization(db, QStringLiteral("ACME"));
    db.run(QStringLiteral("INSERT INTO organization_aliases (alias_key, organization_id) VALUES ('acme corp', ?)"),
        { org });
    const auto first = insertDocument(db, { .path = QStringLiteral("a.pdf"), .organizationID = org });
    const auto second = insertDocument(db, { .path = QStringLiteral("b.pdf") });
    insertPage(db, first, 0, QStringLiteral("text"));
    db.run(QStringLiteral("UPDATE documents SET similar_document_id = ? WHERE id = ?"), { first, second });

    db.run(QStringLiteral("DELETE FROM organizations WHERE id = ?"), { org });
    const auto afterOrg = store.documents(DocumentIDs { first });
    ASSERT_EQ(afterOrg.size(), 1u);
    EXPECT_FALSE(afterOrg[0].organizationID);
    EXPECT_EQ(scalar(db, QStringLiteral("SELECT COUNT(*) FROM organization_aliases")), QStringLiteral("0"));

    db.run(QStringLiteral("DELETE FROM documents WHERE id = ?"), { first });
    EXPECT_TRUE(store.pages(first).isEmpty());
    EXPECT_FALSE(store.documents(DocumentIDs { second }).at(0).similarID);
}

} // namespace
