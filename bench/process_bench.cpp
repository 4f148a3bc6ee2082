// Wall time of `vellumark-cli process --no-model` on a folder of generated one- and three-page letters, with
// 1, 2 and 4 readers at once: pages per minute, and the peak memory of the command with its readers.
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

#include "LetterPages.h"

namespace {

struct Memory {
    qint64 pid = 0;
    qint64 parent = 0;
    qint64 residentKB = 0;
};

// Every process's parent and resident set, from /proc.
std::vector<Memory> processes()
{
    std::vector<Memory> found;
    const long pageKB = ::sysconf(_SC_PAGESIZE) / 1024;
    for (const QString &name : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool number = false;
        const qint64 pid = name.toLongLong(&number);
        if (!number)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray line = stat.readAll();
        // The fields after the command's name, which is in parentheses: state, parent, ... rss is the 24th.
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 21)
            found.push_back({ pid, fields[1].toLongLong(), fields[21].toLongLong() * pageKB });
    }
    return found;
}

// The resident set of `root` and every process below it, in kB.
qint64 treeResidentKB(qint64 root)
{
    const std::vector<Memory> all = processes();
    std::vector<qint64> tree { root };
    qint64 total = 0;
    for (std::size_t index = 0; index < tree.size(); ++index) {
        for (const Memory &process : all) {
            if (process.pid == tree[index])
                total += process.residentKB;
            else if (process.parent == tree[index])
                tree.push_back(process.pid);
        }
    }
    return total;
}

double childrenCPUSeconds()
{
    rusage usage {};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Run {
    double seconds = 0;
    // User and system time of the command and its readers.
    double cpuSeconds = 0;
    qint64 peakKB = 0;
    int exitCode = -1;
};

Run process(const QString &folder, int workers)
{
    QFile::remove(QDir(folder).filePath(QStringLiteral("Vellumark.sqlite")));
    QTemporaryDir config;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    QProcess cli;
    cli.setProcessEnvironment(environment);
    cli.setStandardErrorFile(QProcess::nullDevice());
    Run run;
    const double cpuBefore = childrenCPUSeconds();
    QElapsedTimer clock;
    clock.start();
    cli.start(QStringLiteral(VELLUMARK_CLI),
        { QStringLiteral("process"), folder, QStringLiteral("--no-model"), QStringLiteral("--workers"),
            QString::number(workers) });
    cli.waitForStarted();
    const qint64 pid = cli.processId();
    // Sampled every 50 ms: the readers' memory comes and goes with each scan.
    while (!cli.waitForFinished(50))
        run.peakKB = std::max(run.peakKB, treeResidentKB(pid));
    run.seconds = clock.nsecsElapsed() / 1e9;
    run.cpuSeconds = childrenCPUSeconds() - cpuBefore;
    run.exitCode = cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1;
    return run;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int scans = argc > 1 ? std::max(1, std::atoi(argv[1])) : 24;
    QTemporaryDir folder;
    int pages = 0;
    // Every other letter has three pages, so that readers finish at different times.
    for (int index = 0; index < scans; ++index) {
        std::vector<ScanPage> letter;
        for (int page = 0; page < (index % 2 == 0 ? 1 : 3); ++page) {
            ScanPage written = letterPage(20);
            written.lines.prepend(QStringLiteral("Letter %1, page %2").arg(index + 1).arg(page + 1));
            letter.push_back(written);
        }
        pages += int(letter.size());
        writeFile(QDir(folder.path()).filePath(QStringLiteral("letter-%1.pdf").arg(index + 1)), scanPdf(letter));
    }
    std::printf("%d letters, %d pages, %d cores\n", scans, pages, QThread::idealThreadCount());
    double oneReader = 0;
    for (const int workers : { 1, 2, 4 }) {
        const Run run = process(folder.path(), workers);
        const double perMinute = pages * 60 / run.seconds;
        if (workers == 1)
            oneReader = perMinute;
        std::printf("--workers %d: %.1f s, %.1f pages per minute (%.2f x one reader), %.1f cores busy, peak memory "
                    "%.0f MB (exit status %d)\n",
            workers, run.seconds, perMinute, perMinute / oneReader, run.cpuSeconds / run.seconds, run.peakKB / 1024.0,
            run.exitCode);
        std::fflush(stdout);
        if (run.exitCode != 0)
            return run.exitCode;
    }
    return 0;
}
