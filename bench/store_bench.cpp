// Speed and memory of ScanStore on a large catalogue: 100,000 scans of 3 pages each by default, about
// 1,500 characters of text per page. The catalogue is built once, directly with SQL, in a temporary
// folder; the benchmarks then time the store's own calls on it. Nothing here checks behaviour.
//
//   store_bench [--documents=N] [Google Benchmark flags]
//
// VELLUMARK_BENCH_DOCUMENTS=N does the same as --documents=N; the flag wins.

#include "core/DocumentKind.h"
#include "store/Database.h"
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

#include "BenchCatalogue.h"

namespace {

int requestedDocuments = bench::catalogueDocuments;

using bench::hexDigest;
using bench::pageLength;
using bench::pagesPerDocument;
using bench::PageWriter;
using bench::Random;

// The shared catalogue, built on first use and kept until the process ends.
struct Catalogue {
    static bench::Catalogue &instance()
    {
        static bench::Catalogue catalogue(requestedDocuments);
        return catalogue;
    }
};

QStringList reading(PageWriter &writer)
{
    QStringList pages;
    for (int i = 0; i < pagesPerDocument; ++i)
        pages.append(writer.page());
    return pages;
}

std::int64_t peakRSSBytes()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return std::int64_t(usage.ru_maxrss) * 1024; // kilobytes on Linux
}

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
    bench::Catalogue &catalogue = Catalogue::instance();
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
    bench::Catalogue &catalogue = Catalogue::instance();
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
        bench::Catalogue &catalogue = Catalogue::instance();
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
