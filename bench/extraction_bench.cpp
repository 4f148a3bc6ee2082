// The extraction of scans with a scripted model that answers at once: how many requests the stop rule
// leaves per scan over a generated folder of multi-page scans, and the time of the extractor's own
// work (prompts, transcript, answer cleaning, consensus), which is all there is when the model costs
// nothing. Nothing here checks behaviour.
#include "extract/Extraction.h"
#include "extract/Failure.h"

#include <QSet>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

#include "SyntheticText.h"

using namespace Extractor;

namespace {
// What the script knows of a page: markers at its top say what a good model would answer.
QString markedPage(bench::PageWriter &writer, const QString &sender, const QString &kind, bool firstPage,
    std::optional<QString> writtenDate, std::optional<QString> answeredDate)
{
    QString top;
    if (!sender.isEmpty())
        top += u"[sender " + sender + u"]\n";
    if (firstPage)
        top += u"[first page]\n";
    top += u"[kind " + kind + u"]\n";
    if (answeredDate)
        top += u"[date " + QString(*answeredDate).replace(u'-', u'_') + u"]\n";
    if (writtenDate)
        top += u"Statement Date: " + *writtenDate + u'\n';
    return top + writer.page();
}

struct Marks {
    QString sender;
    QString kind;
    QString date;
    bool firstPage = false;
};

// The text of marker `[name value]`, found without regular expressions so that the script costs little
// next to the extractor.
QString marker(const QString &prompt, QStringView name)
{
    const qsizetype start = prompt.indexOf(name);
    if (start < 0)
        return {};
    const qsizetype end = prompt.indexOf(u']', start);
    return prompt.mid(start + name.size(), end - start - name.size());
}

Marks readMarks(const QString &prompt)
{
    // The answered date is marked with "_" so that the marker is no evidence of it.
    return Marks { marker(prompt, u"[sender "), marker(prompt, u"[kind "),
        marker(prompt, u"[date ").replace(u'_', u'-'), prompt.contains(u"[first page]") };
}

// Answers every request from the page's markers at once. The page's number says whether the model
// refuses it in structured form (one page in 25), so the plain path is taken as in real use.
class ScriptedModel final : public LanguageModel {
public:
    int requests = 0;

    Availability availability(const std::stop_token &) override { return { true, std::nullopt }; }
    qint64 contextSize() override { return 4096; }
    QString systemDescription() override { return QStringLiteral("scripted model"); }
    std::optional<qint64> count(const QString &) override { return std::nullopt; }

