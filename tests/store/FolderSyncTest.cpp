#include "store/FolderScan.h"
#include "support/Printing.h"
#include "support/StoreFixture.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

using Ids = std::vector<std::int64_t>;

namespace {

const QDateTime fileTime = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);

// A missing scan coming back and a vanished folder are tested through the Library; these are the
// sync's own edges.
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
        return value(u"SELECT id FROM documents WHERE path = '%1'"_s.arg(path)).value_or(QString()).toLongLong();
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
        return column(id, u"ocr_status || '/' || extract_status || '/' || missing"_s).value_or(QString());
    }
    int rowCount() { return value(u"SELECT COUNT(*) FROM documents"_s).value_or(QString()).toInt(); }
};

TEST_F(FolderSync, listsPDFsAtAnyDepthAndLinksInsideButNoHiddenPackagedOrOtherFiles)
{
    write(u"Invoices/2024/a.pdf"_s, "%PDF-a", fileTime.addMSecs(250));
    write(u"report.PDF"_s, "%PDF-report");
    write(u"archive.pdf/inside.pdf"_s, "%PDF-inside");
    for (const char *skipped : { "notes.txt", "pdf", ".hidden.pdf", ".cache/b.pdf", "Viewer.app/Contents/help.pdf",
             "Holiday.photoslibrary/c.pdf", "Backup.SparseBundle/d.pdf" })
        write(QString::fromUtf8(skipped), "%PDF-skipped");
    QTemporaryDir outside;
    QFile(outside.filePath(u"elsewhere.pdf"_s)).open(QIODevice::WriteOnly);
    ASSERT_TRUE(QFile::link(at(u"report.PDF"_s), at(u"shortcut.pdf"_s)));
    ASSERT_TRUE(QFile::link(outside.filePath(u"elsewhere.pdf"_s), at(u"outside.pdf"_s)));
    ASSERT_TRUE(QFile::link(at(u"nowhere"_s), at(u"dangling.pdf"_s)));
    ASSERT_TRUE(QFile::link(at(u"loop.pdf"_s), at(u"loop.pdf"_s)));
    ASSERT_TRUE(QFile::link(at(u"Invoices"_s), at(u"Invoices/again"_s)));
    ASSERT_TRUE(QFile::link(outside.path(), at(u"linked folder"_s)));

    // A link is listed under its target's path; the sync takes the file once.
    const QStringList expected { u"Invoices/2024/a.pdf"_s, u"archive.pdf/inside.pdf"_s, u"report.PDF"_s,
        u"report.PDF"_s };
    EXPECT_EQ(listed(dir.path()), expected);
    // A folder reached through a link of its own lists the same relative paths.
    ASSERT_TRUE(QFile::link(dir.path(), outside.filePath(u"scans"_s)));
    EXPECT_EQ(listed(outside.filePath(u"scans"_s)), expected);

    // New files are added waiting to be read, with their size and time to the millisecond, unhashed.
    EXPECT_TRUE(sync());
    EXPECT_EQ(rowCount(), 3);
    const auto a = idOf(u"Invoices/2024/a.pdf"_s);
    EXPECT_EQ(status(a), u"pending/pending/0"_s);
    EXPECT_EQ(store->documents(Ids { a }).at(0).fileModified, fileTime.addMSecs(250));
    EXPECT_TRUE(hashed.isEmpty());
    EXPECT_FALSE(sync());
}

