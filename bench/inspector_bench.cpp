// The inspector beside the table of a 10,000-scan catalogue whose files are real two-page letters:
// selecting a scan to its first preview page and its text shown, flipping through 50 scans with the
// arrow keys at ten keys a second, and a 300-page scan selected; each with the longest stall of the main
// thread, and the process's peak memory with the long scan open. Plain timings; nothing here checks
// behaviour.
//
//   inspector_bench [--documents=10000]

#include "library/DocumentTableModel.h"
#include "library/Library.h"
#include "ocr/EngineThreads.h"
#include "support/ScanPdf.h"
#include "ui/DocumentTable.h"
#include "ui/InspectorView.h"
#include "ui/LibraryView.h"
#include "ui/MainWindow.h"
#include "ui/PDFPreview.h"
#include "ui/PageTextView.h"
#include "ui/Prompts.h"
#include "ui/UpdateCheck.h"

#include <QApplication>
#include <QDialog>
#include <QScrollBar>
#include <QSettings>
#include <QSplitter>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include <cstdio>

#include "BenchCatalogue.h"
#include "LetterPages.h"
#include "Measure.h"

namespace {

using bench::runFor;
using bench::runUntil;

constexpr int realScans = 30;
constexpr int longScanPages = 300;
constexpr int flips = 50;

// Makes one present scan of the catalogue a 300-page file with a text for every page; its id.
std::int64_t makeLongScan(const QString &folder)
{
    Database db(QDir(folder).filePath(ScanStore::fileName));
    Statement first = db.prepare(
        QStringLiteral("SELECT id, path FROM documents WHERE missing = 0 AND ocr_status = 'done' ORDER BY id LIMIT 1"));
    first.bind({});
    if (!first.step())
        throw Database::Error(QStringLiteral("no scan to make long"));
    const std::int64_t id = first.int64(0);
    const QString path = QDir(folder).filePath(first.text(1));
    QFile::remove(path);
    writeFile(path, repeatedScanPdf(letterPage(30), longScanPages));
    const QFileInfo info(path);
    inImmediateTransaction(db, [&] {
        db.run(QStringLiteral("UPDATE documents SET file_size = ?, file_modified = ?, page_count = ?, "
                              "page_rotations = NULL WHERE id = ?"),
            { info.size(), double(info.lastModified().toMSecsSinceEpoch()) / 1000.0, longScanPages, id });
        db.run(QStringLiteral("DELETE FROM pages WHERE document_id = ?"), { id });
        Statement insert
            = db.prepare(QStringLiteral("INSERT INTO pages (document_id, page_index, text) VALUES (?, ?, ?)"));
        const QString text = letterPage(30).lines.join(QLatin1Char('\n'));
        for (int page = 0; page < longScanPages; ++page) {
            insert.bind({ id, page, text });
            while (insert.step()) { }
        }
    });
    return id;
}

struct Shown {
    double milliseconds = -1;
    double stall = 0;
};

void print(const char *what, const Shown &shown, const QString &note = {})
{
    std::printf("| %-58s | %9.1f | %9.1f | %s\n", what, shown.milliseconds, shown.stall, qPrintable(note));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    limitEngineThreads(argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    QApplication app(argc, argv);
    int documents = 10'000;
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (argument.startsWith(QStringLiteral("--documents=")) && argument.mid(12).toInt() > 0) {
            documents = argument.mid(12).toInt();
        } else {
            std::fprintf(stderr, "usage: inspector_bench [--documents=10000]\n");
            return 1;
        }
    }
    QApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QApplication::setApplicationName(QStringLiteral("VellumarkBench"));
    // Nothing is read or filed while measuring; no model server answers.
    QSettings().setValue(Library::pausedKey, true);
    QSettings().setValue(QStringLiteral("ModelServer"), QStringLiteral("http://127.0.0.1:9"));

    QTemporaryDir scansFolder;
    QStringList scans;
    for (int index = 0; index < realScans; ++index) {
        scans << scansFolder.filePath(QStringLiteral("scan %1.pdf").arg(index, 2, 10, QLatin1Char('0')));
        writeFile(scans.back(), scanPdf({ letterPage(8 + index % 30, index % 5 == 0 ? 180 : 0), letterPage(20) }));
    }
    std::int64_t longScan = 0;
    std::unique_ptr<bench::Catalogue> catalogue;
    try {
        catalogue = std::make_unique<bench::Catalogue>(documents);
        bench::linkFiles(catalogue->folder(), scans);
        catalogue->store().setSetting(QStringLiteral("checked_garbled_ocr"), QStringLiteral("1"));
        longScan = makeLongScan(catalogue->folder());
    } catch (const Database::Error &error) {
        std::fprintf(stderr, "inspector_bench: %s\n", error.what());
        return 1;
    }

    bench::StallWatch stall;
    UpdateCheck updates(UpdateSource {}, QStringLiteral("0.1.0"));
    Prompts prompts;
    prompts.chooseFolder = [](QWidget *, const QString &) { return std::optional<QString>(); };
    prompts.run = [](QDialog &) { return int(QDialog::Rejected); };
    Library library;
    MainWindow window(library, prompts, updates);
    bool synced = false;
    QObject::connect(&library, &Library::synced, [&synced] { synced = true; });
    window.resize(1280, 800);
    window.show();
    library.open(catalogue->folder(), false);
    DocumentTable &table = *window.libraryView()->table();
    runUntil([&] { return synced && table.model()->rowCount() > 0; });
    window.findChild<QToolButton *>(QStringLiteral("inspectorToggle"))->click();
    // The first screenful's thumbnails are rendered before anything is measured.
    runFor(std::chrono::seconds(3));

    InspectorView &inspector = *window.libraryView()->inspector();
    const auto firstPageShown = [&] {
        auto *preview = inspector.current()->findChild<PDFPreview *>();
        return preview && preview->pageImage(0).has_value();
    };
    const auto textPages = [&] {
        auto *text = inspector.current()->findChild<PageTextView *>();
        return text && text->isComplete() ? int(text->pageTexts().size()) : 0;
    };
    const auto until = [&](const std::function<bool()> &done) {
        QElapsedTimer clock;
        clock.start();
        const bool happened = runUntil(done, std::chrono::seconds(60));
        return Shown { happened ? double(clock.nsecsElapsed()) / 1e6 : -1, stall.longestMilliseconds() };
    };

    std::printf("\n%d scans; times and the longest main-thread stall in milliseconds\n\n", documents);
    std::printf("| %-58s | %9s | %9s |\n|%s|%s|%s|\n", "What", "ms", "stall ms", std::string(60, '-').c_str(),
        std::string(11, '-').c_str(), std::string(11, '-').c_str());

    QTableView &view = *table.view();
    view.setFocus();
    stall.reset();
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.visualRect(table.model()->index(0, 1)).center());
    print("a row clicked: its first preview page shown", until(firstPageShown));
    print("  and its text shown", until([&] { return textPages() > 0; }));

