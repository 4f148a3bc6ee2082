#include "extract/Extraction.h"

#include "extract/Failure.h"
#include "support/ScriptedModel.h"

#include <gtest/gtest.h>

#include "support/Printing.h"
#include "core/Cancellation.h"

using namespace Extractor;
using Kind = GenerationError::Kind;

namespace {
// A page of enough text, showing its date written out.
QString page(int number)
{
    return QStringLiteral("ACME WATER, page %1 of the statement. Statement Date: March 12, 2024. Amount due $42.17")
        .arg(number);
}

QStringList pages(int count)
{
    QStringList pages;
    for (int i = 1; i <= count; ++i)
        pages.append(page(i));
    return pages;
}

ExtractionInput input(QStringList pages)
{
    return ExtractionInput { std::move(pages), { QStringLiteral("Acme Water"), QStringLiteral("City of Springfield") },
        std::nullopt, std::nullopt, QStringLiteral("2024-05-01") };
}

// The page numbers (from 1) the model was asked about, read from the prompts.
std::vector<int> pagesAsked(const ScriptedModel &model)
{
    static const QRegularExpression pageLine(QStringLiteral("This is page (\\d+) of"));
    std::vector<int> asked;
    for (const ScriptedModel::Call &call : model.calls())
        asked.push_back(pageLine.match(call.request.prompt).captured(1).toInt());
    return asked;
}

const PageFacts anchor = Script::facts(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"),
    QStringLiteral("2024-03-12"), QStringLiteral("Statement Date"));
const PageFacts nothing = Script::facts(false, QStringLiteral("Other"), {}, {});
} // namespace

TEST(Extract, stopRule_readsUntilAFirstPageIsConfirmed)
{
    {
        // 12 readable pages: pages 1 and 2 agree, in another spelling.
        ScriptedModel model;
        model.push(anchor);
        model.push(Script::facts(false, QStringLiteral("Utility bill"), QStringLiteral("ACME WATER INC."), {}));
        const Output output = extract(model, input(pages(12)));
        EXPECT_EQ(pagesAsked(model), std::vector<int>({ 1, 2 }));
        EXPECT_EQ(output.organization, QStringLiteral("Acme Water"));
        EXPECT_EQ(output.kind, QStringLiteral("Utility bill"));
        EXPECT_EQ(output.date, QStringLiteral("2024-03-12"));
        ASSERT_TRUE(output.trace.consensus);
        EXPECT_TRUE(output.trace.consensus->startsWith(QStringLiteral("Stopped after page 2: pages agree. ")))
            << output.trace.consensus->toStdString();
    }
    {
        // The anchor on the only readable page: one request, no stop note.
        ScriptedModel model;
        model.push(anchor);
        QStringList scan = { QStringLiteral("blank"), page(2), QString(300, u' ') };
        const Output output = extract(model, input(scan));
        EXPECT_EQ(pagesAsked(model), std::vector<int>({ 2 }));
        ASSERT_TRUE(output.trace.consensus);
        EXPECT_FALSE(output.trace.consensus->contains(QStringLiteral("Stopped")));
    }
    {
        // Agreement found on the last page to read: no stop note either.
        ScriptedModel model;
        model.push(nothing);
        model.push(anchor);
        model.push(Script::facts(false, {}, QStringLiteral("Acme Water"), {}));
        const Output output = extract(model, input(pages(3)));
        EXPECT_EQ(pagesAsked(model), std::vector<int>({ 1, 2, 3 }));
        EXPECT_FALSE(output.trace.consensus->contains(QStringLiteral("Stopped")));
    }
    {
        // Never confirmed: a second sender, pages without a sender, a first page whose date isn't
        // written on it. Of 12 readable pages, the first 6 and the last 2 are read.
        ScriptedModel model;
        model.push(anchor);
        model.push(Script::facts(false, QStringLiteral("Bill"), QStringLiteral("City of Springfield"), {}));
        model.push(Script::facts(
            true, QStringLiteral("Bill"), QStringLiteral("City of Springfield"), QStringLiteral("2023-01-01")));
        model.setRule([](const ScriptedModel::Call &, const std::stop_token &) { return nothing; });
        extract(model, input(pages(12)));
        EXPECT_EQ(pagesAsked(model), std::vector<int>({ 1, 2, 3, 4, 5, 6, 11, 12 }));
    }
}

