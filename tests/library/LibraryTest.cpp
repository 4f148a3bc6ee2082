#include "library/LibraryFixture.h"
#include "support/CatalogueFixtures.h"
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

TEST_F(LibraryTest, readsEveryPendingScanAndMarksFailuresWithTheirMessage)
{
    scan(QStringLiteral("letter.pdf"), scanPdf({ textPage(QStringLiteral("Invoice for March")), blankPage() }));
    scan(QStringLiteral("Archive/2024/locked.pdf"), scanPdf({ blankPage() }, PdfPasswords { "secret", "secret" }));
    scan(QStringLiteral("broken.pdf"), "not a pdf at all");
    useRealReader();
    Library &library = openLibrary();
    ASSERT_TRUE(waitForIdle());

    ASSERT_EQ(library.documentsByID().size(), 3u);
    const ScanDocument *letter = document(QStringLiteral("letter.pdf"));
    ASSERT_TRUE(letter);
    EXPECT_EQ(letter->ocrStatus, OCRStatus::done);
    EXPECT_EQ(letter->pageCount, 2);
    const ScanDocument *locked = document(QStringLiteral("Archive/2024/locked.pdf"));
    ASSERT_TRUE(locked);
    EXPECT_EQ(locked->ocrStatus, OCRStatus::failed);
    EXPECT_EQ(locked->error, QStringLiteral("PDF is password protected"));
    EXPECT_EQ(document(QStringLiteral("broken.pdf"))->error, QStringLiteral("Not a readable PDF"));
    EXPECT_EQ(library.pendingOCR(), 0);
    EXPECT_EQ(library.currentOCR(), std::nullopt);

    std::vector<QString> titles = activityTitles(ActivityEntry::Kind::ocr);
    std::sort(titles.begin(), titles.end());
    ASSERT_EQ(titles.size(), 3u);
    EXPECT_EQ(titles[0], QStringLiteral("broken.pdf: Read text / Not a readable PDF"));
    EXPECT_TRUE(titles[1].startsWith(QLatin1String("letter.pdf: Read 2 pages, "))) << titles[1].toStdString();
    EXPECT_TRUE(titles[1].endsWith(QLatin1String(" characters / OK"))) << titles[1].toStdString();
    EXPECT_EQ(titles[2], QStringLiteral("locked.pdf: Read text / PDF is password protected"));
}

TEST_F(LibraryTest, readsTheNewestScanFirst)
{
    QSettings().setValue(Library::pausedKey, true);
    fakeScan(QStringLiteral("older.pdf"));
    Library &library = openLibrary();
    fakeScan(QStringLiteral("newer.pdf"));
    // Added a second later than the first.
    QThread::sleep(1);
    bool synced = false;
    QObject::connect(&library, &Library::synced, [&] { synced = true; });
    library.rescan();
    ASSERT_TRUE(waitUntil([&] { return synced; }));
    EXPECT_FALSE(library.isReading());

    library.setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return library.pendingOCR() == 0 && !library.isReading(); }));
    EXPECT_EQ(activityTitles(ActivityEntry::Kind::ocr),
        (std::vector<QString> { QStringLiteral("newer.pdf: Read 1 page, 0 characters / OK"),
            QStringLiteral("older.pdf: Read 1 page, 0 characters / OK") }));
}

TEST_F(LibraryTest, whilePausedOnlyRequestedScansAreRead)
{
    QSettings().setValue(Library::pausedKey, true);
    for (const char *name : { "a.pdf", "b.pdf", "c.pdf" })
        fakeScan(QLatin1String(name));
    Library &library = openLibrary();
    EXPECT_TRUE(library.paused());
    EXPECT_FALSE(library.isReading());
    EXPECT_EQ(library.pendingOCR(), 3);

    library.request({ document(QStringLiteral("a.pdf"))->id, document(QStringLiteral("c.pdf"))->id });
    library.request({ document(QStringLiteral("a.pdf"))->id });
    ASSERT_TRUE(waitForIdle());
    EXPECT_EQ(library.pendingOCR(), 1);
    EXPECT_EQ(document(QStringLiteral("b.pdf"))->ocrStatus, OCRStatus::pending);
    EXPECT_EQ(document(QStringLiteral("c.pdf"))->ocrStatus, OCRStatus::done);

    // Pausing forgets the requests; resuming reads the rest.
    library.setPaused(true);
    EXPECT_TRUE(library.requested().empty());
    library.setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return library.pendingOCR() == 0 && !library.isReading(); }));
    EXPECT_FALSE(QSettings().value(Library::pausedKey).toBool());
}

