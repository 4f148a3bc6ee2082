#pragma once

#include "core/Cancellation.h"

#include <QCoro/QCoroTask>

#include <memory>
#include <stop_token>

// Lets one caller at a time use the model, for a whole scan: the extraction loop and the instructions
// trial. Callers waiting for it are served first in, first out. For coroutines on the main thread only.
class ModelGate {
public:
    // The right to use the model, given back when the lease is destroyed or released. A lease also
    // stands for a place in the queue while `acquire` waits: dropping the waiting coroutine gives up
    // that place (or passes the gate on, if it had just been granted).
    class Lease {
    public:
        Lease(Lease &&other) noexcept = default;
        Lease &operator=(Lease &&other) noexcept;
        Lease(const Lease &) = delete;
        Lease &operator=(const Lease &) = delete;
        ~Lease() { release(); }

        void release();

    private:
        friend class ModelGate;
        struct Waiter;
        struct State;
        Lease(std::shared_ptr<State> state, std::shared_ptr<Waiter> waiter);

        std::shared_ptr<State> state_;
        // The place in the queue; absent when the gate was free.
        std::shared_ptr<Waiter> waiter_;
    };

    ModelGate();

    // Resumes when the model is free for this caller: at once when nobody holds it, else after every
    // caller that asked before. The gate may outlive its object while leases remain.
    QCoro::Task<Lease> acquire();

    // Runs `operation()`, a coroutine, once the model is free, and gives its result; a stop requested
    // while waiting throws Cancelled instead, and the model passes to the next caller either way.
    template <typename Operation> auto run(std::stop_token stop, Operation operation) -> decltype(operation())
    {
        Lease lease = co_await acquire();
        throwIfCancelled(stop);
        co_return co_await operation();
    }

    // Someone holds the model.
    bool busy() const;
    // Callers waiting for it.
    qsizetype waiting() const;

private:
    std::shared_ptr<Lease::State> state_;
};
