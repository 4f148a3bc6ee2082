#pragma once

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroTask>
#include <QFuture>
#include <QPromise>
#include <QThreadPool>

#include <exception>
#include <functional>
#include <memory>
#include <type_traits>

// Runs calls one at a time, in the order given, on one thread of its own. Each call's result, or the
// exception it threw, arrives through the returned QFuture; awaiting it with QCoro rethrows the
// exception where the coroutine awaits.
class SerialExecutor {
public:
    SerialExecutor();
    // Waits for the calls already queued.
    ~SerialExecutor();
    SerialExecutor(const SerialExecutor &) = delete;
    SerialExecutor &operator=(const SerialExecutor &) = delete;

    template <typename Call> auto run(Call call) -> QFuture<std::invoke_result_t<Call &>>
    {
        using Result = std::invoke_result_t<Call &>;
        auto promise = std::make_shared<QPromise<Result>>();
        QFuture<Result> future = promise->future();
        promise->start();
        pool_.start([promise, call = std::move(call)]() mutable {
            try {
                if constexpr (std::is_void_v<Result>) {
                    call();
                } else {
                    promise->addResult(call());
                }
            } catch (...) {
                promise->setException(std::current_exception());
            }
            promise->finish();
        });
        return future;
    }

    // Blocks until every queued call has run.
    void waitForIdle();

private:
    QThreadPool pool_;
};

// An object whose operations run one at a time on its own SerialExecutor, off the caller's thread. The
// object is made on the executor too, so that slow construction (opening a file) never blocks.
template <typename Object> class Serial {
public:
    // Constructs the object on the executor; awaiting rethrows the constructor's exception, if any.
    template <typename... Args> static QCoro::Task<std::shared_ptr<Serial>> make(Args... args)
    {
        std::shared_ptr<Serial> serial(new Serial);
        // The call holds no reference to `serial`: the last reference must never drop on the executor's
        // own thread, whose destructor waits for that thread.
        co_await serial->executor_.run(
            [object = &serial->object_, args...]() { *object = std::make_unique<Object>(args...); });
        co_return serial;
    }

    // Constructs the object on the calling thread, for callers that need its failure at once.
    template <typename... Args> static std::shared_ptr<Serial> makeNow(Args... args)
    {
        std::shared_ptr<Serial> serial(new Serial);
        serial->object_ = std::make_unique<Object>(args...);
        return serial;
    }

    // Runs `call(object)` after every call queued before it.
    template <typename Call> auto run(Call call) -> QFuture<std::invoke_result_t<Call &, Object &>>
    {
        return executor_.run([object = object_.get(), call = std::move(call)]() mutable { return call(*object); });
    }

private:
    Serial() = default;
    // The executor is declared last so that it is destroyed first: queued calls finish before the
    // object goes away.
    std::unique_ptr<Object> object_;
    SerialExecutor executor_;
};
