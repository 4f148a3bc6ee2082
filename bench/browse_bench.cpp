// Browsing a large catalogue: full-text search latency, the table's list with and without filters, and
// reading the whole catalogue into the Library. The catalogue is the one store_bench builds (100,000
// scans of 3 pages by default). Plain timings, printed as a table; nothing here checks behaviour.
//
//   browse_bench [--documents=N] [--repeat=R]
//
// VELLUMARK_BENCH_DOCUMENTS=N does the same as --documents=N; the flag wins.

#include "library/BlockingWait.h"
#include "library/Library.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "BenchCatalogue.h"

namespace {

using bench::Random;

std::optional<int> parseCount(const char *text)
{
    char *end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 1 || value > 100'000'000)
        return std::nullopt;
    return int(value);
}

double millisecondsOf(const std::function<void()> &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

// The longest time the main thread went without running its event loop while `work` ran there: a
// timer asks to run every millisecond, and the longest gap between its runs is the stall.
double longestStall(const std::function<void()> &work)
{
    QElapsedTimer clock;
    clock.start();
    qint64 last = clock.nsecsElapsed();
    qint64 longest = 0;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        longest = std::max(longest, now - last);
        last = now;
    });
    tick.start();
    work();
    longest = std::max(longest, clock.nsecsElapsed() - last);
    return double(longest) / 1e6;
}

struct Summary {
    double median = 0;
    double p99 = 0;
    double max = 0;
};

Summary summarise(std::vector<double> values)
{
    if (values.empty())
        return {};
    std::sort(values.begin(), values.end());
    const auto at = [&](double fraction) {
        return values[std::min(values.size() - 1, std::size_t(fraction * double(values.size() - 1) + 0.5))];
    };
    return { at(0.5), at(0.99), values.back() };
}

// Queries as people type them: words drawn with the text's own frequencies, a third of them cut to
// a prefix of 3 to 5 letters, and now and then an organization's name.
std::vector<QString> queries(int words, int count, Random &random)
{
    static const std::array names = { "pacific", "northern bank", "first", "summit energy", "valley", "cedar" };
    const bench::Vocabulary &vocabulary = bench::Vocabulary::shared();
    std::vector<QString> list;
    while (int(list.size()) < count) {
        QStringList pieces;
        if (random.chance(15))
            pieces << QString::fromUtf8(names[std::size_t(random.below(int(names.size())))]).split(QLatin1Char(' '));
        while (pieces.size() < words) {
            QString word = QString::fromStdString(vocabulary.pick(random));
            if (word.size() > 5 && random.chance(33))
                word.truncate(3 + random.below(3));
            pieces << word;
        }
        list.push_back(pieces.mid(0, words).join(QLatin1Char(' ')));
    }
    return list;
}

void row(const char *what, const Summary &summary, const QString &note = QString())
{
    std::printf("| %-56s | %10.2f | %10.2f | %10.2f | %s\n", what, summary.median, summary.p99, summary.max,
        note.toUtf8().constData());
}

} // namespace