    PageFacts respondStructured(const ModelRequest &request, const std::stop_token &) override
    {
        ++requests;
        if (qHash(request.prompt) % 25 == 0)
            throw GenerationError(GenerationError::Kind::refusal, QStringLiteral("Refused."), QStringLiteral("No."));
        const Marks marks = readMarks(request.prompt);
        return PageFacts { marks.firstPage, marks.kind, marks.sender, QStringLiteral("Statement Date"), marks.date };
    }
    QString respondText(const ModelRequest &request, const std::stop_token &) override
    {
        ++requests;
        const Marks marks = readMarks(request.prompt);
        const auto orNone = [](const QString &value) { return value.isEmpty() ? QStringLiteral("none") : value; };
        return u"First page: " + QString::fromLatin1(marks.firstPage ? "yes" : "no") + u"\nType: " + orNone(marks.kind)
            + u"\nOrganization: " + orNone(marks.sender) + u"\nDate label: Statement Date\nDate: " + orNone(marks.date);
    }
};

// The kinds of scan in the generated folder, by how their pages read.
enum class Shape { letter, statement, withBlankBacks, longDocument, firstPageLater, dateNotWritten, blank };

struct Scan {
    Shape shape;
    QStringList pages;
};

const char *shapeName(Shape shape)
{
    switch (shape) {
    case Shape::letter:
        return "letter, 1-2 pages";
    case Shape::statement:
        return "statement, 2-6 pages, sender on each";
    case Shape::withBlankBacks:
        return "bill, 2-5 sheets, blank backs";
    case Shape::longDocument:
        return "contract, 10-20 pages, sender on page 1";
    case Shape::firstPageLater:
        return "first page scanned third, 3-6 pages";
    case Shape::dateNotWritten:
        return "date not written, 2-4 pages";
    case Shape::blank:
        return "blank, 1-3 pages";
    }
    return "";
}

std::vector<Scan> generateFolder(int count)
{
    bench::Random random(20261123);
    bench::PageWriter writer(7, 1500);
    const QString senders[] = { QStringLiteral("Acme Water"), QStringLiteral("City of Springfield"),
        QStringLiteral("First Federal Bank"), QStringLiteral("Bolt Mobile") };
    const QString kinds[] = { QStringLiteral("Utility bill"), QStringLiteral("Notice"),
        QStringLiteral("Bank statement"), QStringLiteral("Phone or internet bill") };
    const QString written = QStringLiteral("March 12, 2024");
    const QString date = QStringLiteral("2024-03-12");
    std::vector<Scan> folder;
    for (int i = 0; i < count; ++i) {
        const int which = random.below(4);
        const QString &sender = senders[which];
        const QString &kind = kinds[which];
        const int roll = random.below(100);
        Scan scan;
        if (roll < 30) {
            scan.shape = Shape::letter;
            const int pages = 1 + random.below(2);
            scan.pages.append(markedPage(writer, sender, kind, true, written, date));
            if (pages == 2)
                scan.pages.append(markedPage(writer, sender, kind, false, std::nullopt, std::nullopt));
        } else if (roll < 55) {
            scan.shape = Shape::statement;
            const int pages = 2 + random.below(5);
            scan.pages.append(markedPage(writer, sender, kind, true, written, date));
            for (int p = 1; p < pages; ++p)
                scan.pages.append(markedPage(writer, sender, kind, false, std::nullopt, std::nullopt));
        } else if (roll < 70) {
            scan.shape = Shape::withBlankBacks;
            const int sheets = 2 + random.below(4);
            for (int s = 0; s < sheets; ++s) {
                scan.pages.append(markedPage(writer, s == 0 || s == sheets - 1 ? sender : QString(), kind, s == 0,
                    s == 0 ? std::optional(written) : std::nullopt, s == 0 ? std::optional(date) : std::nullopt));
                scan.pages.append(QStringLiteral("  \n "));
            }
        } else if (roll < 80) {
            scan.shape = Shape::longDocument;
            const int pages = 10 + random.below(11);
            scan.pages.append(markedPage(writer, sender, QStringLiteral("Contract or agreement"), true, written, date));
            for (int p = 1; p < pages; ++p)
                scan.pages.append(markedPage(
                    writer, QString(), QStringLiteral("Contract or agreement"), false, std::nullopt, std::nullopt));
        } else if (roll < 90) {
            scan.shape = Shape::firstPageLater;
            const int pages = 3 + random.below(4);
            for (int p = 0; p < pages; ++p)
                scan.pages.append(markedPage(writer, p == 1 ? QString() : sender, kind, p == 2,
                    p == 2 ? std::optional(written) : std::nullopt, p == 2 ? std::optional(date) : std::nullopt));
        } else if (roll < 95) {
            scan.shape = Shape::dateNotWritten;
            const int pages = 2 + random.below(3);
            for (int p = 0; p < pages; ++p)
                scan.pages.append(markedPage(
                    writer, sender, kind, p == 0, std::nullopt, p == 0 ? std::optional(date) : std::nullopt));
        } else {
            scan.shape = Shape::blank;
            const int pages = 1 + random.below(3);
            for (int p = 0; p < pages; ++p)
                scan.pages.append(QStringLiteral("- 2 -"));
        }
        folder.push_back(std::move(scan));
    }
    return folder;
}

ExtractionInput inputFor(const Scan &scan)
{
    return ExtractionInput { scan.pages, { QStringLiteral("Acme Water"), QStringLiteral("First Federal Bank") },
        std::nullopt, std::nullopt, QStringLiteral("2024-05-01") };
}

constexpr int folderSize = 1000;

// Requests per scan over the folder, by shape.
void reportRequests()
{
    const std::vector<Scan> folder = generateFolder(folderSize);
    struct Totals {
        int scans = 0;
        int pages = 0;
        int readable = 0;
        int requests = 0;
        int pagesRead = 0;
        int failed = 0;
    };
    std::map<Shape, Totals> byShape;
    Totals all;
    std::map<int, int> histogram;
    for (const Scan &scan : folder) {
        ScriptedModel model;
        Trace trace;
        try {
            trace = extract(model, inputFor(scan)).trace;
        } catch (const Failure &failure) {
            trace = failure.trace.value_or(Trace());
            ++byShape[scan.shape].failed;
            ++all.failed;
        }
        QSet<QString> read; // "Page N" of every request's label
        for (const Trace::Attempt &attempt : trace.attempts)
            read.insert(attempt.label.section(u',', 0, 0));
        const int pagesRead = int(read.size());
        for (Totals *totals : { &byShape[scan.shape], &all }) {
            ++totals->scans;
            totals->pages += int(scan.pages.size());
            totals->readable += int(pagesToRead(scan.pages).size());
            totals->requests += model.requests;
            totals->pagesRead += pagesRead;
        }
        ++histogram[model.requests];
    }
    std::printf("Requests per scan, %d generated scans, scripted model (1 page in 25 refused in structured form)\n\n",
        folderSize);
    std::printf("| Scans | Count | Pages | Pages to read | Pages read | Requests | Requests per scan |\n");
    std::printf("| --- | --- | --- | --- | --- | --- | --- |\n");
    const auto row = [](const char *name, const Totals &totals) {
        std::printf("| %s | %d | %d | %d | %d | %d | %.2f |\n", name, totals.scans, totals.pages, totals.readable,
            totals.pagesRead, totals.requests, totals.scans ? double(totals.requests) / totals.scans : 0.0);
    };
    for (const auto &[shape, totals] : byShape)
        row(shapeName(shape), totals);
    row("all", all);
    std::printf("\nRequests: scans");
    for (const auto &[requests, scans] : histogram)
        std::printf("  %d: %d", requests, scans);
    std::printf("\nFailed (no answer): %d\n\n", all.failed);
}

// Characters sent for a typical page of about 1,500 characters, without and with 100 organization names.
void reportPromptSizes()
{
    bench::PageWriter writer(11, 1500);
    const QString page = writer.page();
    const QString prompt
        = pagePrompt(QStringLiteral("2024-05-01"), Similar { {}, QStringLiteral("Acme Water") }, 0, 2, page);
    QStringList organizations;
    for (int i = 0; i < 100; ++i)
        organizations.append(QStringLiteral("Organization %1").arg(i));
    std::printf("Characters sent for a page of %lld characters (prompt %lld, with the similar-scan hint)\n\n",
        qlonglong(page.size()), qlonglong(prompt.size()));
    std::printf("| Request | Instructions | Instructions + prompt |\n| --- | --- | --- |\n");
    for (const qsizetype names : { qsizetype(0), qsizetype(100) }) {
        const QString structured = instructions(std::nullopt, organizations.first(names));
        const QString plain = structured + u"\n\n" + plainTextFormat();
        std::printf("| structured, %lld names | %lld | %lld |\n", qlonglong(names), qlonglong(structured.size()),
            qlonglong(structured.size() + prompt.size()));
        std::printf("| plain text, %lld names | %lld | %lld |\n", qlonglong(names), qlonglong(plain.size()),
            qlonglong(plain.size() + prompt.size()));
    }
    std::printf("\nThe PageFacts schema adds %lld characters to a structured request.\n\n",
        qlonglong(QString::fromUtf8(PageFacts::schema()).size()));
}

// The extractor's own work per request over the whole folder.
void BM_extract_folder(benchmark::State &state)
{
    const std::vector<Scan> folder = generateFolder(200);
    std::vector<ExtractionInput> inputs;
    for (const Scan &scan : folder)
        inputs.push_back(inputFor(scan));
    std::int64_t requests = 0;
    std::int64_t scans = 0;
    for (auto _ : state) {
        for (const ExtractionInput &input : inputs) {
            ScriptedModel model;
            try {
                benchmark::DoNotOptimize(extract(model, input));
            } catch (const Failure &) {
            }
            requests += model.requests;
            ++scans;
        }
    }
    state.counters["per_request"]
        = benchmark::Counter(double(requests), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["per_scan"]
        = benchmark::Counter(double(scans), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_extract_folder)->Unit(benchmark::kMillisecond);

// One page of about 1,500 characters read in structured form (range 0) or refused and read as plain
// text (range 1), with 100 organization names in the instructions.
void BM_readPage(benchmark::State &state)
{
    bench::PageWriter writer(11, 1500);
    QString page = markedPage(writer, QStringLiteral("Acme Water"), QStringLiteral("Utility bill"), true,
        QStringLiteral("March 12, 2024"), QStringLiteral("2024-03-12"));
    // The page whose prompt the script refuses, for the plain path.
    while (
        (qHash(pagePrompt(QStringLiteral("2024-05-01"), std::nullopt, 0, 2, page)) % 25 == 0) != (state.range(0) == 1))
        page += u' ';
    QStringList organizations;
    for (int i = 0; i < 100; ++i)
        organizations.append(QStringLiteral("Organization %1").arg(i));
    ScriptedModel model;
    for (auto _ : state) {
        ScanState scan { organizations, true, {} };
        const ScanContext context { model, 2, std::nullopt, std::nullopt, QStringLiteral("2024-05-01"), {}, {} };
        benchmark::DoNotOptimize(readPage(0, page, context, scan));
    }
}
BENCHMARK(BM_readPage)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
} // namespace

int main(int argc, char **argv)
{
    reportRequests();
    reportPromptSizes();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
