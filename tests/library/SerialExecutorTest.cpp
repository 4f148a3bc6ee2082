#include "library/SerialExecutor.h"

#include "library/BlockingWait.h"

#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

namespace {

TEST(SerialExecutor, callsRunOneAtATimeInOrderOnOneThreadOffTheCallingOne)
{
    SerialExecutor executor;
    std::atomic<int> running = 0;
    std::vector<int> order;
    std::vector<QFuture<QThread *>> futures;
    for (int i = 0; i < 50; ++i) {
        futures.push_back(executor.run([&, i] {
            // An overlapping call shows as -1.
            order.push_back(running++ == 0 ? i : -1);
            QThread::usleep(200);
            --running;
            return QThread::currentThread();
        }));
    }
    executor.waitForIdle();
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(order[std::size_t(i)], i);
    EXPECT_NE(futures.front().result(), QThread::currentThread());
    for (auto &future : futures)
        EXPECT_EQ(future.result(), futures.front().result());
}

QCoro::Task<int> awaitTwice(SerialExecutor &executor, bool &eventLoopRan)
{
    QTimer::singleShot(0, [&] { eventLoopRan = true; });
    const int first = co_await executor.run([] {
        QThread::msleep(50);
        return 20;
    });
    co_return first + co_await executor.run([]() -> int { throw std::runtime_error("boom"); });
}

TEST(SerialExecutor, awaitingKeepsTheEventLoopRunningAndAnExceptionReachesTheAwaiter)
{
    SerialExecutor executor;
    bool eventLoopRan = false;
    EXPECT_THROW(blockingWait(awaitTwice(executor, eventLoopRan)), std::runtime_error);
    EXPECT_TRUE(eventLoopRan);
    // The executor goes on with later calls.
    EXPECT_EQ(executor.run([] { return 7; }).result(), 7);
}

// Dropping the last reference while calls are queued waits for them; none runs on a freed object.
TEST(Serial, droppedWhileCallsAreQueuedFinishesThemFirst)
{
    std::atomic<int> runs = 0;
    // The object is a pointer to the count.
    auto serial = blockingWait(Serial<std::atomic<int> *>::make(&runs));
    for (int i = 0; i < 20; ++i)
        serial->run([](std::atomic<int> *count) {
            QThread::usleep(500);
            ++*count;
        });
    serial.reset();
    EXPECT_EQ(runs, 20);
}

} // namespace
