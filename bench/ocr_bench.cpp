// Seconds per page for reading a scanned page, split into rendering, recognition and layout, with the
// process's peak memory. Two kinds of page: a dense US Letter letter and a long shop receipt.
#include "ocr/EngineThreads.h"
#include "ocr/OCR.h"
#include "ocr/PageReading.h"
#include "ocr/TextRecognizer.h"
#include "support/ScanPdf.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <poppler/qt6/poppler-qt6.h>

#include <cstdio>
#include <sys/resource.h>

#include "LetterPages.h"

namespace {

ScanPage receipt()
{
    ScanPage page;
    page.size = QSizeF(227, 600);
    page.fontSize = 9;
    page.lines << QStringLiteral("CORNER MARKET") << QStringLiteral("12 High Street") << QString();
    const QStringList items { QStringLiteral("Milk 1L            1.29"), QStringLiteral("Bread              2.49"),
        QStringLiteral("Apples 1kg         3.10"), QStringLiteral("Coffee beans       7.99"),
        QStringLiteral("Butter             2.15") };
    for (int line = 0; line < 20; ++line)
        page.lines << items[line % items.size()];
    page.lines << QString() << QStringLiteral("TOTAL             63.04") << QStringLiteral("Thank you for shopping");
    return page;
}

struct Stages {
    double render = 0;
    double recognition = 0; // the engine, with its own line iteration
    double judging = 0; // character and word counts of the readings
    double layout = 0;
    int passes = 0; // recognition passes, summed over the rounds
};

Stages measure(const QByteArray &pdf, TextRecognizer &recognizer, int rounds)
{
    Stages total;
    const std::unique_ptr<Poppler::Document> document = Poppler::Document::loadFromData(pdf);
    document->setRenderHint(Poppler::Document::Antialiasing);
    document->setRenderHint(Poppler::Document::TextAntialiasing);
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer timer;
        timer.start();
        const std::optional<QImage> bitmap = OCR::render(*document->page(0));
        total.render += timer.nsecsElapsed() / 1e9;

        timer.restart();
        std::vector<OCR::Reading> readings;
        const OCR::Reading best = OCR::bestReading(
            recognizer.reading(*bitmap, 0), [&](int rotation) { return recognizer.reading(*bitmap, rotation); });
        const double reading = timer.nsecsElapsed() / 1e9;
        total.passes += 1;

        // The counts are made inside each pass; making them again tells their share.
        timer.restart();
        const OCR::Reading again(best.rotation(), best.lines());
        total.judging += timer.nsecsElapsed() / 1e9;
        total.recognition += reading - timer.nsecsElapsed() / 1e9;

        timer.restart();
        const QString text = OCR::layout(best.lines());
        total.layout += timer.nsecsElapsed() / 1e9;
        if (text.isEmpty())
            std::fprintf(stderr, "warning: nothing read\n");
    }
    total.render /= rounds;
    total.recognition /= rounds;
    total.judging /= rounds;
    total.layout /= rounds;
    return total;
}

void report(const char *name, const Stages &stages, int rounds)
{
    const double page = stages.render + stages.recognition + stages.judging + stages.layout;
    const double outside = stages.render + stages.judging + stages.layout;
    std::printf("%-13s %4.1f passes %7.3f s/page  render %6.3f  recognition %6.3f  counts %6.4f  layout %6.4f  "
                "%5.1f pages/min  outside recognition %4.1f%%\n",
        name, stages.passes / double(rounds), page, stages.render, stages.recognition, stages.judging, stages.layout,
        60 / page, 100 * outside / page);
}

} // namespace

int main(int argc, char **argv)
{
    limitEngineThreads(argv);
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    TextRecognizer recognizer(QStringLiteral("eng"));
    std::printf("%d rounds per page, OMP_THREAD_LIMIT=%s\n", rounds, qgetenv("OMP_THREAD_LIMIT").constData());
    report("dense letter", measure(scanPdf({ letterPage(40) }), recognizer, rounds), rounds);
    report("receipt", measure(scanPdf({ receipt() }), recognizer, rounds), rounds);
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak RSS %.0f MB\n", usage.ru_maxrss / 1024.0);
    return 0;
}
