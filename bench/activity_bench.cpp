// The activity window over a full session log: 2000 entries arriving one per turn of the event loop
// with a request selected (the oldest trimmed once the log is full), the filters switched, the shown
// rows copied and a long request opened in full; each with the longest stall of the main thread, and
// the process's peak memory. Plain timings; nothing here checks behaviour.
//
//   activity_bench [--entries=2000]

#include "extract/ActivityLog.h"
#include "library/Library.h"
#include "ui/ActivityView.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QTableView>

#include <cstdio>

#include "Measure.h"

namespace {

// One request as the extraction makes them: about the size of real instructions, prompt and answer.
Extractor::Trace::Attempt attempt(int number, const QString &outcome)
{
    Extractor::Trace::Attempt made;
    made.id = QUuid::createUuid();
    made.label = QStringLiteral("Page %1, structured").arg(number % 8 + 1);
    made.mode = QStringLiteral("guided generation (PageFacts)");
    made.instructions = QString(1300, QLatin1Char('i'));
    made.prompt = QString(650, QLatin1Char('p'));
    made.outcome = outcome;
    if (outcome != QLatin1String("Running")) {
        made.response = QStringLiteral("firstPage: true\nkind: Letter\norganization: Garden Club\ndate: 2024-03-05");
        made.seconds = 2.5;
        made.tokens = 900;
    }
    return made;
}

// A session's worth of work: for each scan a read, a request that runs and then ends, and the filing.
void work(ActivityLog &log, int index)
{
    const QString file = QStringLiteral("scan%1.pdf").arg(index / 3);
    switch (index % 3) {
    case 0: {
        ActivityEntry read;
        read.kind = ActivityEntry::Kind::ocr;
        read.file = file;
        read.title = QStringLiteral("Read 2 pages, 3100 characters");
        read.outcome = QStringLiteral("OK");
        read.seconds = 1.2;
        log.append(read);
        break;
    }
    case 1: {
        Extractor::Trace::Attempt request = attempt(index, QStringLiteral("Running"));
        log.model(request, file);
        request.outcome = index % 7 == 1 ? QStringLiteral("The local model is busy") : QStringLiteral("OK");
        request.seconds = 2.5;
        log.model(request, file);
        break;
    }
    default: {
        ActivityEntry filed;
        filed.file = file;
        filed.title = QStringLiteral("Filed");
        filed.outcome = QStringLiteral("Garden Club, Letter, 2024-03-05");
        log.append(filed);
        break;
    }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    int entries = 2000;
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (argument.startsWith("--entries="))
            entries = argument.mid(10).toInt();
    }

    Library library;
    ActivityView view(library);
    view.resize(1100, 700);
    view.show();
    auto *table = view.findChild<QTableView *>(QStringLiteral("activityTable"));
    ActivityLog &log = library.activity();
    bench::StallWatch stall;
    QElapsedTimer clock;

    // Twice the log's size: the second half arrives with the oldest entries trimmed.
    clock.start();
    for (int i = 0; i < 2 * entries; ++i) {
        work(log, i);
        if (i == 4)
            table->selectRow(1);
        QCoreApplication::processEvents();
    }
    std::printf("%d entries arriving one per turn, a row selected: %.0f ms in all, %.2f ms per entry, "
                "longest stall %.1f ms\n",
        2 * entries, double(clock.elapsed()), double(clock.elapsed()) / (2 * entries), stall.longestMilliseconds());

    const auto measure = [&](const char *what, const std::function<void()> &step) {
        bench::runFor(std::chrono::milliseconds(50));
        stall.reset();
        clock.start();
        step();
        QCoreApplication::processEvents();
        std::printf("%s: %.1f ms, longest stall %.1f ms\n", what, double(clock.nsecsElapsed()) / 1e6,
            stall.longestMilliseconds());
    };
    const auto trigger = [&](const char *name) {
        return [&view, name] { view.findChild<QAction *>(QString::fromLatin1(name))->trigger(); };
    };
    measure("Failures Only on", trigger("failuresOnly"));
    measure("Failures Only off", trigger("failuresOnly"));
    measure("Text off", trigger("showOCR"));
    measure("Text on", trigger("showOCR"));
    measure("Copy of every row", trigger("copyActivity"));
    measure("a model request selected (its detail drawn)", [&] {
        for (int row = table->model()->rowCount() - 1; row >= 0; --row) {
            if (table->model()->index(row, 1).data().toString() == QLatin1String("Model")) {
                table->selectRow(row);
                break;
            }
        }
    });
    measure("Clear", trigger("clearActivity"));
    std::printf("peak memory %ld MB\n", bench::peakKilobytes() / 1024);
    return 0;
}