TEST_F(FolderSync, changedFile_goesBackToTextRecognitionKeepingHandSetFacts)
{
    for (const char *name : { "filed.pdf", "manual.pdf", "grown.pdf" })
        write(QString::fromUtf8(name), "%PDF-same");
    sync();
    const auto filed = idOf(u"filed.pdf"_s);
    const auto manual = idOf(u"manual.pdf"_s);
    const auto grown = idOf(u"grown.pdf"_s);
    for (const auto id : { filed, manual, grown })
        read(id, u"Water bill"_s);
    store->saveExtraction(
        filed, u"Water Works"_s, u"2024-03-01"_s, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
    store->setDate({ manual }, u"2023-12-24"_s);
    db.run(u"UPDATE documents SET page_rotations = '0,180' WHERE id = ?"_s, { filed });

    // Within half a second is the same time, as a copy that rounded it would give.
    write(u"filed.pdf"_s, "%PDF-same", fileTime.addMSecs(400));
    EXPECT_FALSE(sync());

    write(u"filed.pdf"_s, "%PDF-same", fileTime.addSecs(60));
    write(u"manual.pdf"_s, "%PDF-same", fileTime.addMSecs(-600));
    write(u"grown.pdf"_s, "%PDF-same, now longer");
    EXPECT_TRUE(sync());
    EXPECT_EQ(status(filed), u"pending/pending/0"_s);
    EXPECT_EQ(status(manual), u"pending/manual/0"_s);
    EXPECT_EQ(status(grown), u"pending/pending/0"_s);
    EXPECT_FALSE(column(filed, u"sha256"_s));
    EXPECT_FALSE(column(filed, u"page_rotations"_s));
    EXPECT_EQ(column(grown, u"file_size"_s), u"21"_s);
    // Old results stay until new ones replace them.
    EXPECT_EQ(column(manual, u"doc_date"_s), u"2023-12-24"_s);
    EXPECT_EQ(column(filed, u"doc_date"_s), u"2024-03-01"_s);
    EXPECT_EQ(store->pages(filed), QStringList { u"Water bill"_s });
}

// A new file with the size and content of a missing scan that was read takes it over; only a scan that
// was read has a hash to be recognised by, and only new files of a missing scan's size are hashed.
TEST_F(FolderSync, movedScan_isRecognisedByItsContentAndKeepsItsRow)
{
    write(u"scan0001.pdf"_s, "%PDF-letter");
    write(u"unread.pdf"_s, "%PDF-unread");
    sync();
    const auto id = idOf(u"scan0001.pdf"_s);
    const auto unread = idOf(u"unread.pdf"_s);
    read(id, u"Dear customer, your tariff changes"_s);
    store->setDate({ id }, u"2024-05-02"_s);

    ASSERT_TRUE(QFile::remove(at(u"scan0001.pdf"_s)));
    write(u"Letters/tariff.pdf"_s, "%PDF-letter", fileTime.addDays(3));
    ASSERT_TRUE(QFile::rename(at(u"unread.pdf"_s), at(u"renamed.pdf"_s)));
    write(u"same size.pdf"_s, "%PDF-LETTER");
    write(u"other size.pdf"_s, "%PDF-letters");
    EXPECT_TRUE(sync());

    EXPECT_EQ(idOf(u"Letters/tariff.pdf"_s), id);
    EXPECT_EQ(status(id), u"done/manual/0"_s);
    EXPECT_EQ(column(id, u"file_modified"_s).value().toDouble(), secondsSince1970(fileTime.addDays(3)));
    EXPECT_EQ(column(id, u"doc_date"_s), u"2024-05-02"_s);
    EXPECT_EQ(store->pages(id), QStringList { u"Dear customer, your tariff changes"_s });
    EXPECT_EQ(search(u"name:letters"_s), Ids { id });
    EXPECT_TRUE(search(u"name:scan0001"_s).empty());

    EXPECT_EQ(rowCount(), 5);
    EXPECT_EQ(status(unread), u"pending/pending/1"_s);
    hashed.sort();
    EXPECT_EQ(hashed, (QStringList { u"Letters/tariff.pdf"_s, u"renamed.pdf"_s, u"same size.pdf"_s }));
}

// Files that differ only after the first megabyte are told apart.
TEST_F(FolderSync, fileHasher_givesTheSHA256OfTheWholeFileOrNothing)
{
    QByteArray content(3 << 20, 'x');
    content[1 << 20] = 'y';
    write(u"big.pdf"_s, content);
    const auto hash = fileHasher(dir.path());
    EXPECT_EQ(
        hash(u"big.pdf"_s), QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex()));
    EXPECT_FALSE(hash(u"no such file.pdf"_s));
    EXPECT_FALSE(hash(u"."_s));
}

TEST_F(FolderSync, failureHalfWay_leavesTheCatalogueAsItWas_removingMissingScansTakesTheirPages)
{
    write(u"a.pdf"_s, "%PDF-a");
    sync();
    const auto id = idOf(u"a.pdf"_s);
    read(id, u"receipt"_s);
    QFile::remove(at(u"a.pdf"_s));
    write(u"b.pdf"_s, "%PDF-bb");
    write(u"c.pdf"_s, "%PDF-cc");
    db.execute(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON documents WHEN new.path = 'c.pdf' "
                              "BEGIN SELECT RAISE(ABORT, 'disk on fire'); END"));

    EXPECT_THROW(sync(), Database::Error);
    EXPECT_EQ(rowCount(), 1);
    EXPECT_EQ(status(id), u"done/pending/0"_s);
    db.execute(u"DROP TRIGGER refuse"_s);
    EXPECT_TRUE(sync());
    EXPECT_EQ(rowCount(), 3);

    store->removeMissing({ id, idOf(u"b.pdf"_s) });
    EXPECT_EQ(rowCount(), 2);
    EXPECT_TRUE(store->pages(id).isEmpty());
    EXPECT_TRUE(search(u"receipt"_s).empty());
}

} // namespace
