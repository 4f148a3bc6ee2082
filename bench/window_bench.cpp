// The desktop window on a large catalogue: from the open to the first rows painted, switching the
// sidebar view, the year and type pickers and the sort, typing a search, and the thumbnails of a
// scrolled screenful of real scans; with the longest stall of the main thread during each, and the
// process's peak memory. Plain timings, printed as tables; nothing here checks behaviour.
//
//   window_bench [--documents=10000,100000]
//
// The catalogues are store_bench's (BenchCatalogue.h). Their files are hard links to a few real
// scans, so that the table shows what it would on a real folder: rows with thumbnails, and "File
// missing" only for the 1% of scans the catalogue has as missing. Processing is paused, so nothing
// changes the catalogue while it is measured.

#include "library/DocumentTableModel.h"
#include "library/Library.h"
#include "library/SidebarModel.h"
#include "library/Thumbnails.h"
#include "ocr/EngineThreads.h"
#include "support/ScanPdf.h"
#include "ui/DocumentTable.h"
#include "ui/EmptyState.h"
#include "ui/LibraryView.h"
#include "ui/MainWindow.h"
#include "ui/Prompts.h"
#include "ui/SidebarView.h"
#include "ui/UpdateCheck.h"

#include <QApplication>
#include <QComboBox>
#include <QDeadlineTimer>
#include <QDialog>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QLineEdit>
#include <QSettings>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <functional>
#include <memory>
#include <string_view>
#include <unistd.h>

#include "BenchCatalogue.h"
#include "LetterPages.h"
#include "Measure.h"

namespace {

using bench::peakKilobytes;
using bench::resetPeak;
using bench::runFor;
using bench::runUntil;
using bench::StallWatch;

constexpr int realScans = 30;

// Counts the paints of the table (or of the empty state in its place) made while `when` held.
class PaintCounter : public QObject {
public:
    using QObject::QObject;
    int paints = 0;
    std::function<bool()> when;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && (!when || when()))
            ++paints;
        return QObject::eventFilter(watched, event);
    }
};

struct Figure {
    double milliseconds = 0;
    double stall = 0;
    QString note;
};

void print(const char *what, const Figure &figure)
{
    std::printf(
        "| %-52s | %9.1f | %9.1f | %s\n", what, figure.milliseconds, figure.stall, figure.note.toUtf8().constData());
    std::fflush(stdout);
}

void printHeader(const QString &title)
{
    std::printf("\n%s\n\n| %-52s | %9s | %9s |\n|%s|%s|%s|\n", title.toUtf8().constData(), "What", "ms", "stall ms",
        std::string(54, '-').c_str(), std::string(11, '-').c_str(), std::string(11, '-').c_str());
    std::fflush(stdout);
}

// The main window over a Library, as the app makes them, with no dialog ever shown.
class Window {
public:
    explicit Window(StallWatch &stall)
        : stall_(stall)
    {
        made_.start();
        Prompts prompts;
        prompts.chooseFolder = [](QWidget *, const QString &) { return std::optional<QString>(); };
        prompts.run = [](QDialog &) { return int(QDialog::Rejected); };
        library = std::make_unique<Library>();
        window = std::make_unique<MainWindow>(*library, prompts, updates);
        QObject::connect(library.get(), &Library::synced, [this] { synced = true; });
        DocumentTable *table = window->libraryView()->table();
        table->view()->viewport()->installEventFilter(&painted);
        table->emptyState()->installEventFilter(&painted);
    }
    ~Window()
    {
        window.reset();
        library.reset();
        QCoreApplication::processEvents();
    }

    DocumentTable &table() const { return *window->libraryView()->table(); }
    int rows() const { return table().model()->rowCount(); }

