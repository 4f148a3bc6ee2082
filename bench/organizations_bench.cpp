// Speed of organization name matching and of the similar-scan hint on a large folder. Nothing here
// checks behaviour.
//
//   organizations_bench [Google Benchmark flags]
//
// BM_match matches one name against 1,000 organizations. BM_similarFiledDocument_* look up the filed
// scan most like a new one in a catalogue of 10,000 filed scans: first on a store that has just been
// opened (the first-page fingerprints are built during the call), then on one that has them.

#include "core/OrgMatching.h"
#include "store/Database.h"
#include "store/ScanStore.h"
#include "store/Transaction.h"

#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SyntheticText.h"

namespace {

using bench::PageWriter;
using bench::Random;

constexpr int organizationCount = 1'000;
constexpr int filedScanCount = 10'000;
constexpr int newScanCount = 200;
constexpr int senders = 400;
constexpr int letterheadWords = 20;
constexpr int boilerplateLength = 800;
constexpr int firstPageLength = 800;

QString capitalized(const std::string &word)
{
    QString text = QString::fromStdString(word);
    if (!text.isEmpty())
        text[0] = text[0].toUpper();
    return text;
}

// 1,000 names as the catalogue collects them: a made-up name or two, a trade, sometimes a legal form.
std::vector<Organization> organizationList()
{
    static constexpr std::array trades = { "Bank", "Energy", "Insurance", "Health", "Mutual", "Credit Union", "Telecom",
        "Water District", "Medical Group", "Realty", "Auto Finance", "Dental", "Pharmacy", "Wireless", "Mortgage",
        "Tax Services", "University", "Property Management", "Electric", "Cable" };
    static constexpr std::array forms = { "", "", "", ", Inc.", " LLC", " Co.", " N.A." };
    const std::vector<std::string> &words = bench::Vocabulary::shared().words();
    Random random(1'000);
    std::vector<Organization> organizations;
    for (int i = 0; int(organizations.size()) < organizationCount; ++i) {
        // Made-up words only: the rarer part of the vocabulary.
        QString name = capitalized(words[600 + std::size_t(random.below(int(words.size()) - 600))]);
        if (random.chance(40))
            name += QLatin1Char(' ') + capitalized(words[600 + std::size_t(random.below(int(words.size()) - 600))]);
        name += QLatin1Char(' ') + QString::fromUtf8(trades[std::size_t(random.below(int(trades.size())))]);
        name += QString::fromUtf8(forms[std::size_t(random.below(int(forms.size())))]);
        organizations.push_back({ i + 1, name, 0 });
    }
    return organizations;
}

void BM_match(benchmark::State &state)
{
    static const std::vector<Organization> organizations = organizationList();
    const OrgMatching::Aliases aliases; // the registry tries aliases itself before matching
    const Organization &middle = organizations[organizations.size() / 2];
    const QString middleKey = OrgMatching::key(middle.name);
    QString name;
    switch (state.range(0)) {
    case 0: // the same name in capitals: decided by the exact key, halfway down the list
        name = middle.name.toUpper();
        state.SetLabel("same key, 500th of 1,000");
        break;
    case 1: // without spaces: every key compared twice
        name = QString(middleKey).remove(QLatin1Char(' '));
        state.SetLabel("same key without spaces");
        break;
    default: // known to no organization: every step runs to its end
        name = QStringLiteral("Zyxwvut Regional Transit Authority, Inc.");
        state.SetLabel("no match");
        break;
    }
    std::optional<std::int64_t> found;
    for (auto _ : state) {
        found = OrgMatching::match(name, organizations, aliases);
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = found ? 1 : 0;
}
BENCHMARK(BM_match)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

// A catalogue of 10,000 filed scans from 400 senders, each first page the sender's letterhead words and
// , and 200 new scans still waiting for the model.
class Catalogue {
public:
    static Catalogue &instance()
    {
        static Catalogue catalogue;
        return catalogue;
    }

    QString folder() const { return folder_.path(); }
    const std::vector<std::int64_t> &newScans() const { return newScans_; }
    double buildSeconds() const { return buildSeconds_; }

private:
    Catalogue()
    {
        if (!folder_.isValid())
            throw Database::Error(QStringLiteral("cannot create a temporary folder: ") + folder_.errorString());
        const auto start = std::chrono::steady_clock::now();
        {
            ScanStore schema(folder_.path());
        }
        Database db(QDir(folder_.path()).filePath(ScanStore::fileName));
        db.execute(QStringLiteral("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY"));
        inImmediateTransaction(db, [&] { insertRows(db); });
        buildSeconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::fprintf(stderr, "Built a catalogue of %d filed and %d new scans in %.1f s\n", filedScanCount, newScanCount,
            buildSeconds_);
    }

    void insertRows(Database &db)
    {
        Random random(77);
        const std::vector<std::string> &words = bench::Vocabulary::shared().words();
        std::vector<QString> letterheads;
        PageWriter boilerplate(3, boilerplateLength);
        Statement organization = db.prepare(
            QStringLiteral("INSERT INTO organizations (id, name, named_by_user, created_at) VALUES (?, ?, 0, 0)"));
        for (int sender = 1; sender <= senders; ++sender) {
            // A sender's letterhead and boilerplate: its own made-up words (name, street, town, account
            // terms) and a fixed text that every one of its first pages repeats.
            QString letterhead;
            for (int i = 0; i < letterheadWords; ++i)
                letterhead
                    += capitalized(words[600 + std::size_t(random.below(int(words.size()) - 600))]) + QLatin1Char(' ');
            letterhead += boilerplate.page() + QLatin1Char('\n');
            letterheads.push_back(letterhead);
            organization.bind({ sender, QStringLiteral("Sender %1").arg(sender) });
            while (organization.step()) { }
        }
        Statement document = db.prepare(
            QStringLiteral("INSERT INTO documents (id, path, file_size, file_modified, ocr_status, extract_status, "
                           "organization_id, added_at) VALUES (?, ?, 1000, 0, 'done', ?, ?, 0)"));
        Statement page
            = db.prepare(QStringLiteral("INSERT INTO pages (document_id, page_index, text) VALUES (?, 0, ?)"));
        PageWriter writer(5, firstPageLength);
        for (int id = 1; id <= filedScanCount + newScanCount; ++id) {
            const bool filed = id <= filedScanCount;
            const int sender = 1 + random.below(senders);
            document.bind({ id, QStringLiteral("scans/%1.pdf").arg(id),
                filed ? QStringLiteral("done") : QStringLiteral("pending"),
                filed ? std::optional<SQLValue>(sender) : std::nullopt });
            while (document.step()) { }
            page.bind({ id, QString(letterheads[std::size_t(sender - 1)] + writer.page()) });
            while (page.step()) { }
            if (!filed)
                newScans_.push_back(id);
        }
    }

    QTemporaryDir folder_;
    std::vector<std::int64_t> newScans_;
    double buildSeconds_ = 0;
};

// A store just opened: the call reads and fingerprints every first page, then looks up.
void BM_similarFiledDocument_cold(benchmark::State &state)
{
    Catalogue &catalogue = Catalogue::instance();
    std::size_t next = 0;
    int found = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto store = std::make_unique<ScanStore>(catalogue.folder());
        const std::int64_t id = catalogue.newScans()[next++ % catalogue.newScans().size()];
        state.ResumeTiming();
        found += store->similarFiledDocument(id) ? 1 : 0;
        state.PauseTiming();
        store.reset();
        state.ResumeTiming();
    }
    state.counters["found"] = benchmark::Counter(found, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_similarFiledDocument_cold)->Unit(benchmark::kMillisecond)->Iterations(5);

// The fingerprints are built: one candidate query and a pass over the candidates' fingerprints.
void BM_similarFiledDocument_warm(benchmark::State &state)
{
    Catalogue &catalogue = Catalogue::instance();
    ScanStore store(catalogue.folder());
    store.similarFiledDocument(catalogue.newScans().front());
    std::size_t next = 0;
    int found = 0;
    for (auto _ : state) {
        const std::int64_t id = catalogue.newScans()[next++ % catalogue.newScans().size()];
        found += store.similarFiledDocument(id) ? 1 : 0;
    }
    state.counters["found"] = benchmark::Counter(found, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_similarFiledDocument_warm)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const Database::Error &error) {
        std::fprintf(stderr, "organizations_bench: %s\n", error.what());
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