TEST_F(LibraryTest, pausingWhileReadingLeavesTheScanPendingAndResumingReadsItAgain)
{
    std::vector<ScanPage> pages(6, textPage(QStringLiteral("Statement of account for the quarter")));
    scan(QStringLiteral("long.pdf"), scanPdf(pages));
    useRealReader();
    Library &library = openLibrary();
    int pagesSeen = 0;
    QObject::connect(&library, &Library::pageRead, [&] { ++pagesSeen; });
    ASSERT_TRUE(waitUntil([&] { return pagesSeen >= 1; }));

    library.setPaused(true);
    EXPECT_EQ(library.currentOCR(), std::nullopt);
    EXPECT_FALSE(library.isReading());
    // Resuming at once starts a new loop while the stopped one may still be winding down; the old one
    // must not clear the new one.
    library.setPaused(false);
    EXPECT_TRUE(library.isReading());
    ASSERT_TRUE(waitUntil([&] { return library.pendingOCR() == 0 && !library.isReading(); }));
    const ScanDocument *read = document(QStringLiteral("long.pdf"));
    EXPECT_EQ(read->ocrStatus, OCRStatus::done);
    EXPECT_EQ(read->pageCount, 6);
    EXPECT_EQ(activityTitles(ActivityEntry::Kind::ocr).size(), 1u);
}

TEST_F(LibraryTest, aFileReplacedWhileBeingReadIsReadAgainInItsNewVersion)
{
    std::vector<ScanPage> pages(4, textPage(QStringLiteral("Original text")));
    const QString path = scan(QStringLiteral("changing.pdf"), scanPdf(pages));
    useRealReader();
    Library &library = openLibrary();
    bool replaced = false;
    QObject::connect(&library, &Library::pageRead, [&] {
        if (replaced)
            return;
        replaced = true;
        writeFile(path, scanPdf({ textPage(QStringLiteral("Replacement letter")) }));
        library.rescan();
    });
    ASSERT_TRUE(waitUntil([&] {
        const ScanDocument *scan = document(QStringLiteral("changing.pdf"));
        return replaced && scan && scan->ocrStatus == OCRStatus::done && !library.isReading();
    }));
    EXPECT_EQ(document(QStringLiteral("changing.pdf"))->pageCount, 1);
    bool pagesRead = false;
    QStringList texts;
    // Parameters, not captures: a coroutine outlives the lambda object that started it.
    [](Library &library, ScanDocument scan, QStringList &texts, bool &done) -> QCoro::Task<> {
        texts = co_await library.pages(scan);
        done = true;
    }(library, *document(QStringLiteral("changing.pdf")), texts, pagesRead);
    ASSERT_TRUE(waitUntil([&] { return pagesRead; }));
    ASSERT_EQ(texts.size(), 1);
    EXPECT_TRUE(texts[0].contains(QLatin1String("Replacement"))) << texts[0].toStdString();
}

