#include "library/LibraryFixture.h"

namespace {

TEST_F(LibraryTest, aRealReadingStoresEachScanOrItsFailureWithTheReason)
{
    writeFile(path(u"letter.pdf"_s), scanPdf({ ScanPage { .lines = { u"Invoice for March"_s } }, ScanPage {} }));
    writeFile(path(u"locked.pdf"_s), scanPdf({ ScanPage {} }, PdfPasswords { "secret", "secret" }));
    writeFile(path(u"broken.pdf"_s), "not a pdf at all");
    useRealReader();
    openLibrary();
    ASSERT_TRUE(waitForQuiet());

    EXPECT_EQ(document(u"letter.pdf"_s)->pageCount, 2);
    EXPECT_EQ(document(u"locked.pdf"_s)->ocrStatus, OCRStatus::failed);
    EXPECT_EQ(document(u"locked.pdf"_s)->error, u"PDF is password protected"_s);
    EXPECT_EQ(document(u"broken.pdf"_s)->error, u"Not a readable PDF"_s);
    const std::vector<QString> log = activity(ActivityEntry::Kind::ocr);
    EXPECT_NE(std::ranges::find(log, u"locked.pdf: Read text / PDF is password protected"_s), log.end());
}

TEST_F(LibraryTest, whilePausedOnlyRequestedScansAreReadAndResumingReadsTheRestNewestFirst)
{
    QSettings().setValue(Library::pausedKey, true);
    for (const QString &name : { u"a.pdf"_s, u"b.pdf"_s, u"c.pdf"_s, u"d.pdf"_s })
        fakeScan(name);
    Library &library = openLibrary();
    EXPECT_FALSE(library.isReading());
    EXPECT_EQ(library.pendingOCR(), 4);

    library.request({ document(u"a.pdf"_s)->id, document(u"c.pdf"_s)->id });
    library.request({ document(u"a.pdf"_s)->id });
    ASSERT_TRUE(waitUntil([&] { return library.pendingOCR() == 2 && !library.isReading(); }));
    EXPECT_EQ(document(u"c.pdf"_s)->ocrStatus, OCRStatus::done);
    EXPECT_EQ(document(u"d.pdf"_s)->ocrStatus, OCRStatus::pending);

    // Pausing forgets the requests. The scan added later goes first, though it comes first by id too.
    library.setPaused(true);
    EXPECT_TRUE(library.requested().empty());
    const std::int64_t later = std::min(document(u"b.pdf"_s)->id, document(u"d.pdf"_s)->id);
    connect()->run(u"UPDATE documents SET added_at = added_at + 60 WHERE id = ?"_s, { later });
    library.setPaused(false);
    ASSERT_TRUE(waitForQuiet());
    const std::vector<QString> log = activity(ActivityEntry::Kind::ocr);
    ASSERT_EQ(log.size(), 4u);
    EXPECT_TRUE(log[2].startsWith(FolderTest::document(later).path + u':')) << log[2].toStdString();
    EXPECT_FALSE(QSettings().value(Library::pausedKey).toBool());
}

TEST_F(LibraryTest, pausingWhileReadingLeavesTheScanPendingAndResumingReadsItAgain)
{
    writeFile(path(u"long.pdf"_s), scanPdf(std::vector(3, ScanPage { .lines = { u"Statement of account"_s } })));
    useRealReader();
    Library &library = openLibrary();
    bool paused = false;
    // Paused as the first page arrives, before any later answer of the reader is taken in.
    QObject::connect(&library, &Library::pageRead, [&] {
        if (std::exchange(paused, true))
            return;
        library.setPaused(true);
        EXPECT_EQ(library.currentOCR(), std::nullopt);
        EXPECT_FALSE(library.isReading());
        // Resuming at once starts a new loop while the stopped one may still be winding down; the old one
        // must not clear the new one.
        library.setPaused(false);
        EXPECT_TRUE(library.isReading());
    });
    ASSERT_TRUE(waitUntil([&] { return paused; }));
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(document(u"long.pdf"_s)->pageCount, 3);
    EXPECT_EQ(activity(ActivityEntry::Kind::ocr).size(), 1u);
}

// The reading under way when its file changes must not be kept for the new version.
TEST_F(LibraryTest, aFileReplacedWhileBeingReadIsReadAgainInItsNewVersion)
{
    const QString changing = fakeScan(u"changing.pdf"_s, QStringList(4, u"Original text"_s));
    QSettings().setValue(Library::pausedKey, true);
    Library &library = openLibrary();
    bool replaced = false;
    QObject::connect(&library, &Library::pageRead, &library, [&] {
        if (!std::exchange(replaced, true)) {
            writeFakeScan(changing, { u"Replacement letter"_s });
            library.rescan();
        }
    });
    library.setPaused(false);
    ASSERT_TRUE(waitUntil([&] {
        const ScanDocument *read = document(u"changing.pdf"_s);
        return read->ocrStatus == OCRStatus::done && read->pageCount == 1 && !library.isReading();
    }));
    EXPECT_TRUE(replaced);
    EXPECT_EQ(blockingWait(library.pages(*document(u"changing.pdf"_s))), QStringList { u"Replacement letter"_s });
}

TEST_F(LibraryTest, scansWhoseTextLooksLikeGibberishAreReadOnceMoreOncePerCatalogue)
{
    {
        ScanStore store(folder.path());
        for (const auto &[name, text] : std::vector<std::pair<QString, QString>> {
                 { u"upside-down.pdf"_s, u"xqzt bvkrw zzqpf kxvbq qwrtzp jxqv xqzt bvkrw zzqpf kxvbq qwrtzp jxqv"_s },
                 { u"fine.pdf"_s, u"Invoice for the month of March"_s } }) {
            const auto id = CatalogueFixtures::insertDocument(
                *connect(), { .path = name, .ocrStatus = u"done"_s, .extractStatus = u"done"_s });
            CatalogueFixtures::insertPage(*connect(), id, 0, text);
        }
    }
    openLibrary();
    EXPECT_EQ(activity(ActivityEntry::Kind::queue),
        std::vector { u": Reading 1 scan again: the text looked like gibberish, maybe upside down / "_s });
    // Its file is gone, so it waits, missing, instead of being read.
    EXPECT_EQ(document(u"upside-down.pdf"_s)->ocrStatus, OCRStatus::pending);
    EXPECT_EQ(document(u"upside-down.pdf"_s)->extractStatus, ExtractStatus::pending);
    EXPECT_EQ(document(u"fine.pdf"_s)->ocrStatus, OCRStatus::done);

    connect()->execute(u"UPDATE documents SET ocr_status = 'done'"_s);
    openLibrary();
    EXPECT_EQ(document(u"upside-down.pdf"_s)->ocrStatus, OCRStatus::done);
}

TEST_F(LibraryTest, aChosenFolderIsRememberedButNeitherTheOverrideNorOneThatCannotBeOpened)
{
    fakeScan(u"a.pdf"_s);
    QSettings().setValue(Library::folderOverrideKey, folder.path());
    library = std::make_unique<Library>(options());
    library->restore();
    EXPECT_EQ(library->folder(), QDir::cleanPath(folder.path()));
    ASSERT_TRUE(waitUntil([&] { return !library->documentsByID().empty(); }));

    QTemporaryDir other;
    writeFile(QDir(other.path()).filePath(ScanStore::fileName), QByteArray(4096, 'x'));
    library->open(other.path(), true);
    EXPECT_EQ(library->folder(), std::nullopt);
    EXPECT_TRUE(library->documentsByID().empty());
    EXPECT_TRUE(library->openError()->endsWith(u": file is not a database"_s)) << library->openError()->toStdString();
    EXPECT_FALSE(QSettings().contains(Library::folderPathKey));

    QSettings().remove(Library::folderOverrideKey);
    library->chooseFolder([&](const QString &) { return std::optional(folder.path()); });
    library = std::make_unique<Library>(options());
    library->restore();
    EXPECT_EQ(library->folder(), QDir::cleanPath(folder.path()));
}

TEST_F(LibraryTest, aFolderThatGoesAwayMarksItsScansMissingAndTheyComeBackWhole)
{
    fakeScan(u"a.pdf"_s, { u"Garden furniture order"_s });
    fakeScan(u"Sub/b.pdf"_s);
    Library &library = openLibrary();
    ASSERT_TRUE(waitForQuiet());
    const std::map<std::int64_t, ScanDocument> before = library.documentsByID();

    const QString away = folder.path() + u"-away"_s;
    ASSERT_TRUE(QDir().rename(folder.path(), away));
    library.rescan();
    ASSERT_TRUE(waitUntil([&] {
        return std::ranges::all_of(library.documentsByID(), [](const auto &entry) { return entry.second.missing; });
    }));
    EXPECT_EQ(library.documentsByID().size(), 2u);
    ASSERT_TRUE(QDir().rename(away, folder.path()));
    ASSERT_TRUE(waitUntil([&] { return library.documentsByID() == before; }));
}

} // namespace
