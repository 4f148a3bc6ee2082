#include "store/FolderScan.h"
#include "support/Printing.h"
#include "support/StoreFixture.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

using Ids = std::vector<std::int64_t>;

namespace {

const QDateTime fileTime = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);

class FolderSync : public StoreFixture {
protected:
    QString at(const QString &relativePath) const { return dir.filePath(relativePath); }

    // Writes a file with a fixed modification time, creating its folders.
    void write(const QString &relativePath, const QByteArray &content, const QDateTime &modified = fileTime)
    {
        QDir(dir.path()).mkpath(QFileInfo(at(relativePath)).path());
        QFile file(at(relativePath));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
        ASSERT_TRUE(file.flush() && file.setFileTime(modified, QFileDevice::FileModificationTime));
    }
    void setTime(const QString &relativePath, const QDateTime &modified)
    {
        QFile file(at(relativePath));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite) && file.setFileTime(modified, QFileDevice::FileModificationTime));
    }
    void rename(const QString &from, const QString &to)
    {
        QDir(dir.path()).mkpath(QFileInfo(at(to)).path());
        ASSERT_TRUE(QFile::rename(at(from), at(to)));
    }
    QStringList listed(const QString &folder)
    {
        QStringList paths;
        for (const auto &file : enumeratePDFs(folder))
            paths.append(file.path);
        paths.sort();
        return paths;
    }

    // Syncs the folder as the app does, noting which files had to be hashed.
    bool sync()
    {
        const auto hash = fileHasher(dir.path());
        return store->sync(enumeratePDFs(dir.path()), [&](const QString &path) {
            hashed.append(path);
            return hash(path);
        });
    }
    QStringList hashed;

    std::int64_t idOf(const QString &path)
    {
        return value(QStringLiteral("SELECT id FROM documents WHERE path = '%1'").arg(path))
            .value_or(QString())
            .toLongLong();
    }
    // Text recognition finished for the scan: its pages and the file's hash are stored.
    void read(std::int64_t id, const QString &text)
    {
        const auto job = store->nextOCRJob(Ids { id });
        ASSERT_TRUE(job);
        store->saveOCR(*job, { text }, { 0 }, fileHasher(dir.path())(job->path).value());
    }
    QString status(std::int64_t id)
    {
        return value(QStringLiteral("SELECT ocr_status || '/' || extract_status FROM documents WHERE id = %1").arg(id))
            .value_or(QString());
    }
    QString missing(std::int64_t id) { return column(id, QStringLiteral("missing")).value_or(QString()); }
    int rowCount() { return value(QStringLiteral("SELECT COUNT(*) FROM documents")).value_or(QString()).toInt(); }
};

