// Wall time of `vellumark-cli process` on a folder of generated one-page scans, with pages per minute.
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int scans = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    const QStringList paragraph {
        QStringLiteral("Thank you for your letter of the twelfth, which reached our office on Monday."),
        QStringLiteral("We have reviewed the account statement you enclosed and the payments listed"),
        QStringLiteral("for the months of January, February and March. The amount shown as overdue"),
        QStringLiteral("was received by our bank on the third of April and has now been credited."),
    };
    QTemporaryDir folder;
    for (int index = 0; index < scans; ++index) {
        ScanPage page;
        page.fontSize = 11;
        page.lines << QStringLiteral("Letter %1").arg(index + 1);
        for (int line = 0; line < 20; ++line)
            page.lines << paragraph[line % paragraph.size()];
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
    process.start(QStringLiteral(VELLUMARK_CLI), { QStringLiteral("process"), folder.path() });
    process.waitForFinished(-1);
    const double seconds = clock.nsecsElapsed() / 1e9;
    std::printf("%d one-page scans: %.1f s, %.1f pages per minute (exit status %d)\n", scans, seconds,
        scans * 60 / seconds, process.exitCode());
    return process.exitCode();
}
