// Speed and memory of ScanStore on a large catalogue: 100,000 scans of 3 pages each by default, about
// 1,500 characters of text per page. The catalogue is built once, directly with SQL, in a temporary
// folder; the benchmarks then time the store's own calls on it. Nothing here checks behaviour.
//
//   store_bench [--documents=N] [Google Benchmark flags]
//
// VELLUMARK_BENCH_DOCUMENTS=N does the same as --documents=N; the flag wins.

#include "store/Database.h"
#include "store/DocumentKind.h"
#include "store/Migrations.h"
#include "store/ScanStore.h"
#include "store/Transaction.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <vector>

#include "SyntheticText.h"

namespace {

constexpr int defaultDocuments = 100'000;
constexpr int pagesPerDocument = 3;
constexpr int pageLength = 1'500;

int requestedDocuments = defaultDocuments;

using bench::PageWriter;
using bench::Random;

QStringList reading(PageWriter &writer)
{
    QStringList pages;
    for (int i = 0; i < pagesPerDocument; ++i)
        pages.append(writer.page());
    return pages;
}

QString hexDigest(Random &random)
{
    QString text;
    text.reserve(64);
    for (int i = 0; i < 4; ++i)
        text += QStringLiteral("%1").arg(random.next(), 16, 16, QLatin1Char('0'));
    return text;
}

std::int64_t peakRSSBytes()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return std::int64_t(usage.ru_maxrss) * 1024; // kilobytes on Linux
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The shared catalogue, built on first use and kept until the process ends.
class Catalogue {
public:
    static Catalogue &instance()
    {
        static Catalogue catalogue(requestedDocuments);
        return catalogue;
    }

    ScanStore &store() { return *store_; }
    int documents() const { return documents_; }
    int pending() const { return pending_; }
    double insertSeconds() const { return insertSeconds_; }
    double fullTextSeconds() const { return fullTextSeconds_; }
    double buildSeconds() const { return buildSeconds_; }
    std::int64_t fileBytes() const { return QFileInfo(store_->databasePath()).size(); }
    // Scans whose text was read and whose file is present: the ones saveOCR rewrites.
    const DocumentIDs &readIDs() const { return readIDs_; }

private:
    explicit Catalogue(int documents)
        : documents_(documents)
    {
        if (!folder_.isValid())
            throw Database::Error(QStringLiteral("cannot create a temporary folder: ") + folder_.errorString());
        std::fprintf(stderr, "Building a catalogue of %d scans in %s ...\n", documents,
            QFile::encodeName(folder_.path()).constData());
        const auto start = std::chrono::steady_clock::now();
        {
            ScanStore schema(folder_.path());
        }
        Database db(QDir(folder_.path()).filePath(ScanStore::fileName));
        // Only this connection: the store's own opens with SQLite's defaults.
        db.execute(QStringLiteral("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY"));
        inImmediateTransaction(db, [&] {
            insertRows(db);
            insertSeconds_ = secondsSince(start);
            const auto fill = std::chrono::steady_clock::now();
            db.run(Migrations::fullTextFill() + QStringLiteral("1"));
            fullTextSeconds_ = secondsSince(fill);
        });
        buildSeconds_ = secondsSince(start);
        store_ = std::make_unique<ScanStore>(folder_.path());
        std::fprintf(stderr, "Built in %.1f s (rows %.1f s, full-text index %.1f s), %lld bytes\n", buildSeconds_,
            insertSeconds_, fullTextSeconds_, static_cast<long long>(fileBytes()));
    }

