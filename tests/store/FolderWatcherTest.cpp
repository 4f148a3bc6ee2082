#include "store/FolderWatcher.h"

#include "store/ScanStore.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace {

class FolderWatcherTest : public ::testing::Test {
protected:
    void watch()
    {
        watcher = std::make_unique<FolderWatcher>(dir.path(), [this] { ++calls; });
    }

    void write(const QString &relativePath, const QByteArray &content = "%PDF-1.4")
    {
        QFile file(QDir(dir.path()).filePath(relativePath));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    // Runs the event loop until `calls` reaches `count` or `milliseconds` pass; the deadlines are generous
    // next to the watcher's 1.5 s batches.
    void runUntil(int count, int milliseconds = 6000)
    {
        QEventLoop loop;
        QTimer deadline;
        deadline.setSingleShot(true);
        QObject::connect(&deadline, &QTimer::timeout, &loop, &QEventLoop::quit);
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (calls >= count)
                loop.quit();
        });
        deadline.start(milliseconds);
        poll.start(20);
        loop.exec();
    }
    // Long enough for any batch under way to end.
    void settle() { runUntil(1000, 3000); }

    QTemporaryDir dir;
    int calls = 0;
    std::unique_ptr<FolderWatcher> watcher;
};

TEST_F(FolderWatcherTest, tenPDFsCopiedAtOnce_reportOnce)
{
    watch();
    for (int i = 0; i < 10; ++i)
        write(QStringLiteral("scan%1.pdf").arg(i));
    runUntil(1);
    settle();
    EXPECT_EQ(calls, 1);
}

TEST_F(FolderWatcherTest, catalogueWritesOtherFilesAndHiddenOrPackagedPDFs_reportNothing)
{
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral(".trash")));
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("Viewer.app/Contents")));
    watch();
    {
        ScanStore store(dir.path());
        for (int i = 0; i < 5; ++i)
            store.setSetting(QStringLiteral("instructions"), QStringLiteral("version %1").arg(i));
    }
    write(QStringLiteral("notes.txt"));
    write(QStringLiteral("scan.pdf.part"));
    QDir(dir.path()).mkdir(QStringLiteral(".cache"));
    write(QStringLiteral(".cache/thumbnail.png"));
    write(QStringLiteral(".trash/old.pdf"));
    write(QStringLiteral("Viewer.app/Contents/help.pdf"));
    settle();
    EXPECT_EQ(calls, 0);

    // It was listening all along.
    write(QStringLiteral("Scan.PDF"));
    runUntil(1);
    EXPECT_EQ(calls, 1);
}

TEST_F(FolderWatcherTest, newFolders_reportAndAreWatchedWithTheFoldersInside)
{
    watch();
    ASSERT_TRUE(QDir(dir.path()).mkpath(QStringLiteral("Invoices/2024")));
    runUntil(1);
    EXPECT_EQ(calls, 1);

    // The callback ends a batch: what follows starts a new one.
    write(QStringLiteral("Invoices/2024/a.pdf"));
    runUntil(2);
    EXPECT_EQ(calls, 2);

    // A folder moved in from elsewhere, with folders of its own.
    QTemporaryDir outside(QDir(dir.path()).filePath(QStringLiteral("../import-XXXXXX")));
    ASSERT_TRUE(QDir(outside.path()).mkpath(QStringLiteral("2023/March")));
    ASSERT_TRUE(QFile::rename(outside.path(), QDir(dir.path()).filePath(QStringLiteral("Imported"))));
    runUntil(3);
    EXPECT_EQ(calls, 3);
    write(QStringLiteral("Imported/2023/March/b.pdf"));
    runUntil(4);
    EXPECT_EQ(calls, 4);
}

TEST_F(FolderWatcherTest, destroyedWithABatchUnderWay_reportsNothing)
{
    watch();
    write(QStringLiteral("a.pdf"));
    runUntil(1, 200);
    watcher.reset();
    settle();
    EXPECT_EQ(calls, 0);

    // A folder that isn't there gives a watcher that never reports.
    FolderWatcher nowhere(QDir(dir.path()).filePath(QStringLiteral("missing")), [this] { ++calls; });
    QDir(dir.path()).mkdir(QStringLiteral("missing"));
    write(QStringLiteral("missing/a.pdf"));
    settle();
    EXPECT_EQ(calls, 0);
}

} // namespace