TEST_F(FolderSync, enumerate_listsPDFsAtAnyDepthAndLinksInsideButNoHiddenPackagedOrOtherFiles)
{
    write(QStringLiteral("Invoices/2024/a.pdf"), "%PDF-a", fileTime.addMSecs(250));
    write(QStringLiteral("report.PDF"), "%PDF-report");
    write(QStringLiteral("archive.pdf/inside.pdf"), "%PDF-inside");
    for (const char *skipped : { "notes.txt", "pdf", ".hidden.pdf", ".cache/b.pdf", "Viewer.app/Contents/help.pdf",
             "Holiday.photoslibrary/c.pdf", "Backup.SparseBundle/d.pdf" })
        write(QString::fromUtf8(skipped), "%PDF-skipped");
    QTemporaryDir outside;
    QFile(outside.filePath(QStringLiteral("elsewhere.pdf"))).open(QIODevice::WriteOnly);
    ASSERT_TRUE(QFile::link(at(QStringLiteral("report.PDF")), at(QStringLiteral("shortcut.pdf"))));
    ASSERT_TRUE(QFile::link(outside.filePath(QStringLiteral("elsewhere.pdf")), at(QStringLiteral("outside.pdf"))));
    ASSERT_TRUE(QFile::link(at(QStringLiteral("nowhere")), at(QStringLiteral("dangling.pdf"))));
    ASSERT_TRUE(QFile::link(at(QStringLiteral("loop.pdf")), at(QStringLiteral("loop.pdf"))));
    ASSERT_TRUE(QFile::link(at(QStringLiteral("Invoices")), at(QStringLiteral("Invoices/again"))));
    ASSERT_TRUE(QFile::link(outside.path(), at(QStringLiteral("linked folder"))));

    const auto files = enumeratePDFs(dir.path());
    const auto a = std::find_if(files.begin(), files.end(),
        [](const auto &file) { return file.path == QStringLiteral("Invoices/2024/a.pdf"); });
    ASSERT_NE(a, files.end());
    EXPECT_EQ(a->size, 6);
    EXPECT_EQ(a->modified, fileTime.addMSecs(250));
    // A link is listed under its target's path; the sync takes the file once.
    const QStringList expected { QStringLiteral("Invoices/2024/a.pdf"), QStringLiteral("archive.pdf/inside.pdf"),
        QStringLiteral("report.PDF"), QStringLiteral("report.PDF") };
    EXPECT_EQ(listed(dir.path()), expected);
    EXPECT_TRUE(sync());
    EXPECT_EQ(rowCount(), 3);
    // A folder reached through a link of its own lists the same relative paths.
    ASSERT_TRUE(QFile::link(dir.path(), outside.filePath(QStringLiteral("scans"))));
    EXPECT_EQ(listed(outside.filePath(QStringLiteral("scans"))), expected);
}

TEST_F(FolderSync, firstSync_addsEveryPDFPendingAndSearchableWithoutReadingAny)
{
    write(QStringLiteral("Invoices/2024/a.pdf"), "%PDF-a");
    write(QStringLiteral("b.pdf"), "%PDF-b");
    EXPECT_TRUE(sync());
    for (const auto &doc : store->documents()) {
        EXPECT_EQ(status(doc.id), QStringLiteral("pending/pending"));
        EXPECT_FALSE(doc.missing);
        EXPECT_EQ(doc.fileSize, 6);
        EXPECT_EQ(doc.fileModified, fileTime);
    }
    EXPECT_EQ(rowCount(), 2);
    EXPECT_EQ(search(QStringLiteral("invoices")), Ids { idOf(QStringLiteral("Invoices/2024/a.pdf")) });
    EXPECT_TRUE(hashed.isEmpty());
    EXPECT_FALSE(sync());
}

TEST_F(FolderSync, changedFile_goesBackToTextRecognitionKeepingHandSetFacts)
{
    for (const char *name : { "filed.pdf", "manual.pdf", "grown.pdf" })
        write(QString::fromUtf8(name), "%PDF-same");
    sync();
    const auto filed = idOf(QStringLiteral("filed.pdf"));
    const auto manual = idOf(QStringLiteral("manual.pdf"));
    const auto grown = idOf(QStringLiteral("grown.pdf"));
    for (const auto id : { filed, manual, grown })
        read(id, QStringLiteral("Water bill"));
    store->saveExtraction(filed, QStringLiteral("Water Works"), QStringLiteral("2024-03-01"), std::nullopt,
        std::nullopt, std::nullopt, std::nullopt);
    store->setDate({ manual }, QStringLiteral("2023-12-24"));
    db.run(QStringLiteral("UPDATE documents SET page_rotations = '0,180' WHERE id = ?"), { filed });

    // Within half a second is the same time, as a copy that rounded it would give.
    setTime(QStringLiteral("filed.pdf"), fileTime.addMSecs(400));
    EXPECT_FALSE(sync());

    setTime(QStringLiteral("filed.pdf"), fileTime.addSecs(60));
    setTime(QStringLiteral("manual.pdf"), fileTime.addMSecs(-600));
    write(QStringLiteral("grown.pdf"), "%PDF-same, now longer");
    EXPECT_TRUE(sync());
    EXPECT_EQ(status(filed), QStringLiteral("pending/pending"));
    EXPECT_EQ(status(manual), QStringLiteral("pending/manual"));
    EXPECT_EQ(status(grown), QStringLiteral("pending/pending"));
    EXPECT_FALSE(column(filed, QStringLiteral("sha256")));
    EXPECT_FALSE(column(filed, QStringLiteral("page_rotations")));
    EXPECT_EQ(column(grown, QStringLiteral("file_size")), QStringLiteral("21"));
    // Old results stay until new ones replace them.
    EXPECT_EQ(column(manual, QStringLiteral("doc_date")), QStringLiteral("2023-12-24"));
    EXPECT_EQ(column(filed, QStringLiteral("doc_date")), QStringLiteral("2024-03-01"));
    EXPECT_EQ(store->pages(filed), QStringList { QStringLiteral("Water bill") });
    EXPECT_EQ(rowCount(), 3);
}

