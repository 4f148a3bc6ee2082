// The cost of reading through the reader process: seconds per page for the same scans read in this
// process and through `vellumark-reader`, the reader's start-up time, and its memory after reading.
#include "library/ReaderWorker.h"
#include "ocr/EngineThreads.h"
#include "ocr/OCR.h"
#include "ocr/TextRecognizer.h"
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

#include "LetterPages.h"
#include "Measure.h"

namespace {

double seconds(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char *argv[])
{
    limitEngineThreads(argv);
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;

    QTemporaryDir folder;
    // A dense letter, a short one that lay upside down (four passes), and a blank page.
    const QString scans = folder.filePath(QStringLiteral("scans.pdf"));
    writeFile(scans, scanPdf({ letterPage(40), letterPage(8, 180), ScanPage {} }));
    const QString notPdf = folder.filePath(QStringLiteral("not.pdf"));
    writeFile(notPdf, "not a PDF");

    TextRecognizer recognizer(QStringLiteral("eng"));
    ReaderWorker worker({});
    OCR::recognize(scans, recognizer); // both sides warmed up once
    worker.recognize(scans);

    double inProcess = 0;
    double throughReader = 0;
    int pages = 0;
    for (int round = 0; round < rounds; ++round) {
        // Taking turns at going first, so that neither side always follows the other.
        QElapsedTimer timer;
        OCR::Result direct;
        OCR::Result through;
        const auto readDirectly = [&] {
            timer.start();
            direct = OCR::recognize(scans, recognizer);
            inProcess += seconds(timer);
        };
        const auto readThroughReader = [&] {
            timer.start();
            through = worker.recognize(scans);
            throughReader += seconds(timer);
        };
        if (round % 2 == 0) {
            readDirectly();
            readThroughReader();
        } else {
            readThroughReader();
            readDirectly();
        }
        pages += int(direct.pages.size());
        if (through.pages != direct.pages)
            std::fprintf(stderr, "the reader read something else\n");
    }
    const pid_t reader = worker.processId();
    const long residentPeak = bench::statusKilobytes(QString::number(reader), "VmHWM:");
    const long data = bench::statusKilobytes(QString::number(reader), "VmData:");
    const long virtualPeak = bench::statusKilobytes(QString::number(reader), "VmPeak:");

    // Start-up: a fresh reader answering a file that fails at once, less what an old one takes for it.
    constexpr int starts = 5;
    QElapsedTimer timer;
    timer.start();
    for (int start = 0; start < starts; ++start) {
        try {
            ReaderWorker({}).recognize(notPdf);
        } catch (const OCR::Failure &) {
        }
    }
    const double fresh = seconds(timer) / starts;
    timer.start();
    for (int again = 0; again < starts; ++again) {
        try {
            worker.recognize(notPdf);
        } catch (const OCR::Failure &) {
        }
    }
    const double warm = seconds(timer) / starts;

    std::printf("%d rounds of %d pages\n", rounds, pages / rounds);
    std::printf("in process:     %.3f s/page\n", inProcess / pages);
    std::printf("through reader: %.3f s/page (%+.2f %%)\n", throughReader / pages,
        100.0 * (throughReader - inProcess) / inProcess);
    std::printf("reader start-up: %.3f s (a request to a running reader: %.4f s)\n", fresh - warm, warm);
    std::printf("reader memory after reading: peak resident %ld MB, data %ld MB, peak virtual %ld MB\n",
        residentPeak / 1024, data / 1024, virtualPeak / 1024);
    return 0;
}
