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

TEST(ModelGate, callersGetTheModelFirstInFirstOutAndOneStoppedWhileWaitingPassesItOn)
{
    ModelGate gate;
    std::vector<int> order;
    std::map<int, ModelGate::Lease> held;
    QCoro::Task<> first = take(gate, 1, order, held), second = take(gate, 2, order, held);
    const auto run = [&](std::stop_token stop, int id) {
        return gate.run(stop, [&order, id]() -> QCoro::Task<int> {
            order.push_back(id);
            co_return id;
        });
    };
    std::stop_source stopped;
    QCoro::Task<int> cancelled = run(stopped.get_token(), 3), next = run({}, 4);
    stopped.request_stop();

    held.erase(1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == 2; }));
    // A caller arriving now queues behind those still waiting.
    QCoro::Task<> late = take(gate, 5, order, held);
    held.erase(2);
    EXPECT_THROW(blockingWait(std::move(cancelled)), Cancelled);
    EXPECT_EQ(blockingWait(std::move(next)), 4);
    ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == 4; }));
    EXPECT_EQ(order, (std::vector { 1, 2, 4, 5 }));

    held.clear();
    const auto fail = []() -> QCoro::Task<int> {
        throw std::runtime_error("model gone");
        co_return 0;
    };
    EXPECT_THROW(blockingWait(gate.run({}, fail)), std::runtime_error);
    EXPECT_FALSE(gate.busy());
}

} // namespace
