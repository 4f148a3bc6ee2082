// Speed and memory of folder synchronisation: listing the PDFs of a large folder and bringing a new
// catalogue in step with it (the first sync), then both again with nothing changed (a resync). The files
// are tiny byte strings named .pdf, 100 to a folder, two folders deep; nothing reads them. Nothing here
// checks behaviour.
//
//   sync_bench [--files=N[,N...]]      default 10000,100000, run in that order in one process
//
// Peak RSS is getrusage's ru_maxrss: the peak of the whole process so far, so it never goes down from
// one line to the next.

#include "store/FolderScan.h"
#include "store/ScanStore.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr int filesPerFolder = 100;
constexpr int foldersPerYear = 50;

double peakRSSMiB()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0; // kilobytes on Linux
}

double processCPUSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

// Wall and CPU seconds of one phase; the machine is shared, so CPU time is the steadier figure.
struct Time {
    double wall = 0;
    double cpu = 0;
};

class Stopwatch {
public:
    Time lap()
    {
        const auto now = std::chrono::steady_clock::now();
        const double cpu = processCPUSeconds();
        const Time time { std::chrono::duration<double>(now - start_).count(), cpu - cpu_ };
        start_ = now;
        cpu_ = cpu;
        return time;
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    double cpu_ = processCPUSeconds();
};

// "2019/Box 007/scan 000712.pdf": 100 files to a box, 50 boxes to a year.
bool generate(const QString &folder, int count)
{
    QDir root(folder);
    for (int i = 0; i < count; ++i) {
        const int box = i / filesPerFolder;
        const QString directory
            = QStringLiteral("%1/Box %2").arg(2000 + box / foldersPerYear).arg(box, 3, 10, QLatin1Char('0'));
        if (i % filesPerFolder == 0 && !root.mkpath(directory))
            return false;
        QFile file(root.filePath(directory + QStringLiteral("/scan %1.pdf").arg(i, 6, 10, QLatin1Char('0'))));
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.write("%PDF-1.4\n% scan " + QByteArray::number(i) + '\n');
    }
    return true;
}

struct Round {
    Time enumerate;
    Time sync;
    std::size_t files = 0;
    bool changed = false;
    double peakRSS = 0;
};

Round syncOnce(ScanStore &store, const QString &folder)
{
    Round round;
    Stopwatch watch;
    const std::vector<ScanStore::FileInfo> files = enumeratePDFs(folder);
    round.enumerate = watch.lap();
    round.changed = store.sync(files, fileHasher(folder));
    round.sync = watch.lap();
    round.files = files.size();
    round.peakRSS = peakRSSMiB();
    return round;
}

void print(const char *what, const Round &round)
{
    std::printf("  %-6s %6zu PDFs listed in %6.3f s (CPU %6.3f s), store sync %6.3f s (CPU %6.3f s, %s), "
                "peak RSS %5.1f MiB\n",
        what, round.files, round.enumerate.wall, round.enumerate.cpu, round.sync.wall, round.sync.cpu,
        round.changed ? "changed" : "no change", round.peakRSS);
}

bool run(int count)
{
    QTemporaryDir dir;
    if (!dir.isValid())
        return false;
    Stopwatch watch;
    if (!generate(dir.path(), count)) {
        std::fprintf(stderr, "could not write the files in %s\n", qPrintable(dir.path()));
        return false;
    }
    std::printf("%d files, written in %.1f s, peak RSS %.1f MiB\n", count, watch.lap().wall, peakRSSMiB());
    ScanStore store(dir.path());
    print("first", syncOnce(store, dir.path()));
    print("resync", syncOnce(store, dir.path()));
    std::printf("  catalogue %lld bytes\n", static_cast<long long>(QFileInfo(store.databasePath()).size()));
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QList<int> counts = { 10'000, 100'000 };
    for (const QString &argument : app.arguments().mid(1)) {
        if (!argument.startsWith(QLatin1String("--files="))) {
            std::fprintf(stderr, "usage: sync_bench [--files=N[,N...]]\n");
            return 1;
        }
        counts.clear();
        for (const QString &piece : argument.mid(8).split(QLatin1Char(','))) {
            bool ok = false;
            const int count = piece.toInt(&ok);
            if (!ok || count <= 0) {
                std::fprintf(stderr, "not a number of files: %s\n", qPrintable(piece));
                return 1;
            }
            counts.append(count);
        }
    }
    std::printf("peak RSS at start %.1f MiB\n", peakRSSMiB());
    for (const int count : counts)
        if (!run(count))
            return 1;
    return 0;
}