    // Opens the folder and runs until the table has painted its rows; timed from the Library's making.
    // `beforeEvents` is the time until the open call returned, before the event loop first ran.
    Figure open(const QString &folder, double *beforeEvents = nullptr)
    {
        window->show();
        library->open(folder, false);
        if (beforeEvents)
            *beforeEvents = double(made_.nsecsElapsed()) / 1e6;
        painted.when = [this] { return rows() > 0; };
        const int before = painted.paints;
        runUntil([&] { return painted.paints > before; });
        painted.when = nullptr;
        return { double(made_.nsecsElapsed()) / 1e6, stall_.longestMilliseconds(),
            QStringLiteral("%1 rows").arg(rows()) };
    }

    // Does `action` and runs until the table has painted afterwards, once `ready` holds when given (the
    // rows of a search come after a pause and a query).
    Figure measure(const std::function<void()> &action, const std::function<bool()> &ready = {})
    {
        settle();
        stall_.reset();
        QElapsedTimer clock;
        clock.start();
        const int before = painted.paints;
        painted.when = ready;
        action();
        runUntil([&] { return painted.paints > before; });
        painted.when = nullptr;
        return { double(clock.nsecsElapsed()) / 1e6, stall_.longestMilliseconds(),
            QStringLiteral("%1 rows").arg(rows()) };
    }

    // The cache keys of the thumbnails of the rows on screen, of present files.
    QStringList visibleKeys() const
    {
        QTableView *view = table().view();
        const DocumentTableModel *model = table().model();
        int first = view->rowAt(0);
        int last = view->rowAt(view->viewport()->height() - 1);
        if (first < 0)
            return {};
        if (last < 0)
            last = model->rowCount() - 1;
        QStringList keys;
        for (int row = first; row <= last; ++row) {
            const QModelIndex index = model->index(row, DocumentTableModel::thumbnail);
            const QString path = index.data(DocumentTableModel::PathRole).toString();
            if (!path.isEmpty())
                keys << Thumbnails::key(path, index.data(DocumentTableModel::ModifiedRole).toDateTime(),
                    index.data(DocumentTableModel::RotationRole).toInt());
        }
        return keys;
    }
    bool thumbnailsCached() const
    {
        const QStringList keys = visibleKeys();
        return std::all_of(
            keys.begin(), keys.end(), [](const QString &key) { return Thumbnails::shared().cached(key); });
    }
    // Runs until the thumbnails on screen are in, so that a measurement starts with no render under way.
    void settle()
    {
        runUntil([&] { return thumbnailsCached(); }, std::chrono::seconds(30));
        runFor(std::chrono::milliseconds(50));
    }

    StallWatch &stall_;
    QElapsedTimer made_;
    UpdateCheck updates { UpdateSource {}, QStringLiteral("0.1.0") };
    std::unique_ptr<Library> library;
    std::unique_ptr<MainWindow> window;
    PaintCounter painted;
    bool synced = false;
};

void clickSidebar(SidebarView &sidebar, const QModelIndex &index)
{
    QTest::mouseClick(sidebar.viewport(), Qt::LeftButton, {}, sidebar.visualRect(index).center());
}

void clickHeader(QTableView &view, int column)
{
    QHeaderView *header = view.horizontalHeader();
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
        QPoint(header->sectionViewportPosition(column) + header->sectionSize(column) / 2, header->height() / 2));
}