// A new file with the size and content of a missing scan that was read takes it over; only a scan that
// was read has a hash to be recognised by, and only new files of a missing scan's size are hashed.
TEST_F(FolderSync, movedScan_isRecognisedByItsContentAndKeepsItsRow)
{
    write(QStringLiteral("scan0001.pdf"), "%PDF-letter");
    write(QStringLiteral("unread.pdf"), "%PDF-unread");
    sync();
    const auto id = idOf(QStringLiteral("scan0001.pdf"));
    const auto unread = idOf(QStringLiteral("unread.pdf"));
    read(id, QStringLiteral("Dear customer, your tariff changes"));
    store->setDate({ id }, QStringLiteral("2024-05-02"));

    rename(QStringLiteral("scan0001.pdf"), QStringLiteral("Letters/tariff.pdf"));
    setTime(QStringLiteral("Letters/tariff.pdf"), fileTime.addDays(3));
    rename(QStringLiteral("unread.pdf"), QStringLiteral("renamed.pdf"));
    write(QStringLiteral("same size.pdf"), "%PDF-LETTER");
    write(QStringLiteral("other size.pdf"), "%PDF-letters");
    EXPECT_TRUE(sync());

    EXPECT_EQ(idOf(QStringLiteral("Letters/tariff.pdf")), id);
    EXPECT_EQ(missing(id), QStringLiteral("0"));
    EXPECT_EQ(status(id), QStringLiteral("done/manual"));
    EXPECT_EQ(column(id, QStringLiteral("file_modified")).value().toDouble(), secondsSince1970(fileTime.addDays(3)));
    EXPECT_EQ(column(id, QStringLiteral("doc_date")), QStringLiteral("2024-05-02"));
    EXPECT_EQ(store->pages(id), QStringList { QStringLiteral("Dear customer, your tariff changes") });
    EXPECT_EQ(search(QStringLiteral("name:letters")), Ids { id });
    EXPECT_TRUE(search(QStringLiteral("name:scan0001")).empty());

    EXPECT_EQ(rowCount(), 5);
    EXPECT_EQ(missing(unread), QStringLiteral("1"));
    EXPECT_EQ(column(unread, QStringLiteral("path")), QStringLiteral("unread.pdf"));
    hashed.sort();
    EXPECT_EQ(hashed,
        (QStringList {
            QStringLiteral("Letters/tariff.pdf"), QStringLiteral("renamed.pdf"), QStringLiteral("same size.pdf") }));
}

TEST_F(FolderSync, deletedAndRestoredFile_comesBackWhole)
{
    write(QStringLiteral("a.pdf"), "%PDF-a");
    sync();
    const auto id = idOf(QStringLiteral("a.pdf"));
    read(id, QStringLiteral("Insurance policy"));
    store->setDate({ id }, QStringLiteral("2022-01-31"));

    ASSERT_TRUE(QFile::remove(at(QStringLiteral("a.pdf"))));
    EXPECT_TRUE(sync());
    EXPECT_EQ(missing(id), QStringLiteral("1"));
    EXPECT_FALSE(sync());

    write(QStringLiteral("a.pdf"), "%PDF-a");
    EXPECT_TRUE(sync());
    EXPECT_EQ(rowCount(), 1);
    EXPECT_EQ(missing(id), QStringLiteral("0"));
    EXPECT_EQ(status(id), QStringLiteral("done/manual"));
    EXPECT_EQ(column(id, QStringLiteral("doc_date")), QStringLiteral("2022-01-31"));
    EXPECT_EQ(search(QStringLiteral("insurance")), Ids { id });
}

