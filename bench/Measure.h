#pragma once

// What the benchmarks measure with: the longest stall of the event loop, running it until something
// holds, the resident memory of this process or another, and this process's readers.

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <unistd.h>

namespace bench {

// A line of /proc/PID/status, such as "VmHWM:  151234 kB", as its number of kilobytes.
inline long statusKilobytes(const QString &pid, const char *key)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(qsizetype(std::strlen(key))).trimmed().split(' ').first().toLong();
    }
    return -1;
}

// The process ids of this process's running readers.
inline QStringList readerProcesses()
{
    QStringList found;
    const QByteArray self = QByteArray::number(::getpid());
    for (const QString &pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "PID (NAME) STATE PPID ..."
        const QByteArray line = stat.readAll();
        const QList<QByteArray> rest = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (line.contains("(vellumark-reade") && rest.size() > 1 && rest[1] == self)
            found << pid;
    }
    return found;
}

// The peak resident memory of this process, in kilobytes.
inline long peakKilobytes()
{
    return statusKilobytes(QString::number(::getpid()), "VmHWM:");
}

// Starts the peak resident set again from what the process holds now.
inline void resetPeak()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

// The longest time the main thread went without running its event loop: a timer asks to run every
// millisecond, and the longest gap between its runs is the stall.
class StallWatch {
public:
    StallWatch()
    {
        clock_.start();
        tick_.setTimerType(Qt::PreciseTimer);
        tick_.setInterval(1);
        QObject::connect(&tick_, &QTimer::timeout, [this] {
            const qint64 now = clock_.nsecsElapsed();
            longest_ = std::max(longest_, now - last_);
            last_ = now;
        });
        last_ = clock_.nsecsElapsed();
        tick_.start();
    }
    void reset()
    {
        last_ = clock_.nsecsElapsed();
        longest_ = 0;
    }
    double longestMilliseconds() const { return double(std::max(longest_, clock_.nsecsElapsed() - last_)) / 1e6; }

private:
    QElapsedTimer clock_;
    QTimer tick_;
    qint64 last_ = 0;
    qint64 longest_ = 0;
};

inline bool runUntil(const std::function<bool()> &done, std::chrono::milliseconds limit = std::chrono::minutes(2))
{
    const QDeadlineTimer deadline(limit);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

inline void runFor(std::chrono::milliseconds time)
{
    const QDeadlineTimer deadline(time);
    while (!deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
}

} // namespace bench
