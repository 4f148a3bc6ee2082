#pragma once

#include <QCoro/QCoroTask>
#include <QEventLoop>

#include <exception>
#include <optional>
#include <type_traits>

// Runs a task to completion in a nested event loop and returns its result, rethrowing its exception.
// For the command-line front end and tests, which have no event loop of their own to return to.
// (QCoro::waitFor never returns when the task throws.)
template <typename T> T blockingWait(QCoro::Task<T> task)
{
    QEventLoop loop;
    bool finished = false;
    std::exception_ptr error;
    std::conditional_t<std::is_void_v<T>, bool, std::optional<T>> result {};

    auto run = [&]() -> QCoro::Task<> {
        try {
            if constexpr (std::is_void_v<T>)
                co_await task;
            else
                result = co_await task;
        } catch (...) {
            error = std::current_exception();
        }
        finished = true;
        loop.quit();
    };
    auto runner = run();
    if (!finished)
        loop.exec();
    if (error)
        std::rethrow_exception(error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*result);
}
