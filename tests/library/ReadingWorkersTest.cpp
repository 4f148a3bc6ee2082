// Several scans read at once, each by a reader of its own, through the fake reader's log of readings.
#include "library/LibraryFixture.h"
#include "library/ReaderWorker.h"
#include "library/Recognition.h"
#include "library/StatusLabel.h"
#include "library/StatusLine.h"

#include <algorithm>

namespace {

class ReadingWorkersTest : public LibraryTest {
protected:
    explicit ReadingWorkersTest(int readers = 2) { QSettings().setValue(ReadingWorkers::key, readers); }

    // Lets the held reading of a scan made with fakeReadWait finish.
    void release(const QString &name) { writeFile(path(name) + u".go"_s, {}); }
    QString waiting(const QString &name) { return fakeScan(name, { QString::fromLatin1(fakeReadWait) }); }
    std::vector<FakeRead> reads() const { return fakeReads(folder.path()); }
    QStringList readingFiles() const
    {
        QStringList files;
        for (const WorkScheduler::ReadingScan &scan : library->readingNow())
            files << scan.file;
        return files;
    }
    std::int64_t id(const QString &name) const { return document(name)->id; }
};

TEST_F(ReadingWorkersTest, requestedScansGoFirstThenTheNewestAndNoScanIsReadTwice)
{
    QSettings().setValue(Library::pausedKey, true);
    const QStringList names { u"a.pdf"_s, u"b.pdf"_s, u"c.pdf"_s, u"d.pdf"_s, u"e.pdf"_s, u"f.pdf"_s };
    for (const QString &name : names)
        waiting(name);
    Library &library = openLibrary();
    library.request({ id(u"b.pdf"_s), id(u"e.pdf"_s) });
    ASSERT_TRUE(waitUntil([&] { return reads().size() == 2 && library.readingNow().size() == 2; }));
    const QStringList first = readingFiles();
    EXPECT_EQ(QSet(first.begin(), first.end()), (QSet<QString> { u"b.pdf"_s, u"e.pdf"_s }));
    EXPECT_TRUE(statusLine(library).work.endsWith(u" (2 at once)"_s)) << statusLine(library).work.toStdString();
    const WorkState work = WorkState::of(library);
    EXPECT_EQ(statusLabel(*document(u"b.pdf"_s), work).text, u"Reading…"_s);
    EXPECT_EQ(statusLabel(*document(u"e.pdf"_s), work).text, u"Reading…"_s);
    EXPECT_EQ(statusLabel(*document(u"a.pdf"_s), work).text, u"Paused"_s);

    // Once resumed, each reader let go takes the newest scan left; the status names the latest started.
    library.setPaused(false);
    DocumentIDs rest;
    for (const QString &name : { u"a.pdf"_s, u"c.pdf"_s, u"d.pdf"_s, u"f.pdf"_s })
        rest.push_back(id(name));
    std::ranges::sort(rest, std::greater());
    for (std::size_t started = 2; started < std::size_t(names.size()); ++started) {
        release(reads()[started - 2].file);
        ASSERT_TRUE(waitUntil([&] { return reads().size() == started + 1; }));
        EXPECT_EQ(reads()[started].file, QFileInfo(FolderTest::document(rest[started - 2]).path).fileName());
        ASSERT_TRUE(waitUntil([&] { return library.currentOCR() == reads()[started].file; }));
    }
    for (const QString &name : names)
        release(name);
    ASSERT_TRUE(waitForQuiet());

    const std::vector<FakeRead> log = reads();
    ASSERT_EQ(log.size(), std::size_t(names.size()));
    for (const FakeRead &read : log) {
        EXPECT_FALSE(read.again) << read.file.toStdString();
        EXPECT_LE(read.underway, 2) << read.file.toStdString();
    }
    EXPECT_EQ(activity(ActivityEntry::Kind::ocr).size(), std::size_t(names.size()));
    EXPECT_EQ(library.currentOCR(), std::nullopt);
}

// While one reader holds a scan whose file changes, the other reader, looking for work, must not take the
// scan again; the held reading is then refused and the new version read.
TEST_F(ReadingWorkersTest, aFileChangedWhileBeingReadIsNeitherReadTwiceAtOnceNorSavedStale)
{
    const QString changing = waiting(u"changing.pdf"_s);
    Library &library = openLibrary();
    ASSERT_TRUE(waitUntil([&] { return reads().size() == 1; }));

    writeFakeScan(changing, { u"Replacement letter"_s });
    fakeScan(u"later.pdf"_s, { u"Arrived later"_s });
    bool synced = false;
    QObject scope;
    QObject::connect(&library, &Library::synced, &scope, [&] { synced = true; });
    library.rescan();
    ASSERT_TRUE(waitUntil([&] { return synced && document(u"later.pdf"_s)->ocrStatus == OCRStatus::done; }));
    EXPECT_EQ(reads().size(), 2u);
    release(u"changing.pdf"_s);
    ASSERT_TRUE(waitUntil([&] {
        const ScanDocument *read = document(u"changing.pdf"_s);
        return read->ocrStatus == OCRStatus::done && !library.isReading();
    }));
    EXPECT_EQ(blockingWait(library.pages(*document(u"changing.pdf"_s))), QStringList { u"Replacement letter"_s });
    const std::vector<FakeRead> log = reads();
    EXPECT_EQ(std::ranges::count(log, u"changing.pdf"_s, &FakeRead::file), 2);
    EXPECT_TRUE(std::ranges::none_of(log, &FakeRead::again));
}

class ThreeReaders : public ReadingWorkersTest {
protected:
    ThreeReaders()
        : ReadingWorkersTest(3)
    {
    }
};

TEST_F(ThreeReaders, aHangAndACrashCostOnlyTheirOwnScansWhileTheOtherReadersGoOn)
{
    QSettings().setValue(ReaderSettings::timeoutKey, 1);
    QSettings().setValue(Library::pausedKey, true);
    fakeScan(u"hang.pdf"_s, { QString::fromLatin1(fakeReadHang) });
    fakeScan(u"crash.pdf"_s, { QString::fromLatin1(fakeReadCrash) });
    for (int index = 1; index <= 4; ++index)
        fakeScan(u"fine-%1.pdf"_s.arg(index), { u"Letter %1"_s.arg(index) });
    Library &library = openLibrary();
    // The two bad scans are the newest, so that the others are read while they fail.
    connect()->run(u"UPDATE documents SET added_at = added_at + 60 WHERE path IN ('hang.pdf', 'crash.pdf')"_s);
    library.setPaused(false);
    ASSERT_TRUE(waitForQuiet());

    EXPECT_EQ(document(u"hang.pdf"_s)->error, ReaderWorker::tookTooLong);
    EXPECT_EQ(document(u"crash.pdf"_s)->error, ReaderWorker::stoppedTheReader);
    for (int index = 1; index <= 4; ++index)
        EXPECT_EQ(document(u"fine-%1.pdf"_s.arg(index))->ocrStatus, OCRStatus::done) << index;
    // The fine scans were read beside the hanging one.
    const std::vector<FakeRead> log = reads();
    EXPECT_TRUE(std::ranges::any_of(log, [](const FakeRead &read) { return read.underway >= 2; }));
    EXPECT_EQ(activity(ActivityEntry::Kind::ocr).size(), 6u);
}

TEST_F(ThreeReaders, pausingAndClosingWithEveryReaderBusyEndThemAllAndLeaveTheScansWaiting)
{
    for (const QString &name : { u"a.pdf"_s, u"b.pdf"_s, u"c.pdf"_s, u"d.pdf"_s })
        waiting(name);
    const auto readers = [&](std::size_t from) {
        std::vector<qint64> pids;
        for (std::size_t index = from; index < reads().size(); ++index)
            pids.push_back(reads()[index].pid);
        return pids;
    };
    const auto allEnded = [](const std::vector<qint64> &pids) { return std::ranges::all_of(pids, processEnded); };

    Library &library = openLibrary();
    ASSERT_TRUE(waitUntil([&] { return reads().size() == 3 && library.readingNow().size() == 3; }));
    library.setPaused(true);
    EXPECT_FALSE(library.isReading());
    EXPECT_TRUE(library.readingNow().empty());
    EXPECT_TRUE(waitUntil([&] { return allEnded(readers(0)); }));
    EXPECT_EQ(library.pendingOCR(), 4);

    library.setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return reads().size() == 6; }));
    this->library.reset();
    EXPECT_TRUE(waitUntil([&] { return allEnded(readers(3)); }));

    for (const QString &name : { u"a.pdf"_s, u"b.pdf"_s, u"c.pdf"_s, u"d.pdf"_s })
        release(name);
    openLibrary();
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(activity(ActivityEntry::Kind::ocr).size(), 4u);
    EXPECT_TRUE(std::ranges::none_of(reads(), &FakeRead::again));
}

} // namespace