void measureCatalogue(int documents, const QStringList &scans, StallWatch &stall)
{
    bench::Catalogue catalogue(documents);
    const auto start = std::chrono::steady_clock::now();
    bench::linkFiles(catalogue.folder(), scans);
    // A folder opened before has had its text checked for gibberish once; that check reads every page
    // in the background on the first open only.
    catalogue.store().setSetting(QStringLiteral("checked_garbled_ocr"), QStringLiteral("1"));
    std::fprintf(stderr, "Linked the files in %.1f s\n", bench::secondsSince(start));
    resetPeak();
    const long before = peakKilobytes();

    printHeader(QStringLiteral("%1 scans; times and the longest main-thread stall in milliseconds").arg(documents));
    stall.reset();
    Window window(stall);
    double beforeEvents = 0;
    print("open: Library and window made to first rows painted", window.open(catalogue.folder(), &beforeEvents));
    print("  of which making them, showing the window, the open call", { beforeEvents, beforeEvents, QString() });
    {
        stall.reset();
        QElapsedTimer clock;
        clock.start();
        int published = 0;
        const QMetaObject::Connection counting
            = QObject::connect(window.library.get(), &Library::documentsChanged, [&published] { ++published; });
        runUntil([&] { return window.synced; });
        QObject::disconnect(counting);
        print("  then the folder's sync, to its end",
            { double(clock.nsecsElapsed()) / 1e6, stall.longestMilliseconds(),
                QStringLiteral("scans published again %1 times").arg(published) });
    }
    {
        stall.reset();
        QElapsedTimer clock;
        clock.start();
        window.settle();
        print("  then the first screenful's thumbnails",
            { double(clock.nsecsElapsed()) / 1e6, stall.longestMilliseconds(), QString() });
    }

    LibraryView &view = *window.window->libraryView();
    SidebarView &sidebar = *view.sidebar();
    const auto *sidebarModel = static_cast<const SidebarModel *>(sidebar.model());
    const QModelIndex organizations = sidebarModel->index(SidebarModel::organizationsSection, 0);
    const QModelIndex library = sidebarModel->index(SidebarModel::librarySection, 0);
    // The organization with the most scans among those on screen.
    QModelIndex organization = sidebarModel->index(0, 0, organizations);
    for (int row = 0; row < sidebarModel->rowCount(organizations); ++row) {
        const QModelIndex index = sidebarModel->index(row, 0, organizations);
        if (!sidebar.viewport()->rect().contains(sidebar.visualRect(index)))
            break;
        if (index.data(SidebarModel::CountRole).toInt() > organization.data(SidebarModel::CountRole).toInt())
            organization = index;
    }
    print("sidebar: All Scans to an organization", window.measure([&] { clickSidebar(sidebar, organization); }));
    print(
        "sidebar: to Needs Review", window.measure([&] { clickSidebar(sidebar, sidebarModel->index(1, 0, library)); }));
    print("sidebar: back to All Scans",
        window.measure([&] { clickSidebar(sidebar, sidebarModel->index(0, 0, library)); }));

    auto *year = view.findChild<QComboBox *>(QStringLiteral("yearPicker"));
    auto *kind = view.findChild<QComboBox *>(QStringLiteral("typePicker"));
    print("year picker: the newest year", window.measure([&] { QTest::keyClick(year, Qt::Key_Down); }));
    print("year picker: back to All Years", window.measure([&] { QTest::keyClick(year, Qt::Key_Up); }));
    print("type picker: the first type", window.measure([&] { QTest::keyClick(kind, Qt::Key_Down); }));
    print("type picker: back to All Types", window.measure([&] { QTest::keyClick(kind, Qt::Key_Up); }));

    QTableView &table = *window.table().view();
    using Column = DocumentTableModel::Column;
    print("sort: Organization header", window.measure([&] { clickHeader(table, Column::organization); }));
    print("sort: Organization header again (descending)",
        window.measure([&] { clickHeader(table, Column::organization); }));
    print("sort: Status header", window.measure([&] { clickHeader(table, Column::status); }));
    print("sort: Date header (newest first)", window.measure([&] { clickHeader(table, Column::date); }));

    auto *search = view.findChild<QLineEdit *>(QStringLiteral("search"));
    search->setFocus();
    // Typed at about ten keys a second, within the search's pause, which starts again with every key.
    QElapsedTimer sinceLastKey;
    const Figure typed = window.measure(
        [&] {
            const QString word = QStringLiteral("state");
            for (qsizetype i = 0; i < word.size(); ++i) {
                if (i > 0)
                    runFor(std::chrono::milliseconds(100));
                QTest::keyClick(search, word[i].toLatin1());
            }
            sinceLastKey.start();
        },
        [&] { return window.library->searchMatches().has_value(); });
    const double afterLastKey = double(sinceLastKey.nsecsElapsed()) / 1e6;
    print("search: \"state\" typed, first key to rows painted", typed);
    print("  of which from the last key (150 ms pause included)", { afterLastKey, typed.stall, QString() });
    print("search: cleared", window.measure([&] {
        QTest::keyClick(search, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(search, Qt::Key_Backspace);
    }));

    std::printf("\npeak RSS %ld MB (%ld MB when the catalogue was built and before the window)\n",
        peakKilobytes() / 1024, before / 1024);
    std::fflush(stdout);
}

// A folder of real scans, opened, scrolled to its end: the time until the screenful's thumbnails are in.
void measureThumbnails(const QString &folder, StallWatch &stall)
{
    printHeader(QStringLiteral("%1 real scans of two pages; thumbnails").arg(realScans));
    Window window(stall);
    const Figure opened = window.open(folder);
    runUntil([&] { return window.synced && window.rows() == realScans; });
    stall.reset();
    QElapsedTimer clock;
    clock.start();
    const int first = int(window.visibleKeys().size());
    runUntil([&] { return window.thumbnailsCached(); });
    print("first screenful's thumbnails, new readers",
        { double(clock.nsecsElapsed()) / 1e6, stall.longestMilliseconds(), QStringLiteral("%1 rows").arg(first) });
    const QStringList before = window.visibleKeys();
    stall.reset();
    clock.restart();
    window.table().view()->scrollToBottom();
    runUntil([&] { return window.thumbnailsCached(); });
    QStringList keys = window.visibleKeys();
    const auto fresh
        = std::count_if(keys.begin(), keys.end(), [&](const QString &key) { return !before.contains(key); });
    print("scrolled to the end: its screenful's thumbnails",
        { double(clock.nsecsElapsed()) / 1e6, stall.longestMilliseconds(),
            QStringLiteral("%1 rows, %2 not on the first screen").arg(keys.size()).arg(fresh) });
    Q_UNUSED(opened);
}

std::optional<std::vector<int>> parseSizes(std::string_view text)
{
    std::vector<int> sizes;
    for (const QString &part : QString::fromUtf8(text.data(), qsizetype(text.size())).split(QLatin1Char(','))) {
        bool ok = false;
        const int size = part.toInt(&ok);
        if (!ok || size < 1)
            return std::nullopt;
        sizes.push_back(size);
    }
    return sizes;
}

} // namespace

