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

QCoro::Task<int> answer(int value)
{
    co_return value;
}

QCoro::Task<int> fail()
{
    throw std::runtime_error("model gone");
    co_return 0;
}

QCoro::Task<int> runAndCount(ModelGate &gate, std::stop_token stop, int value, std::vector<int> &ran)
{
    co_return co_await gate.run(stop, [&ran, value]() -> QCoro::Task<int> {
        ran.push_back(value);
        return answer(value);
    });
}
} // namespace

TEST(ModelGate, waitingCallers_getTheModelFirstInFirstOut)
{
    ModelGate gate;
    std::vector<int> order;
    std::map<int, ModelGate::Lease> held;
    std::vector<QCoro::Task<>> callers;
    for (int id = 1; id <= 3; ++id)
        callers.push_back(take(gate, id, order, held));
    EXPECT_EQ(order, std::vector<int>({ 1 }));
    EXPECT_EQ(gate.waiting(), 2);

    held.at(1).release();
    ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == 2; }));
    // A caller arriving now queues behind the one still waiting.
    callers.push_back(take(gate, 4, order, held));
    held.erase(2);
    ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == 3; }));
    EXPECT_TRUE(gate.busy());
    held.erase(3);
    ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == 4; }));
    EXPECT_EQ(order, std::vector<int>({ 1, 2, 3, 4 }));
    EXPECT_EQ(gate.waiting(), 0);
    EXPECT_TRUE(gate.busy());

    held.clear();
    EXPECT_FALSE(gate.busy());
    // Free again: taken at once.
    callers.push_back(take(gate, 5, order, held));
    EXPECT_EQ(order.back(), 5);
}

TEST(ModelGate, run_givesTheResultOrErrorAndPassesTheModelOnWhenStopped)
{
    ModelGate gate;
    std::vector<int> order;
    std::map<int, ModelGate::Lease> held;
    QCoro::Task<> holder = take(gate, 0, order, held);

    std::vector<int> ran;
    std::stop_source stopped;
    QCoro::Task<int> cancelled = runAndCount(gate, stopped.get_token(), 1, ran);
    QCoro::Task<int> next = runAndCount(gate, {}, 2, ran);
    stopped.request_stop();
    held.clear();

    EXPECT_THROW(blockingWait(std::move(cancelled)), Cancelled);
    EXPECT_EQ(blockingWait(std::move(next)), 2);
    EXPECT_EQ(ran, std::vector<int>({ 2 }));
    EXPECT_FALSE(gate.busy());

    EXPECT_THROW(blockingWait(gate.run({}, [] { return fail(); })), std::runtime_error);
    EXPECT_FALSE(gate.busy());
}