int main(int argc, char **argv)
{
    // The Library keeps its preferences out of the person's own.
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QCoreApplication::setApplicationName(QStringLiteral("VellumarkBench"));

    int documents = bench::catalogueDocuments;
    int repeat = 5;
    if (const char *environment = std::getenv("VELLUMARK_BENCH_DOCUMENTS"); environment && *environment) {
        const auto count = parseCount(environment);
        if (!count) {
            std::fprintf(stderr, "VELLUMARK_BENCH_DOCUMENTS must be a positive number, not \"%s\"\n", environment);
            return 1;
        }
        documents = *count;
    }
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument(argv[i]);
        std::optional<int> count;
        if (argument.starts_with("--documents=") && (count = parseCount(argv[i] + 12)))
            documents = *count;
        else if (argument.starts_with("--repeat=") && (count = parseCount(argv[i] + 9)))
            repeat = *count;
        else {
            std::fprintf(stderr, "usage: browse_bench [--documents=N] [--repeat=R]\n");
            return 1;
        }
    }

    try {
        bench::Catalogue catalogue(documents);
        ScanStore &store = catalogue.store();

        std::printf("\n%d scans, %d pages; times in milliseconds\n\n", catalogue.documents(),
            catalogue.documents() * bench::pagesPerDocument);
        std::printf("| %-56s | %10s | %10s | %10s | %s\n", "What", "median", "p99", "max", "");
        std::printf("|%s|%s|%s|%s|\n", std::string(58, '-').c_str(), std::string(12, '-').c_str(),
            std::string(12, '-').c_str(), std::string(12, '-').c_str());

        // Search: the store's query, each query run once to warm up and then `repeat` times.
        Random random(31337);
        for (int words = 1; words <= 3; ++words) {
            const std::vector<QString> list = queries(words, 100, random);
            std::vector<double> times;
            std::vector<double> found;
            for (const QString &query : list)
                found.push_back(double(store.search(query).size()));
            for (int pass = 0; pass < repeat; ++pass)
                for (const QString &query : list)
                    times.push_back(millisecondsOf([&] { store.search(query); }));
            const Summary matches = summarise(found);
            char what[64];
            std::snprintf(
                what, sizeof what, "ScanStore::search, %d word%s (100 queries)", words, words == 1 ? "" : "s");
            row(what, summarise(times),
                QStringLiteral("scans found: median %1, p99 %2").arg(matches.median).arg(matches.p99));
        }

        // The Library on the same catalogue, as the CLI opens it.
        LibraryOptions options;
        options.searchDelay = std::chrono::milliseconds(0);
        Library library(options);
        std::vector<double> opens;
        for (int pass = 0; pass < std::max(1, repeat / 2); ++pass)
            opens.push_back(millisecondsOf([&] { blockingWait(library.openWithoutWork(catalogue.folder())); }));
        row("open the catalogue and read it (openWithoutWork)", summarise(opens));
        // Reading every scan and organization again, as after a sync that changed something.
        {
            Catalogue lists;
            lists.setStore(Catalogue::Store::makeNow(catalogue.folder()), catalogue.folder());
            std::vector<double> reloads;
            std::vector<double> stalls;
            for (int pass = 0; pass < repeat; ++pass) {
                double total = 0;
                stalls.push_back(longestStall([&] { total = millisecondsOf([&] { blockingWait(lists.reload()); }); }));
                reloads.push_back(total);
            }
            row("reload: every scan and organization read and published", summarise(reloads),
                QStringLiteral("%1 scans").arg(lists.documentsByID().size()));
            row("reload: longest main-thread stall", summarise(stalls));
        }
        // Edits of one scan, from the command to the lists published: what the edit touched is read again.
        const auto edits = [&](const char *what, const std::function<QCoro::Task<>(std::int64_t id, int pass)> &edit) {
            std::vector<double> times;
            std::vector<double> stalls;
            auto document = library.documentsByID().begin();
            for (int pass = 0; pass < repeat * 4; ++pass, ++document) {
                double total = 0;
                stalls.push_back(
                    longestStall([&] { total = millisecondsOf([&] { blockingWait(edit(document->first, pass)); }); }));
                times.push_back(total);
            }
            row(what, summarise(times));
            row("  longest main-thread stall", summarise(stalls));
        };
        edits("edit one scan's type", [&](std::int64_t id, int pass) {
            return library.setKind({ id }, DocumentKind::all().at(std::size_t(pass) % DocumentKind::all().size()));
        });
        edits("file one scan under an organization by hand", [&](std::int64_t id, int pass) {
            return library.setOrganization({ id }, library.organizations().at(std::size_t(pass) % 50).name);
        });

        const auto visible = [&](const char *what) {
            std::vector<double> times;
            std::size_t shown = 0;
            for (int pass = 0; pass < repeat; ++pass)
                times.push_back(millisecondsOf([&] { shown = library.visibleDocuments().size(); }));
            row(what, summarise(times), QStringLiteral("%1 scans shown").arg(shown));
        };
        visible("visibleDocuments, no filter, newest first");
        library.setSortOrder({ { SortComparator::Key::organization, true }, { SortComparator::Key::status, false } });
        visible("visibleDocuments, no filter, by organization and status");
        library.setSortOrder(defaultSortOrder());
        library.setSidebar(SidebarItem::needsReview());
        visible("visibleDocuments, needs review");
        library.setSidebar(SidebarItem::organization(library.organizations().front().id));
        library.setYearFilter(2018);
        visible("visibleDocuments, one organization and a year");
        library.setSidebar(SidebarItem::all());
        library.setYearFilter(std::nullopt);
        library.setKindFilter(DocumentKind::all().at(5));
        visible("visibleDocuments, one type");
        library.setKindFilter(std::nullopt);
        {
            QEventLoop loop;
            QObject::connect(&library, &Library::searchMatchesChanged, &loop, &QEventLoop::quit);
            library.setSearchText(QStringLiteral("statement"));
            if (!library.searchMatches())
                loop.exec();
        }
        visible("visibleDocuments, searching \"statement\"");
        std::vector<double> searches;
        for (const QString &text : { QStringLiteral("pac"), QStringLiteral("payment due"),
                 QStringLiteral("first bank statement"), QStringLiteral("kamiten") }) {
            searches.push_back(millisecondsOf([&] {
                // From no search, so that the result is always news.
                library.setSearchText(QString());
                QEventLoop loop;
                QObject::connect(&library, &Library::searchMatchesChanged, &loop, &QEventLoop::quit);
                library.setSearchText(text);
                // A quick answer may be in before the loop runs.
                if (!library.searchMatches())
                    loop.exec();
            }));
        }
        row("Library search, typed text to result (4 queries)", summarise(searches));
        std::printf("\ncatalogue build %.1f s (rows %.1f s, full-text index %.1f s)\n", catalogue.buildSeconds(),
            catalogue.insertSeconds(), catalogue.fullTextSeconds());
    } catch (const Database::Error &error) {
        std::fprintf(stderr, "browse_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