// Files that differ only after the first megabyte are told apart.
TEST_F(FolderSync, fileHasher_givesTheSHA256OfTheWholeFileOrNothing)
{
    QByteArray content(3 << 20, 'x');
    content[1 << 20] = 'y';
    write(QStringLiteral("big.pdf"), content);
    const auto hash = fileHasher(dir.path());
    EXPECT_EQ(hash(QStringLiteral("big.pdf")),
        QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex()));
    EXPECT_FALSE(hash(QStringLiteral("no such file.pdf")));
    EXPECT_FALSE(hash(QStringLiteral(".")));
}

TEST_F(FolderSync, vanishedFolder_marksEveryScanMissingAndChangesNothingElse)
{
    write(QStringLiteral("a.pdf"), "%PDF-a");
    write(QStringLiteral("sub/b.pdf"), "%PDF-b");
    sync();
    read(idOf(QStringLiteral("a.pdf")), QStringLiteral("text"));
    auto before = store->documents();

    EXPECT_TRUE(store->sync(enumeratePDFs(at(QStringLiteral("gone"))), fileHasher(at(QStringLiteral("gone")))));
    for (auto &doc : before)
        doc.missing = true;
    EXPECT_EQ(store->documents(), before);
    EXPECT_EQ(store->pages(idOf(QStringLiteral("a.pdf"))), QStringList { QStringLiteral("text") });
}

TEST_F(FolderSync, failureHalfWay_leavesTheCatalogueAsItWas)
{
    write(QStringLiteral("a.pdf"), "%PDF-a");
    sync();
    const auto id = idOf(QStringLiteral("a.pdf"));
    QFile::remove(at(QStringLiteral("a.pdf")));
    write(QStringLiteral("b.pdf"), "%PDF-bb");
    write(QStringLiteral("c.pdf"), "%PDF-cc");
    db.execute(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON documents WHEN new.path = 'c.pdf' "
                              "BEGIN SELECT RAISE(ABORT, 'disk on fire'); END"));

    EXPECT_THROW(sync(), Database::Error);
    EXPECT_EQ(rowCount(), 1);
    EXPECT_EQ(missing(id), QStringLiteral("0"));
    db.execute(QStringLiteral("DROP TRIGGER refuse"));
    EXPECT_TRUE(sync());
    EXPECT_EQ(rowCount(), 3);
}

TEST_F(FolderSync, removeMissing_deletesOnlyMissingScansWithTheirPagesAndSearchEntries)
{
    for (const char *name : { "gone.pdf", "kept.pdf", "also gone.pdf" })
        write(QString::fromUtf8(name), name);
    sync();
    const auto gone = idOf(QStringLiteral("gone.pdf"));
    const auto kept = idOf(QStringLiteral("kept.pdf"));
    read(gone, QStringLiteral("receipt"));
    read(kept, QStringLiteral("receipt"));
    QFile::remove(at(QStringLiteral("gone.pdf")));
    QFile::remove(at(QStringLiteral("also gone.pdf")));
    sync();

    store->removeMissing({ gone, kept });
    EXPECT_EQ(rowCount(), 2);
    EXPECT_EQ(missing(idOf(QStringLiteral("also gone.pdf"))), QStringLiteral("1"));
    EXPECT_TRUE(store->pages(gone).isEmpty());
    EXPECT_EQ(search(QStringLiteral("receipt")), Ids { kept });
}

} // namespace
