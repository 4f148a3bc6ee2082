// Thumbnails of a screenful of scans from a cold cache: the time from asking for all of them to the
// last one arriving, the longest stall of the main thread meanwhile, and the memory of this process
// (the app's side) and of the readers that rendered them.
#include "library/RenderPool.h"
#include "library/Thumbnails.h"
#include "ocr/EngineThreads.h"
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

#include "LetterPages.h"
#include "Measure.h"

namespace {

using bench::statusKilobytes;

constexpr int screenful = 25;
constexpr int maxPixel = 120;

QCoro::Task<> ask(Thumbnails &thumbnails, QString path, int *arrived, int *images)
{
    const std::optional<QImage> image = co_await thumbnails.image(path, QDateTime::fromSecsSinceEpoch(0), 0, maxPixel);
    ++*arrived;
    *images += image ? 1 : 0;
}

struct Run {
    double seconds = 0;
    double longestStall = 0; // milliseconds
    int images = 0;
};

// Asks for every thumbnail at once and runs the event loop until the last arrives.
Run screen(Thumbnails &thumbnails, const QStringList &paths)
{
    QElapsedTimer clock;
    clock.start();
    qint64 last = 0;
    qint64 longest = 0;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        longest = std::max(longest, clock.nsecsElapsed() - last);
        last = clock.nsecsElapsed();
    });
    tick.start();
    int arrived = 0;
    Run run;
    std::vector<QCoro::Task<>> asked;
    last = clock.nsecsElapsed();
    const qint64 start = last;
    for (const QString &path : paths)
        asked.push_back(ask(thumbnails, path, &arrived, &run.images));
    const QDeadlineTimer deadline(std::chrono::minutes(5));
    while (arrived < paths.size() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    run.seconds = double(clock.nsecsElapsed() - start) / 1e9;
    run.longestStall = double(std::max(longest, clock.nsecsElapsed() - last)) / 1e6;
    return run;
}

void print(const char *what, const Run &run)
{
    std::printf("%-44s %7.3f s  (%d of %d images, longest main-thread stall %.1f ms)\n", what, run.seconds, run.images,
        screenful, run.longestStall);
}

} // namespace

int main(int argc, char *argv[])
{
    limitEngineThreads(argv);
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;

    // Scanned letters at 200 dpi, of different lengths, some turned as they lay on the glass, two pages each.
    QTemporaryDir folder;
    QStringList paths;
    for (int index = 0; index < screenful; ++index) {
        paths << folder.filePath(QStringLiteral("scan %1.pdf").arg(index));
        writeFile(paths.back(), scanPdf({ letterPage(8 + index % 30, index % 5 == 0 ? 180 : 0), letterPage(20) }));
    }
    // Making the scans needed far more memory than showing them: the peak starts again from here.
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
    clear.close();
    const QString self = QString::number(::getpid());
    const long residentBefore = statusKilobytes(self, "VmRSS:");

    long readerPeak = 0;
    for (int round = 0; round < rounds; ++round) {
        std::printf("round %d\n", round + 1);
        auto pool = std::make_shared<RenderPool>();
        {
            Thumbnails thumbnails(pool);
            print("new readers, cold cache", screen(thumbnails, paths));
        }
        Thumbnails thumbnails(pool);
        print("running readers, cold cache", screen(thumbnails, paths));
        print("cached", screen(thumbnails, paths));
        for (const QString &reader : bench::readerProcesses())
            readerPeak = std::max(readerPeak, statusKilobytes(reader, "VmHWM:"));
    }
    std::printf("this process: resident %ld MB before, peak %ld MB, %ld MB at the end\n", residentBefore / 1024,
        statusKilobytes(self, "VmHWM:") / 1024, statusKilobytes(self, "VmRSS:") / 1024);
    std::printf("each reader: peak resident %ld MB\n", readerPeak / 1024);
    return 0;
}
