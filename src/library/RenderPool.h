#pragma once

#include "library/ReaderWorker.h"

#include <QFuture>
#include <QImage>
#include <QList>
#include <QPromise>
#include <QSizeF>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

// The settings of rendering pages through readers.
namespace RenderSettings {

inline const QString timeoutKey = QStringLiteral("RenderTimeoutSeconds");
constexpr double defaultTimeoutSeconds = 15;

// The setting as the person left it, or the default where it isn't a positive number.
std::chrono::milliseconds timeout();

} // namespace RenderSettings

// Renders pages in confined readers that only render, several at once, each reader on a thread of its
// own (a reader ends with the thread that started it). A render that takes longer than the time limit
// or ends its reader gives no image; that reader is killed and the thread's next render starts a new
// one, while the other threads carry on. Requests beyond the number of readers wait, first in, first
// out. Besides pages, a reader measures the sizes of a file's pages. Results arrive through QFutures, so that the main
// thread can await them without blocking.
class RenderPool {
public:
    struct Options {
        int readers = 3;
        std::chrono::milliseconds timeout = RenderSettings::timeout();
        int memoryLimitMB = ReaderSettings::memoryLimitMB();
        QString program = ReaderSettings::program();
    };

    enum class Outcome {
        rendered,
        noImage, // the file gave none: not a PDF, no such page, too thin to show; or no reader could start
        timedOut,
        crashed, // the reader ended while rendering, or ran out of memory
    };

    struct Result {
        Outcome outcome = Outcome::noImage;
        QImage image; // when rendered
        int pageCount = 0; // when rendered
        QString why; // when not
    };

    // The default readers and the settings.
    RenderPool();
    explicit RenderPool(Options options);
    // Renders under way and waiting end without an image; the readers end.
    ~RenderPool();
    RenderPool(const RenderPool &) = delete;
    RenderPool &operator=(const RenderPool &) = delete;

    // Page `index` (from 0) of the file, its larger side `maxPixel` pixels, turned `rotation` degrees
    // clockwise.
    QFuture<Result> render(QString path, int index, int maxPixel, int rotation);

    struct Measured {
        Outcome outcome = Outcome::noImage;
        QList<QSizeF> sizes; // when measured: each page's, in points, as a render shows it before turning
        QString why; // when not
    };

    // The size of every page of the file, without rendering any; waits its turn as a render does.
    QFuture<Measured> measure(QString path);

private:
    // A request waiting for a reader: `run` does it with the thread's reader and answers it, `drop`
    // answers it without an image when the pool goes first.
    struct Job {
        std::function<void(ReaderWorker &, const std::stop_token &)> run;
        std::function<void()> drop;
    };

    void add(Job job);
    void serve(const std::stop_token &stop);

    Options options_;
    std::mutex mutex_;
    std::condition_variable_any jobAdded_;
    std::deque<Job> jobs_;
    // Last, so that the threads end before what they use goes.
    std::vector<std::jthread> threads_;
};
