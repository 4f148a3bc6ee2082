#include "library/ModelGate.h"

#include "library/BlockingWait.h"

#include <QTest>

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

namespace {

// Takes the gate and keeps it in `held` until the test lets go of it.
QCoro::Task<> take(ModelGate &gate, int id, std::vector<int> &order, std::map<int, ModelGate::Lease> &held)
{
    ModelGate::Lease lease = co_await gate.acquire();
    order.push_back(id);
    held.emplace(id, std::move(lease));
}

TEST(ModelGate, waitingCallersGetTheModelFirstInFirstOut)
{
    ModelGate gate;
    std::vector<int> order;
    std::map<int, ModelGate::Lease> held;
    std::vector<QCoro::Task<>> callers;
    for (int id = 1; id <= 3; ++id)
        callers.push_back(take(gate, id, order, held));
    EXPECT_EQ(order, std::vector { 1 });

    held.erase(1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == 2; }));
    // A caller arriving now queues behind the one still waiting.
    callers.push_back(take(gate, 4, order, held));
    for (int id = 2; id <= 3; ++id) {
        held.erase(id);
        ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == std::size_t(id) + 1; }));
    }
    EXPECT_EQ(order, (std::vector { 1, 2, 3, 4 }));
    held.clear();
    EXPECT_FALSE(gate.busy());
}

TEST(ModelGate, runGivesTheResultOrErrorAndPassesTheModelOnWhenStopped)
{
    ModelGate gate;
    std::vector<int> order;
    std::map<int, ModelGate::Lease> held;
    QCoro::Task<> holder = take(gate, 0, order, held);

    std::vector<int> ran;
    const auto runAndCount = [&](std::stop_token stop, int value) {
        return gate.run(stop, [&ran, value]() -> QCoro::Task<int> {
            ran.push_back(value);
            co_return value;
        });
    };
    std::stop_source stopped;
    QCoro::Task<int> cancelled = runAndCount(stopped.get_token(), 1);
    QCoro::Task<int> next = runAndCount({}, 2);
    stopped.request_stop();
    held.clear();
    EXPECT_THROW(blockingWait(std::move(cancelled)), Cancelled);
    EXPECT_EQ(blockingWait(std::move(next)), 2);
    EXPECT_EQ(ran, std::vector { 2 });

    const auto fail = []() -> QCoro::Task<int> {
        throw std::runtime_error("model gone");
        co_return 0;
    };
    EXPECT_THROW(blockingWait(gate.run({}, fail)), std::runtime_error);
    EXPECT_FALSE(gate.busy());
}

} // namespace
