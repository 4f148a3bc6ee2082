// Wall time of `vellumark-cli process --no-model` on a folder of generated one-page scans, with pages per minute.
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

#include "LetterPages.h"

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int scans = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    QTemporaryDir folder;
    for (int index = 0; index < scans; ++index) {
        ScanPage page = letterPage(20);
        page.lines.prepend(QStringLiteral("Letter %1").arg(index + 1));
        writeFile(QDir(folder.path()).filePath(QStringLiteral("letter-%1.pdf").arg(index + 1)), scanPdf({ page }));
    }
    QTemporaryDir config;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QElapsedTimer clock;
    clock.start();
    process.start(
        QStringLiteral(VELLUMARK_CLI), { QStringLiteral("process"), folder.path(), QStringLiteral("--no-model") });
    process.waitForFinished(-1);
    const double seconds = clock.nsecsElapsed() / 1e9;
    std::printf("%d one-page scans: %.1f s, %.1f pages per minute (exit status %d)\n", scans, seconds,
        scans * 60 / seconds, process.exitCode());
    return process.exitCode();
}