    stall.reset();
    int shownBeforeNext = 0;
    for (int flip = 0; flip < flips; ++flip) {
        QTest::keyClick(&view, Qt::Key_Down);
        runFor(std::chrono::milliseconds(100));
        shownBeforeNext += firstPageShown() ? 1 : 0;
    }
    const double flipStall = stall.longestMilliseconds();
    const Shown last = until(firstPageShown);
    print("50 scans flipped with the down arrow, 10 a second", { double(flips) * 100, flipStall },
        QStringLiteral("%1 of %2 showed their first page before the next key").arg(shownBeforeNext).arg(flips));
    print("  then the last one's first preview page", last);

    stall.reset();
    QElapsedTimer selecting;
    selecting.start();
    QTest::keyClick(&view, Qt::Key_A, Qt::ControlModifier);
    runFor(std::chrono::milliseconds(300));
    print("every scan selected (Ctrl+A): the several-scans inspector",
        { double(selecting.nsecsElapsed()) / 1e6, stall.longestMilliseconds() },
        QStringLiteral("%1 selected").arg(library.selection().size()));
    QTest::keyClick(&view, Qt::Key_Up);

    runFor(std::chrono::seconds(1));
    bench::resetPeak();
    const long before = bench::peakKilobytes();
    stall.reset();
    library.reveal(longScan);
    print("a 300-page scan selected: its first preview page", until(firstPageShown));
    print("  and its text, 300 pages", until([&] { return textPages() == longScanPages; }));
    {
        // The inspector widened by dragging its splitter, a step every 16 ms.
        auto *columns = window.findChild<QSplitter *>(QStringLiteral("columns"));
        stall.reset();
        QElapsedTimer dragging;
        dragging.start();
        for (int step = 0; step < 20; ++step) {
            QList<int> sizes = columns->sizes();
            sizes[1] -= 8;
            sizes[2] += 8;
            columns->setSizes(sizes);
            runFor(std::chrono::milliseconds(16));
        }
        print("  the inspector widened 160 px in 20 steps, 16 ms apart",
            { double(dragging.nsecsElapsed()) / 1e6, stall.longestMilliseconds() });
        stall.reset();
        runFor(std::chrono::milliseconds(500));
        print("  then its text laid out at the new width", { 500, stall.longestMilliseconds() });
    }
    stall.reset();
    auto *preview = inspector.current()->findChild<PDFPreview *>();
    QElapsedTimer scrolling;
    scrolling.start();
    while (preview->verticalScrollBar()->value() < preview->verticalScrollBar()->maximum()) {
        preview->verticalScrollBar()->setValue(
            preview->verticalScrollBar()->value() + preview->verticalScrollBar()->pageStep());
        runFor(std::chrono::milliseconds(16));
    }
    print("  its preview scrolled a screen every 16 ms: then the last page",
        until([&] { return preview->pageImage(preview->pageCount() - 1).has_value(); }));
    std::printf("\npeak RSS %ld MB with the 300-page scan open and scrolled through (%ld MB before it)\n",
        bench::peakKilobytes() / 1024, before / 1024);
    return 0;
}
