// The inspector's preview of generated scans, rendered by real readers: the time from showing a scan to
// its first page on screen, the longest stall of the main thread while a 300-page scan is scrolled from
// top to bottom, and the memory of this process and of the readers.
#include "ocr/EngineThreads.h"
#include "support/ScanPdf.h"
#include "ui/PDFPreview.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

#include "LetterPages.h"
#include "Measure.h"

namespace {

using bench::runUntil;
using bench::StallWatch;
using bench::statusKilobytes;

// Milliseconds from show() to the first page's picture, and the longest stall meanwhile.
std::pair<double, double> firstPage(PDFPreview &preview, const QString &path)
{
    StallWatch stalls;
    QElapsedTimer clock;
    clock.start();
    preview.show(path, QDateTime::fromSecsSinceEpoch(0), {});
    const bool shown = runUntil([&] { return preview.pageImage(0).has_value(); });
    return { shown ? double(clock.nsecsElapsed()) / 1e6 : -1, stalls.longestMilliseconds() };
}

// Scrolls a screenful every 16 ms to the end, then waits for the last page; milliseconds and the
// longest stall.
std::pair<double, double> scrollThrough(PDFPreview &preview)
{
    StallWatch stalls;
    QElapsedTimer clock;
    clock.start();
    QScrollBar *bar = preview.verticalScrollBar();
    while (bar->value() < bar->maximum()) {
        bar->setValue(bar->value() + bar->pageStep());
        QDeadlineTimer frame(16);
        while (!frame.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    const int last = preview.pageCount() - 1;
    const bool shown = runUntil([&] { return preview.pageImage(last).has_value(); });
    return { shown ? double(clock.nsecsElapsed()) / 1e6 : -1, stalls.longestMilliseconds() };
}

void print(const char *what, std::pair<double, double> figures)
{
    std::printf("%-46s %8.0f ms  (longest main-thread stall %.1f ms)\n", what, figures.first, figures.second);
}

} // namespace

int main(int argc, char *argv[])
{
    limitEngineThreads(argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;

    QTemporaryDir folder;
    const QString letter = folder.filePath(QStringLiteral("letter.pdf"));
    writeFile(letter, scanPdf({ letterPage(30), letterPage(20, 180) }));
    // 300 pages showing one 200 dpi letter: a long file of small size.
    const QString book = folder.filePath(QStringLiteral("book.pdf"));
    writeFile(book, repeatedScanPdf(letterPage(30), 300));
    // Making the scans needed far more memory than showing them: the peak starts again from here.
    bench::resetPeak();
    const QString self = QString::number(::getpid());
    const long residentBefore = statusKilobytes(self, "VmRSS:");

    long readerPeak = 0;
    for (int round = 0; round < rounds; ++round) {
        std::printf("round %d\n", round + 1);
        auto pool = std::make_shared<RenderPool>(RenderPool::Options { .readers = 2 });
        PDFPreview preview(pool);
        preview.resize(480, 800);
        preview.show();
        print("2-page letter, new readers: first page", firstPage(preview, letter));
        print("300-page scan, running readers: first page", firstPage(preview, book));
        print("300-page scan: scrolled to the last page", scrollThrough(preview));
        for (const QString &reader : bench::readerProcesses())
            readerPeak = std::max(readerPeak, statusKilobytes(reader, "VmHWM:"));
    }
    std::printf("this process: resident %ld MB before, peak %ld MB, %ld MB at the end\n", residentBefore / 1024,
        statusKilobytes(self, "VmHWM:") / 1024, statusKilobytes(self, "VmRSS:") / 1024);
    std::printf("each reader: peak resident %ld MB\n", readerPeak / 1024);
    return 0;
}
