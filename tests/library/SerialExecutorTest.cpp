#include "library/SerialExecutor.h"

#include "library/BlockingWait.h"
#include "store/Database.h"
#include "store/ScanStore.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

namespace {

TEST(SerialExecutor, calls_runOneAtATimeInOrderOffTheCallingThread)
{
    SerialExecutor executor;
    std::atomic<int> running = 0;
    std::atomic<int> overlaps = 0;
    std::vector<int> order;
    std::vector<QFuture<QThread *>> futures;
    for (int i = 0; i < 50; ++i) {
        futures.push_back(executor.run([&, i] {
            if (running.fetch_add(1) != 0)
                ++overlaps;
            order.push_back(i);
            QThread::usleep(200);
            running.fetch_sub(1);
            return QThread::currentThread();
        }));
    }
    executor.waitForIdle();

    EXPECT_EQ(overlaps, 0);
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(order[i], i);
    QThread *const worker = futures.front().result();
    EXPECT_NE(worker, QThread::currentThread());
    for (auto &future : futures)
        EXPECT_EQ(future.result(), worker);
}

QCoro::Task<int> awaitBoth(SerialExecutor &executor, bool &eventLoopRan)
{
    QTimer::singleShot(0, [&] { eventLoopRan = true; });
    const int first = co_await executor.run([] {
        QThread::msleep(50);
        return 20;
    });
    co_await executor.run([] {});
    co_return first + 22;
}

TEST(SerialExecutor, awaitingAResult_keepsTheEventLoopRunning)
{
    SerialExecutor executor;
    bool eventLoopRan = false;
    EXPECT_EQ(blockingWait(awaitBoth(executor, eventLoopRan)), 42);
    EXPECT_TRUE(eventLoopRan);
}

QCoro::Task<QString> failingCall(SerialExecutor &executor)
{
    co_await executor.run([] { throw Database::Error(QStringLiteral("database is locked")); });
    co_return QStringLiteral("not reached");
}

QCoro::Task<int> failingValue(SerialExecutor &executor)
{
    co_return co_await executor.run([]() -> int { throw std::runtime_error("boom"); });
}

TEST(SerialExecutor, exceptionInACall_isRethrownWhereItIsAwaited)
{
    SerialExecutor executor;
    try {
        blockingWait(failingCall(executor));
        FAIL() << "no exception arrived";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("database is locked"));
    }
    EXPECT_THROW(blockingWait(failingValue(executor)), std::runtime_error);
    // The executor goes on with later calls.
    EXPECT_EQ(executor.run([] { return 7; }).result(), 7);
}

QCoro::Task<int> openAndCount(QString folder)
{
    auto store = co_await Serial<ScanStore>::make(folder);
    co_return co_await store->run([](ScanStore &s) { return int(s.documents().size()); });
}

TEST(Serial, store_isOpenedAndUsedOnItsExecutor)
{
    QTemporaryDir dir;
    EXPECT_EQ(blockingWait(openAndCount(dir.path())), 0);
}

TEST(Serial, storeThatCannotOpen_throwsTheOpenErrorToTheAwaiter)
{
    QTemporaryDir dir;
    try {
        blockingWait(openAndCount(dir.filePath(QStringLiteral("no/such/folder"))));
        FAIL() << "opened a store in a folder that does not exist";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("unable to open database file"));
    }
}

// Dropping the last reference while calls are queued waits for them; none runs on a freed object.
TEST(Serial, droppedWhileCallsAreQueued_finishesThemFirst)
{
    QTemporaryDir dir;
    struct Counter {
        explicit Counter(std::atomic<int> *runs)
            : runs(runs)
        {
        }
        std::atomic<int> *runs;
    };
    std::atomic<int> runs = 0;
    auto serial = blockingWait(Serial<Counter>::make(&runs));
    for (int i = 0; i < 20; ++i)
        serial->run([](Counter &c) {
            QThread::usleep(500);
            ++*c.runs;
        });
    serial.reset();
    EXPECT_EQ(runs, 20);
}

} // namespace
