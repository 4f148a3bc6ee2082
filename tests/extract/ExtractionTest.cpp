#include "extract/Extraction.h"

#include "core/Cancellation.h"
#include "support/Printing.h"
#include "support/ScriptedModel.h"

#include <gtest/gtest.h>

using namespace Extractor;

namespace {
// Pages of enough text, showing their date written out.
QStringList pages(int count)
{
    QStringList pages;
    for (int i = 1; i <= count; ++i)
        pages.append(QStringLiteral("ACME WATER, page %1 of the statement. Statement Date: March 12, 2024.").arg(i));
    return pages;
}

ExtractionInput input(QStringList pages)
{
    return ExtractionInput { std::move(pages), { QStringLiteral("Acme Water"), QStringLiteral("City of Springfield") },
        std::nullopt, std::nullopt, QStringLiteral("2024-05-01") };
}

const PageFacts anchor = Script::facts(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"),
    QStringLiteral("2024-03-12"), QStringLiteral("Statement Date"));
const PageFacts nothing = Script::facts(false, QStringLiteral("Other"), {}, {});

// The page numbers (from 1) the model is asked about in a scan of 12 pages, read from the prompts, when
// it gives these replies and then finds nothing on any further page.
std::vector<int> pagesAsked(const std::vector<PageFacts> &replies)
{
    ScriptedModel model;
    for (const PageFacts &reply : replies)
        model.push(reply);
    model.setRule([](const ScriptedModel::Call &, const std::stop_token &) { return nothing; });
    extract(model, input(pages(12)));
    static const QRegularExpression pageLine(QStringLiteral("This is page (\\d+) of"));
    std::vector<int> asked;
    for (const ScriptedModel::Call &call : model.calls())
        asked.push_back(pageLine.match(call.request.prompt).captured(1).toInt());
    return asked;
}
} // namespace

TEST(Extract, stopRule_readsUntilAFirstPageIsConfirmed)
{
    // Pages 1 and 2 agree, in another spelling.
    EXPECT_EQ(pagesAsked({ anchor, Script::facts(false, {}, QStringLiteral("ACME WATER INC."), {}) }),
        (std::vector<int> { 1, 2 }));
    // A second sender, pages without one, a first page whose date isn't written on it: the first 6 pages
    // and the last 2 are read.
    const PageFacts city = Script::facts(false, QStringLiteral("Bill"), QStringLiteral("City of Springfield"), {});
    const PageFacts cityFirst = Script::facts(
        true, QStringLiteral("Bill"), QStringLiteral("City of Springfield"), QStringLiteral("2023-01-01"));
    EXPECT_EQ(pagesAsked({ anchor, city, cityFirst }), (std::vector<int> { 1, 2, 3, 4, 5, 6, 11, 12 }));
}

TEST(Extract, theTranscriptRecordsTheHintTheInstructionsAndFailedRequests)
{
    ScriptedModel model;
    model.push(Script::refusal(QStringLiteral("No.")));
    model.push(QStringLiteral("I'd rather not say."));
    model.push(Script::plain(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"), {}));
    ExtractionInput scan = input(pages(2));
    scan.similar = Similar { QStringLiteral("2023/water.pdf"), QStringLiteral("Acme Water") };
    // Blank custom instructions are the built-in ones.
    scan.customInstructions = QStringLiteral(" \n ");

    const Output output = extract(model, scan);

    const Trace &trace = output.trace;
    EXPECT_FALSE(trace.customInstructions);
    EXPECT_EQ(model.calls().at(0).request.instructions, instructions(std::nullopt, scan.organizations));
    EXPECT_TRUE(trace.attempts.at(2).prompt.contains(QStringLiteral("already filed under \u201CAcme Water\u201D")));
    EXPECT_TRUE(trace.summary().contains(QStringLiteral("2 of 3 requests failed (1 refused)")));
}

TEST(Extract, aBlankScanAsksNothingAndAStopBetweenPagesAbandonsTheScan)
{
    ScriptedModel blank;
    const Output output = extract(blank, input({ QString(), QStringLiteral("Page 2 of 2") }));
    EXPECT_TRUE(blank.calls().empty());
    EXPECT_FALSE(output.organization || output.kind || output.date);

    ScriptedModel model;
    model.push(nothing);
    std::stop_source stop;
    const auto stopWhenDone = [&](const Trace::Attempt &attempt) {
        if (attempt.outcome != u"Running")
            stop.request_stop();
    };
    EXPECT_THROW(extract(model, input(pages(3)), stop.get_token(), stopWhenDone), Cancelled);
    EXPECT_EQ(model.calls().size(), 1u);
}
