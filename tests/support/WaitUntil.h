#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <chrono>
#include <functional>

// Runs the event loop until `done` holds, for at most a generous minute.
inline bool waitUntil(const std::function<bool()> &done, std::chrono::milliseconds limit = std::chrono::seconds(60))
{
    QDeadlineTimer deadline(limit);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}
