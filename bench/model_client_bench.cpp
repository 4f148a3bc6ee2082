// The model-server client's own cost per request, against a stub server on 127.0.0.1 that answers at
// once (so no model time is in it), and the size of a typical page's request. Nothing here checks
// behaviour.
#include "extract/Instructions.h"
#include "extract/PageFacts.h"
#include "extract/model/ChatMessages.h"
#include "extract/model/ModelServerClient.h"
#include "support/StubModelServer.h"

#include <QCoreApplication>
#include <QStringList>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

#include "SyntheticText.h"

namespace {
const QString modelName = QStringLiteral("qwen2.5:3b");
const QString facts = QStringLiteral(
    R"({"firstPage":true,"kind":"Utility bill","organization":"Acme Water","dateLabel":"Bill Date","date":"2024-03-12"})");

QStringList organizations(int count)
{
    bench::Random random(7);
    QStringList names;
    const auto &words = bench::Vocabulary::shared().words();
    const char *trades[] = { " Energy", " Bank", " Credit Union", " Insurance", " Health", " Water" };
    while (names.size() < count) {
        QString name = QString::fromStdString(words[std::size_t(200 + random.below(int(words.size()) - 200))]);
        if (name.isEmpty())
            continue;
        name[0] = name[0].toUpper();
        name += QLatin1String(trades[random.below(6)]);
        if (!names.contains(name))
            names.append(name);
    }
    return names;
}

// A second page of three with a similar filed scan, as the extraction loop asks it.
Extractor::ModelRequest typicalPage(int knownOrganizations, int cap, std::uint64_t seed = 11)
{
    const QString text = bench::PageWriter(seed, 1800).page();
    return { Extractor::instructions(std::nullopt, organizations(knownOrganizations)),
        Extractor::pagePrompt(QStringLiteral("2025-01-15"),
            Extractor::Similar { QStringLiteral("2024/water-march.pdf"), QStringLiteral("Acme Water") }, 1, 3, text),
        cap };
}

struct Stub {
    StubModelServer server;
    Extractor::ModelServerClient client;
    explicit Stub(bool ollama)
        : client(options())
    {
        if (ollama) {
            server.serveOllama({ modelName });
            server.reply(QStringLiteral("POST"), QStringLiteral("/api/chat"), { StubModelServer::ollamaChat(facts) });
        } else {
            server.serveLlamaServer({ modelName }, 8192);
            server.reply(
                QStringLiteral("POST"), QStringLiteral("/v1/chat/completions"), { StubModelServer::openAIChat(facts) });
        }
    }
    Extractor::ModelServerClient::Options options() const
    {
        Extractor::ModelServerClient::Options result;
        result.server = server.url();
        result.model = modelName;
        result.contextTokens = 8192;
        return result;
    }
};

// More pages than the client keeps token counts for, so that each prompt is counted anew, as in a scan.
std::vector<Extractor::ModelRequest> pages(int cap)
{
    std::vector<Extractor::ModelRequest> result;
    for (std::uint64_t seed = 1; seed <= 16; ++seed)
        result.push_back(typicalPage(100, cap, seed));
    return result;
}

void BM_structured(benchmark::State &state)
{
    Stub stub(state.range(0) == 0);
    const std::vector<Extractor::ModelRequest> requests = pages(300);
    std::size_t next = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(stub.client.respondStructured(requests[next++ % requests.size()], {}));
    state.SetLabel(state.range(0) == 0 ? "Ollama" : "llama-server, with /tokenize");
}
BENCHMARK(BM_structured)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_plainText(benchmark::State &state)
{
    Stub stub(true);
    const std::vector<Extractor::ModelRequest> requests = pages(150);
    std::size_t next = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(stub.client.respondText(requests[next++ % requests.size()], {}));
}
BENCHMARK(BM_plainText)->Unit(benchmark::kMicrosecond);

void BM_availability(benchmark::State &state)
{
    Stub stub(true);
    for (auto _ : state)
        benchmark::DoNotOptimize(stub.client.availability());
}
BENCHMARK(BM_availability)->Unit(benchmark::kMicrosecond);

// Characters and tokens of one request; the stub tokenizer counts 4 UTF-8 bytes a token, a fair
// figure for English text, and the Ollama estimate is 3 bytes a token.
void printSizes()
{
    StubModelServer server;
    server.serveLlamaServer({ modelName }, 8192, 4);
    Extractor::ModelServerClient::Options options;
    options.server = server.url();
    options.model = modelName;
    Extractor::ModelServerClient counter(options);
    std::printf("Request sizes of a typical page (characters / UTF-8 bytes / tokens at 4 bytes / Ollama estimate)\n");
    for (const int known : { 0, 20, 100 }) {
        const Extractor::ModelRequest request = typicalPage(known, 300);
        const QString user = Extractor::ChatMessages::withSchema(request.prompt);
        const auto line = [&](const char *what, const QString &text) {
            const qint64 bytes = text.toUtf8().size();
            std::printf("  %3d organizations, %-22s %6lld chars %6lld bytes %5lld tokens %5lld estimated\n", known,
                what, static_cast<long long>(text.size()), static_cast<long long>(bytes),
                static_cast<long long>(counter.count(text).value_or(-1)), static_cast<long long>((bytes + 2) / 3));
        };
        line("instructions", request.instructions);
        line("prompt", request.prompt);
        line("prompt with schema", user);
        line("whole request", request.instructions + user);
    }
    std::printf("  schema text: %lld bytes\n", static_cast<long long>(PageFacts::schema().size()));
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    printSizes();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