int main(int argc, char **argv)
{
    limitEngineThreads(argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The Library keeps its preferences out of the person's own.
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QApplication::setApplicationName(QStringLiteral("VellumarkBench"));

    std::vector<int> sizes { 10'000, 100'000 };
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument(argv[i]);
        std::optional<std::vector<int>> parsed;
        if (argument.starts_with("--documents=") && (parsed = parseSizes(argument.substr(12))))
            sizes = *parsed;
        else {
            std::fprintf(stderr, "usage: window_bench [--documents=10000,100000]\n");
            return 1;
        }
    }

    // Nothing is read or filed while measuring; no model server answers.
    QSettings().setValue(Library::pausedKey, true);
    QSettings().setValue(QStringLiteral("ModelServer"), QStringLiteral("http://127.0.0.1:9"));

    QTemporaryDir folder;
    QStringList scans;
    for (int index = 0; index < realScans; ++index) {
        scans << folder.filePath(QStringLiteral("scan %1.pdf").arg(index, 2, 10, QLatin1Char('0')));
        writeFile(scans.back(), scanPdf({ letterPage(8 + index % 30, index % 5 == 0 ? 180 : 0), letterPage(20) }));
    }

    StallWatch stall;
    try {
        measureThumbnails(folder.path(), stall);
        for (const int documents : sizes)
            measureCatalogue(documents, scans, stall);
    } catch (const Database::Error &error) {
        std::fprintf(stderr, "window_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
