#include "library/ModelGate.h"

#include <QCoro/QCoroFuture>
#include <QFuture>
#include <QPromise>

#include <algorithm>
#include <deque>

struct ModelGate::Lease::Waiter {
    // Finished when the model is handed to this waiter; awaiting its future resumes the waiter from the
    // event loop, never inside the releasing caller.
    QPromise<void> turn;
    bool granted = false;
};

struct ModelGate::Lease::State {
    bool busy = false;
    std::deque<std::shared_ptr<Waiter>> waiters;
};

ModelGate::Lease::Lease(std::shared_ptr<State> state, std::shared_ptr<Waiter> waiter)
    : state_(std::move(state))
    , waiter_(std::move(waiter))
{
}

ModelGate::Lease &ModelGate::Lease::operator=(Lease &&other) noexcept
{
    if (this != &other) {
        release();
        state_ = std::move(other.state_);
        waiter_ = std::move(other.waiter_);
    }
    return *this;
}

void ModelGate::Lease::release()
{
    if (!state_)
        return;
    const std::shared_ptr<State> state = std::move(state_);
    const std::shared_ptr<Waiter> waiter = std::move(waiter_);
    if (waiter && !waiter->granted) {
        // Still waiting: only the place in the queue goes.
        std::erase(state->waiters, waiter);
        return;
    }
    if (state->waiters.empty()) {
        state->busy = false;
        return;
    }
    // The model passes straight to the next caller; `busy` stays set.
    const std::shared_ptr<Waiter> next = state->waiters.front();
    state->waiters.pop_front();
    next->granted = true;
    next->turn.finish();
}

ModelGate::ModelGate()
    : state_(std::make_shared<Lease::State>())
{
}

QCoro::Task<ModelGate::Lease> ModelGate::acquire()
{
    const std::shared_ptr<Lease::State> state = state_;
    if (!state->busy) {
        state->busy = true;
        co_return Lease(state, nullptr);
    }
    auto waiter = std::make_shared<Lease::Waiter>();
    waiter->turn.start();
    state->waiters.push_back(waiter);
    Lease lease(state, waiter);
    co_await waiter->turn.future();
    co_return lease;
}

bool ModelGate::busy() const
{
    return state_->busy;
}

qsizetype ModelGate::waiting() const
{
    return qsizetype(state_->waiters.size());
}