TEST_F(LibraryTest, scansWhoseTextLooksLikeGibberishAreReadOnceMore)
{
    {
        ScanStore store(folder.path());
        Database db(QDir(folder.path()).filePath(ScanStore::fileName));
        const auto id = CatalogueFixtures::insertDocument(db,
            { .path = QStringLiteral("upside-down.pdf"),
                .ocrStatus = QStringLiteral("done"),
                .extractStatus = QStringLiteral("done") });
        CatalogueFixtures::insertPage(
            db, id, 0, QStringLiteral("xqzt bvkrw zzqpf kxvbq qwrtzp jxqv xqzt bvkrw zzqpf kxvbq qwrtzp jxqv"));
        const auto fine = CatalogueFixtures::insertDocument(
            db, { .path = QStringLiteral("fine.pdf"), .ocrStatus = QStringLiteral("done") });
        CatalogueFixtures::insertPage(db, fine, 0, QStringLiteral("Invoice for the month of March"));
    }
    openLibrary();
    EXPECT_EQ(activityTitles(ActivityEntry::Kind::queue),
        (std::vector<QString> {
            QStringLiteral(": Reading 1 scan again: the text looked like gibberish, maybe upside down / ") }));
    // Its file is gone, so it waits, missing, instead of being read.
    const ScanDocument *reset = document(QStringLiteral("upside-down.pdf"));
    EXPECT_EQ(reset->ocrStatus, OCRStatus::pending);
    EXPECT_EQ(reset->extractStatus, ExtractStatus::pending);
    EXPECT_EQ(document(QStringLiteral("fine.pdf"))->ocrStatus, OCRStatus::done);

    // Once per catalogue.
    Database db(QDir(folder.path()).filePath(ScanStore::fileName));
    EXPECT_EQ(
        CatalogueFixtures::scalar(db, QStringLiteral("SELECT value FROM settings WHERE key = 'checked_garbled_ocr'")),
        QStringLiteral("1"));
    db.execute(QStringLiteral("UPDATE documents SET ocr_status = 'done'"));
    openLibrary();
    EXPECT_EQ(document(QStringLiteral("upside-down.pdf"))->ocrStatus, OCRStatus::done);
}

TEST_F(LibraryTest, aCatalogueThatCannotBeOpenedLeavesNoFolderOpen)
{
    fakeScan(QStringLiteral("a.pdf"));
    Library &library = openLibrary();
    ASSERT_TRUE(library.folder());

    QTemporaryDir other;
    writeFile(QDir(other.path()).filePath(ScanStore::fileName), QByteArray(4096, 'x'));
    library.open(other.path(), true);
    EXPECT_EQ(library.folder(), std::nullopt);
    EXPECT_TRUE(library.documentsByID().empty());
    EXPECT_EQ(library.openError(),
        QStringLiteral("Couldn't open Vellumark.sqlite in ") + QFileInfo(other.path()).fileName()
            + QStringLiteral(": file is not a database"));
    EXPECT_FALSE(QSettings().contains(Library::folderPathKey));
}

TEST_F(LibraryTest, restoresTheOverrideFolderWithoutRememberingIt)
{
    QSettings().setValue(Library::folderOverrideKey, folder.path());
    library = std::make_unique<Library>();
    library->restore();
    EXPECT_EQ(library->folder(), QDir::cleanPath(folder.path()));
    EXPECT_FALSE(QSettings().contains(Library::folderPathKey));
    EXPECT_FALSE(QSettings().contains(Library::folderBookmarkKey));

    // A chosen folder is remembered and reopened next time.
    QSettings().remove(Library::folderOverrideKey);
    library->chooseFolder([&](const QString &) { return std::optional(folder.path()); });
    EXPECT_EQ(library->lastFolderPath(), QDir::cleanPath(folder.path()));
    library = std::make_unique<Library>();
    EXPECT_EQ(library->folder(), std::nullopt);
    library->restore();
    EXPECT_EQ(library->folder(), QDir::cleanPath(folder.path()));
}

} // namespace

namespace {

TEST_F(LibraryTest, aFolderThatGoesAwayMarksItsScansMissingAndTheyComeBackWhole)
{
    fakeScan(QStringLiteral("a.pdf"), { QStringLiteral("Garden furniture order") });
    fakeScan(QStringLiteral("Sub/b.pdf"));
    Library &library = openLibrary();
    ASSERT_TRUE(waitUntil([&] { return library.pendingOCR() == 0 && !library.isReading(); }));
    const std::map<std::int64_t, ScanDocument> before = library.documentsByID();

    const QString away = folder.path() + QStringLiteral("-away");
    ASSERT_TRUE(QDir().rename(folder.path(), away));
    library.rescan();
    const auto allMissing = [&] {
        return std::all_of(library.documentsByID().begin(), library.documentsByID().end(),
            [](const auto &entry) { return entry.second.missing; });
    };
    ASSERT_TRUE(waitUntil(allMissing));
    EXPECT_EQ(library.documentsByID().size(), 2u);

    ASSERT_TRUE(QDir().rename(away, folder.path()));
    ASSERT_TRUE(waitUntil(
        [&] { return !library.documentsByID().empty() && !library.documentsByID().begin()->second.missing; }));
    ASSERT_TRUE(waitUntil([&] { return library.documentsByID() == before; }));
}

} // namespace