TEST(Extract, transcript_recordsTheScanAndEveryRequest)
{
    ScriptedModel model;
    model.push(Script::refusal(QStringLiteral("No.")));
    model.push(QStringLiteral("I'd rather not say."));
    model.push(Script::plain(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"), {}));
    ExtractionInput scan = input(pages(2));
    scan.similar = Similar { QStringLiteral("2023/water.pdf"), QStringLiteral("Acme Water") };
    scan.customInstructions = QStringLiteral("  Be brief.\n");
    std::vector<Trace::Attempt> seen;
    const QDateTime before = QDateTime::currentDateTimeUtc();

    const Output output = extract(model, scan, {}, [&](const Trace::Attempt &attempt) { seen.push_back(attempt); });

    const Trace &trace = output.trace;
    EXPECT_GE(trace.date, before.addSecs(-1));
    EXPECT_EQ(trace.system, model.systemDescription());
    EXPECT_TRUE(trace.customInstructions);
    EXPECT_EQ(trace.hint, QStringLiteral("looks like 2023/water.pdf, filed under \u201CAcme Water\u201D"));
    ASSERT_EQ(trace.attempts.size(), 3u);
    EXPECT_EQ(trace.attempts[0].outcome, QStringLiteral("Refused. The model refused."));
    EXPECT_EQ(trace.attempts[1].outcome, QStringLiteral("Not in the asked-for form"));
    EXPECT_EQ(trace.attempts[2].outcome, QStringLiteral("OK"));
    EXPECT_TRUE(
        trace.attempts[2].instructions.startsWith(QStringLiteral("Be brief.\n\nOrganizations already on file:")));
    EXPECT_TRUE(trace.attempts[2].prompt.contains(QStringLiteral("already filed under \u201CAcme Water\u201D")));
    ASSERT_EQ(trace.pages.size(), 1u);
    EXPECT_EQ(trace.pages[0].page, 1);
    EXPECT_EQ(seen.size(), 6u);
    EXPECT_EQ(output.organization, QStringLiteral("Acme Water"));
    EXPECT_FALSE(output.date);
    EXPECT_EQ(Trace::decode(trace.encode().value_or(QByteArray())), trace);
    EXPECT_TRUE(trace.summary().contains(QStringLiteral("2 of 3 requests failed (1 refused): Refused")));

    // Blank custom instructions are the built-in ones.
    ScriptedModel plainModel;
    plainModel.push(anchor);
    plainModel.push(anchor);
    scan.customInstructions = QStringLiteral(" \n ");
    EXPECT_FALSE(extract(plainModel, scan).trace.customInstructions);
    EXPECT_EQ(plainModel.calls().at(0).request.instructions, instructions(std::nullopt, scan.organizations));
}

TEST(Extract, scansWithoutAnswers_blankIsFiledEmptyAndSilentIsAFailure)
{
    {
        ScriptedModel model;
        const Output output = extract(model, input({ QString(), QStringLiteral("Page 2 of 2") }));
        EXPECT_TRUE(model.calls().empty());
        EXPECT_FALSE(output.organization || output.kind || output.date);
        EXPECT_EQ(output.trace.consensus, QStringLiteral("No page has enough text to read."));
        EXPECT_TRUE(output.trace.attempts.empty());
    }
    {
        ScriptedModel model;
        for (int i = 0; i < 2; ++i) {
            model.push(Script::error(Kind::decodingFailure));
            model.push(QStringLiteral("Sorry, I can't read this."));
        }
        try {
            extract(model, input(pages(2)));
            ADD_FAILURE() << "no Failure thrown";
        } catch (const Failure &failure) {
            EXPECT_EQ(failure.kind, Failure::Kind::failed);
            EXPECT_EQ(
                failure.message, QStringLiteral("The local model wouldn\u2019t answer for any page of this document."));
            ASSERT_TRUE(failure.trace);
            EXPECT_EQ(failure.trace->attempts.size(), 4u);
            EXPECT_TRUE(failure.trace->pages.empty());
            EXPECT_TRUE(failure.trace->summary().contains(QStringLiteral("4 of 4 requests failed")));
        }
    }
}

TEST(Extract, busyOrStopped_abandonsTheScan)
{
    {
        ScriptedModel model;
        model.push(Script::facts(false, {}, QStringLiteral("Acme Water"), {}));
        model.push(Script::error(Kind::rateLimited, QStringLiteral("429 Too Many Requests")));
        try {
            extract(model, input(pages(3)));
            ADD_FAILURE() << "no Failure thrown";
        } catch (const Failure &failure) {
            EXPECT_EQ(failure.kind, Failure::Kind::retryLater);
            EXPECT_EQ(failure.message, QStringLiteral("429 Too Many Requests"));
        }
        EXPECT_EQ(model.calls().size(), 2u);
    }
    {
        // Stopped between two pages.
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
}
