// Speed of combining the page answers of one scan. Eight pages is the most ever read for a scan.
// Nothing here checks behaviour.
#include "extract/Consensus.h"

#include <benchmark/benchmark.h>

namespace {
PageAnswer answer(std::int64_t page, const QString &organization, const QString &kind, const QString &date,
    bool firstPage, bool dateInText)
{
    return PageAnswer { page, organization, kind, date, QStringLiteral("Statement Date"), firstPage, dateInText };
}

// Every page names the same sender, in the spellings a model gives.
std::vector<PageAnswer> agreeing()
{
    const QString names[] = { QStringLiteral("Acme Bank"), QStringLiteral("ACME BANK, N.A."),
        QStringLiteral("The Acme Bank"), QStringLiteral("Acme") };
    std::vector<PageAnswer> pages;
    for (int i = 0; i < 8; ++i)
        pages.push_back(answer(i, names[i % 4], QStringLiteral("Bank statement"),
            i % 3 == 0 ? QStringLiteral("2024-09-05") : QStringLiteral("2024-08-01"), i == 0, i % 2 == 0));
    return pages;
}

// A bank statement with an insurance offer and a card issuer's insert: three groups, pages out of the
// pool, several dates.
std::vector<PageAnswer> mixed()
{
    return {
        answer(
            0, QStringLiteral("Acme Bank"), QStringLiteral("Bank statement"), QStringLiteral("2024-09-05"), true, true),
        answer(1, QStringLiteral("Acme Bank"), QStringLiteral("Bank statement"), QStringLiteral("2024-08-01"), false,
            true),
        answer(2, QStringLiteral("Acme Insurance"), QStringLiteral("Insurance policy or notice"),
            QStringLiteral("2024-07-01"), true, true),
        answer(3, QStringLiteral("Acme Insurance Group"), QStringLiteral("Marketing"), QStringLiteral("2024-07-02"),
            false, false),
        answer(4, QStringLiteral("Bolt Card Services"), QStringLiteral("Credit card statement"),
            QStringLiteral("2024-06-30"), false, true),
        answer(5, QStringLiteral("N/A"), QStringLiteral("Bank statement"), QStringLiteral("2024-09-05"), false, true),
        answer(6, QStringLiteral("Acme Bank"), QStringLiteral("Other"), QStringLiteral("2024-09-06"), false, false),
        answer(7, QStringLiteral("ACME BANK"), QStringLiteral("Bank statement"), QStringLiteral("2024-09-05"), false,
            true),
    };
}

void BM_decide_agreeing(benchmark::State &state)
{
    const std::vector<PageAnswer> pages = agreeing();
    for (auto _ : state)
        benchmark::DoNotOptimize(Consensus::decide(pages));
}
BENCHMARK(BM_decide_agreeing);

void BM_decide_mixed(benchmark::State &state)
{
    const std::vector<PageAnswer> pages = mixed();
    for (auto _ : state)
        benchmark::DoNotOptimize(Consensus::decide(pages));
}
BENCHMARK(BM_decide_mixed);
} // namespace

BENCHMARK_MAIN();