    void insertRows(Database &db)
    {
        Random random(1'700'000'000);
        const QStringList &kinds = DocumentKind::all();

        static constexpr std::array places = { "Pacific", "Northern", "First", "United", "Summit", "Riverside",
            "Evergreen", "Liberty", "Golden", "Lakeside", "Keystone", "Harbor", "Prairie", "Capital", "Redwood",
            "Atlantic", "Granite", "Cedar", "Heritage", "Valley" };
        static constexpr std::array trades = { "Bank", "Energy", "Insurance", "Health", "Mutual", "Credit Union",
            "Telecom", "Water District", "Medical Group", "Realty", "Auto Finance", "Dental", "Pharmacy", "Wireless",
            "Mortgage", "Tax Services", "University", "Property Management", "Electric", "Cable" };
        QStringList organizations;
        Statement insertOrganization
            = db.prepare(QStringLiteral("INSERT INTO organizations (id, name, named_by_user, created_at) "
                                        "VALUES (?, ?, ?, ?)"));
        for (const char *place : places)
            for (const char *trade : trades) {
                organizations.append(QString::fromUtf8(place) + QLatin1Char(' ') + QString::fromUtf8(trade));
                insertOrganization.bind(
                    { std::int64_t(organizations.size()), organizations.back(), random.chance(10), 1'300'000'000.0 });
                while (insertOrganization.step()) { }
            }

        // Exactly a tenth of the scans wait for text recognition, spread at random over the folder.
        std::vector<int> order(static_cast<std::size_t>(documents_));
        std::iota(order.begin(), order.end(), 0);
        pending_ = documents_ / 10;
        for (int i = 0; i < pending_; ++i)
            std::swap(order[std::size_t(i)], order[std::size_t(i + random.below(documents_ - i))]);
        std::vector<bool> isPending(static_cast<std::size_t>(documents_));
        for (int i = 0; i < pending_; ++i)
            isPending[std::size_t(order[std::size_t(i)])] = true;

        Statement insertDocument = db.prepare(QStringLiteral(
            "INSERT INTO documents (id, path, file_size, file_modified, sha256, page_count, missing, ocr_status, "
            "ocr_at, extract_status, extracted_at, error, organization_id, doc_date, model_organization, added_at, "
            "extract_log, similar_document_id, doc_kind, page_rotations) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
        Statement insertPage
            = db.prepare(QStringLiteral("INSERT INTO pages (document_id, page_index, text) VALUES (?, ?, ?)"));
        PageWriter writer(42, pageLength);
        const QString pending = QStringLiteral("pending");
        const QString done = QStringLiteral("done");
        const QString failed = QStringLiteral("failed");
        const QString manual = QStringLiteral("manual");

        for (int index = 0; index < documents_; ++index) {
            const std::int64_t id = index + 1;
            const double modified = 1'300'000'000.0 + double(index) * 4'000.0 + random.below(3'600);
            const double added = modified + 30 + random.below(600) + random.unit();
            const int year = 2011 + index * 13 / std::max(documents_, 1);
            const int month = 1 + random.below(12);
            const int day = 1 + random.below(28);
            const QString path = QStringLiteral("%1/%1-%2-%3 Scan %4.pdf")
                                     .arg(year)
                                     .arg(month, 2, 10, QLatin1Char('0'))
                                     .arg(day, 2, 10, QLatin1Char('0'))
                                     .arg(id, 6, 10, QLatin1Char('0'));

            QString ocrStatus = pending;
            QString extractStatus = pending;
            bool missing = false;
            std::optional<SQLValue> sha, ocrAt, extractedAt, error, organizationID, date, modelOrganization, log,
                similar, kind, rotations;
            if (!isPending[std::size_t(index)]) {
                missing = random.chance(1);
                sha = hexDigest(random);
                ocrAt = added + 20;
                if (random.below(200) == 0) {
                    ocrStatus = failed;
                    error = QStringLiteral("Text recognition failed: page 2 could not be rendered");
                } else {
                    ocrStatus = done;
                    const int roll = random.below(100);
                    extractStatus = roll < 85 ? done : roll < 90 ? manual : roll < 92 ? failed : pending;
                }
                if (extractStatus == done || extractStatus == manual) {
                    extractedAt = added + 60;
                    const int organization = random.below(int(organizations.size()));
                    if (!random.chance(8))
                        organizationID = std::int64_t(organization + 1);
                    modelOrganization = organizations[organization];
                    const QString dateText = QStringLiteral("%1-%2-%3")
                                                 .arg(year)
                                                 .arg(month, 2, 10, QLatin1Char('0'))
                                                 .arg(day, 2, 10, QLatin1Char('0'));
                    const QString kindText = kinds[random.below(int(kinds.size()))];
                    date = dateText;
                    kind = kindText;
                    log = QStringLiteral("Asked the model about %1 pages (%2 characters).\nAnswer: \"%3\", %4, %5.")
                              .arg(pagesPerDocument)
                              .arg(pagesPerDocument * pageLength)
                              .arg(organizations[organization], dateText, kindText);
                    if (index > 0 && random.chance(30))
                        similar = std::int64_t(1 + random.below(index));
                } else if (extractStatus == failed) {
                    extractedAt = added + 60;
                    error = QStringLiteral("The model named no organization");
                }
                if (random.chance(5))
                    rotations = QStringLiteral("0,180,0");
            }
            insertDocument.bind({ id, path, std::int64_t(80'000 + random.below(3'000'000)), modified, sha,
                pagesPerDocument, missing, ocrStatus, ocrAt, extractStatus, extractedAt, error, organizationID, date,
                modelOrganization, added, log, similar, kind, rotations });
            while (insertDocument.step()) { }
            for (int page = 0; page < pagesPerDocument; ++page) {
                insertPage.bind({ id, page, writer.page() });
                while (insertPage.step()) { }
            }
            if (ocrStatus == done && !missing)
                readIDs_.push_back(id);
        }
    }

    QTemporaryDir folder_;
    std::unique_ptr<ScanStore> store_;
    int documents_ = 0;
    int pending_ = 0;
    double insertSeconds_ = 0;
    double fullTextSeconds_ = 0;
    double buildSeconds_ = 0;
    DocumentIDs readIDs_;
};

void reportMemoryAndSize(benchmark::State &state)
{
    using benchmark::Counter;
    state.counters["peak_rss"] = Counter(double(peakRSSBytes()), Counter::kDefaults, Counter::OneK::kIs1024);
    state.counters["catalogue_bytes"]
        = Counter(double(Catalogue::instance().fileBytes()), Counter::kDefaults, Counter::OneK::kIs1024);
}

void BM_documents(benchmark::State &state)
{
    ScanStore &store = Catalogue::instance().store();
    std::size_t count = 0;
    for (auto _ : state) {
        std::vector<ScanDocument> documents = store.documents();
        count = documents.size();
        benchmark::DoNotOptimize(documents.data());
        // Freeing the list is the caller's business, not the read's.
        state.PauseTiming();
        documents = {};
        state.ResumeTiming();
    }
    state.counters["documents"] = double(count);
    reportMemoryAndSize(state);
}
// The first call reads the file cold and grows the process; several seconds of calls give a steady figure.
BENCHMARK(BM_documents)->Unit(benchmark::kMillisecond)->MinTime(5.0);

void BM_nextOCRJob(benchmark::State &state)
{
    ScanStore &store = Catalogue::instance().store();
    std::optional<ScanStore::OCRJob> job;
    for (auto _ : state) {
        job = store.nextOCRJob();
        benchmark::DoNotOptimize(job);
    }
    state.counters["found"] = job ? 1 : 0;
    reportMemoryAndSize(state);
}
BENCHMARK(BM_nextOCRJob)->Unit(benchmark::kMicrosecond);

// Among a set of ids spread evenly over the catalogue, as when the user asks to read a selection.
void BM_nextOCRJob_among(benchmark::State &state)
{
    Catalogue &catalogue = Catalogue::instance();
    ScanStore &store = catalogue.store();
    const int size = std::min<int>(int(state.range(0)), catalogue.documents());
    DocumentIDs among;
    for (int i = 0; i < size; ++i)
        among.push_back(1 + std::int64_t(i) * catalogue.documents() / size);
    std::optional<ScanStore::OCRJob> job;
    for (auto _ : state) {
        job = store.nextOCRJob(among);
        benchmark::DoNotOptimize(job);
    }
    state.counters["found"] = job ? 1 : 0;
    reportMemoryAndSize(state);
}
BENCHMARK(BM_nextOCRJob_among)->Arg(20)->Arg(1'000)->Unit(benchmark::kMicrosecond);

// One reading of 3 pages saved. Before each timed call a scan that was read before is set back to
// pending, a different one each time, so that every call writes. (resetOCR also sets those scans back
// to waiting for the model; no other benchmark here looks at that.)
void BM_saveOCR(benchmark::State &state)
{
    Catalogue &catalogue = Catalogue::instance();
    ScanStore &store = catalogue.store();
    const DocumentIDs &ids = catalogue.readIDs();
    if (ids.empty()) {
        state.SkipWithError("the catalogue has no scans that were read");
        return;
    }
    PageWriter writer(7, pageLength);
    std::vector<QStringList> readings;
    for (int i = 0; i < 8; ++i)
        readings.push_back(reading(writer));
    const std::vector<int> rotations = { 0, 180, 0 };
    Random random(99);
    const QString sha = hexDigest(random);
    // A stride coprime to most sizes walks the whole folder rather than one corner of it.
    const std::size_t stride = 7'919;
    std::size_t next = 0;
    std::int64_t saved = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::int64_t id = ids[next % ids.size()];
        next += stride;
        store.resetOCR({ id });
        const std::optional<ScanStore::OCRJob> job = store.nextOCRJob(DocumentIDs { id });
        if (!job) {
            state.SkipWithError("a scan set back to pending was not offered for reading");
            break;
        }
        const QStringList &pages = readings[std::size_t(saved % std::int64_t(readings.size()))];
        state.ResumeTiming();
        store.saveOCR(*job, pages, rotations, sha);
        ++saved;
    }
    state.counters["saved"] = double(saved);
    reportMemoryAndSize(state);
}
BENCHMARK(BM_saveOCR)->Unit(benchmark::kMicrosecond);

std::optional<int> parseCount(const char *text)
{
    char *end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 1 || value > 100'000'000)
        return std::nullopt;
    return int(value);
}

} // namespace

int main(int argc, char **argv)
{
    if (const char *environment = std::getenv("VELLUMARK_BENCH_DOCUMENTS"); environment && *environment) {
        const auto count = parseCount(environment);
        if (!count) {
            std::fprintf(stderr, "VELLUMARK_BENCH_DOCUMENTS must be a positive number, not \"%s\"\n", environment);
            return 1;
        }
        requestedDocuments = *count;
    }
    std::vector<char *> arguments;
    for (int i = 0; i < argc; ++i) {
        constexpr std::string_view flag = "--documents=";
        if (i > 0 && std::string_view(argv[i]).starts_with(flag)) {
            const auto count = parseCount(argv[i] + flag.size());
            if (!count) {
                std::fprintf(stderr, "--documents needs a positive number, not \"%s\"\n", argv[i] + flag.size());
                return 1;
            }
            requestedDocuments = *count;
        } else {
            arguments.push_back(argv[i]);
        }
    }
    int count = int(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 1;

    try {
        Catalogue &catalogue = Catalogue::instance();
        benchmark::AddCustomContext("catalogue_documents", std::to_string(catalogue.documents()));
        benchmark::AddCustomContext("catalogue_pages", std::to_string(catalogue.documents() * pagesPerDocument));
        benchmark::AddCustomContext("catalogue_pending_ocr", std::to_string(catalogue.pending()));
        char seconds[64];
        std::snprintf(seconds, sizeof seconds, "%.2f (rows %.2f, full-text index %.2f)", catalogue.buildSeconds(),
            catalogue.insertSeconds(), catalogue.fullTextSeconds());
        benchmark::AddCustomContext("catalogue_build_seconds", seconds);
        benchmark::AddCustomContext("catalogue_bytes_after_build", std::to_string(catalogue.fileBytes()));
        benchmark::AddCustomContext("peak_rss_bytes_after_build", std::to_string(peakRSSBytes()));
        benchmark::RunSpecifiedBenchmarks();
        std::fprintf(stderr, "catalogue_bytes at the end: %lld\npeak_rss_bytes at the end: %lld\n",
            static_cast<long long>(catalogue.fileBytes()), static_cast<long long>(peakRSSBytes()));
    } catch (const Database::Error &error) {
        std::fprintf(stderr, "store_bench: %s\n", error.what());
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
