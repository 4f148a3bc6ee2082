#include "store/FolderWatcher.h"

#include "store/ScanStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

class FolderWatcherTest : public ::testing::Test {
protected:
    void watch()
    {
        watcher = std::make_unique<FolderWatcher>(dir.path(), [this] { ++calls; });
    }

    void write(const QString &relativePath, const QByteArray &content = "%PDF-1.4")
    {
        QFile file(dir.filePath(relativePath));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    // Runs the event loop until `calls` reaches `count`; the deadline is generous next to the 1.5 s batches.
    void runUntil(int count)
    {
        static_cast<void>(QTest::qWaitFor([&] { return calls >= count; }, 6000));
    }
    // Long enough for any batch under way to end.
    void settle() { QTest::qWait(3000); }

    QTemporaryDir dir;
    int calls = 0;
    std::unique_ptr<FolderWatcher> watcher;
};

TEST_F(FolderWatcherTest, onlyPDFsOutsideHiddenAndPackagedFoldersCountAndTenAtOnceReportOnce)
{
    ASSERT_TRUE(QDir(dir.path()).mkpath(u".trash"_s));
    ASSERT_TRUE(QDir(dir.path()).mkpath(u"Viewer.app/Contents"_s));
    watch();
    {
        ScanStore store(dir.path());
        for (int i = 0; i < 5; ++i)
            store.setSetting(u"instructions"_s, u"version %1"_s.arg(i));
    }
    for (const char *ignored : { "notes.txt", "scan.pdf.part", ".trash/old.pdf", "Viewer.app/Contents/help.pdf" })
        write(QString::fromUtf8(ignored));
    settle();
    EXPECT_EQ(calls, 0);

    for (int i = 0; i < 10; ++i)
        write(u"scan%1.PDF"_s.arg(i));
    runUntil(1);
    settle();
    EXPECT_EQ(calls, 1);
}

TEST_F(FolderWatcherTest, newFolders_reportAndAreWatchedWithTheFoldersInside)
{
    watch();
    ASSERT_TRUE(QDir(dir.path()).mkpath(u"Invoices/2024"_s));
    runUntil(1);
    EXPECT_EQ(calls, 1);
    // The callback ends a batch: what follows starts a new one.
    write(u"Invoices/2024/a.pdf"_s);
    runUntil(2);
    EXPECT_EQ(calls, 2);

    // A folder moved in from elsewhere, with folders of its own.
    QTemporaryDir outside(dir.filePath(u"../import-XXXXXX"_s));
    ASSERT_TRUE(QDir(outside.path()).mkpath(u"2023/March"_s));
    ASSERT_TRUE(QFile::rename(outside.path(), dir.filePath(u"Imported"_s)));
    runUntil(3);
    write(u"Imported/2023/March/b.pdf"_s);
    runUntil(4);
    EXPECT_EQ(calls, 4);
}

// More events than the kernel queues while the watcher isn't reading: the PDF and the folder made last
// are lost from the queue, yet the change is reported and the folder is watched.
TEST_F(FolderWatcherTest, queueOverflow_reportsAndWatchesWhatWasLost)
{
    QFile limit(u"/proc/sys/fs/inotify/max_queued_events"_s);
    ASSERT_TRUE(limit.open(QIODevice::ReadOnly));
    const int queued = limit.readAll().trimmed().toInt();
    if (queued <= 0 || queued > 1'000'000)
        GTEST_SKIP() << "inotify queue of " << queued << " events";
    watch();
    // Writes to two files in turn: each queues a change the kernel can't merge with the one before.
    QFile notes[] { QFile(dir.filePath(u"a.txt"_s)), QFile(dir.filePath(u"b.txt"_s)) };
    for (QFile &file : notes)
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    for (int i = 0; i < queued + 100; ++i)
        ASSERT_EQ(notes[i % 2].write("x", 1), 1);
    write(u"lost.pdf"_s);
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"Lost"_s));

    runUntil(1);
    settle();
    EXPECT_EQ(calls, 1);
    write(u"Lost/a.pdf"_s);
    runUntil(2);
    EXPECT_EQ(calls, 2);
}

TEST_F(FolderWatcherTest, destroyedWithABatchUnderWay_reportsNothing)
{
    watch();
    write(u"a.pdf"_s);
    QTest::qWait(200);
    watcher.reset();
    settle();
    EXPECT_EQ(calls, 0);
}

} // namespace
