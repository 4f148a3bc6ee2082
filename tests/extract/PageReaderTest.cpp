#include "extract/PageReader.h"

#include "core/Cancellation.h"
#include "extract/Failure.h"
#include "extract/ModelErrors.h"
#include "support/Printing.h"
#include "support/ScriptedModel.h"

#include <gtest/gtest.h>

using namespace Extractor;
using Kind = GenerationError::Kind;

namespace {
const QString waterBill = QStringLiteral("ACME WATER\nStatement Date: March 12, 2024\nAmount due $42.17\n"
                                         "Account 1234-5678, service address 1 Main Street");

// Reads pages of one scan in order, the state carried from page to page as the extraction does it.
struct Reading {
    ScriptedModel model;
    ScanState state;
    std::vector<Trace::Attempt> seen;
    std::stop_source stop;

    std::optional<PageAnswer> read(int index, const QString &text)
    {
        const ScanContext scan { model, 3, std::nullopt, std::nullopt, QStringLiteral("2024-05-01"), stop.get_token(),
            [this](const Trace::Attempt &attempt) { seen.push_back(attempt); } };
        return readPage(index, text, scan, state);
    }
    QString outcome(std::size_t attempt) const { return state.trace.attempts.at(attempt).outcome; }
};
} // namespace

TEST(ReadPage, structuredAnswersAreCleanedAndEveryRequestIsSeenRunningThenRecorded)
{
    Reading reading;
    reading.model.push(Script::facts(true, QStringLiteral("Utility bill"), QStringLiteral("  Acme Water, Inc. "),
        QStringLiteral("2024-03-12"), QStringLiteral(" Statement Date ")));
    reading.model.push(Script::facts(false, QStringLiteral("Invoice"), QStringLiteral("NONE"),
        QStringLiteral("2024-02-30"), QStringLiteral("none")));
    reading.model.push(Script::facts(false, QStringLiteral("Invoice"), {}, QStringLiteral("2024-03-13"), {}));

    EXPECT_EQ(reading.read(0, waterBill),
        (PageAnswer { 0, QStringLiteral("Acme Water"), QStringLiteral("Utility bill"), QStringLiteral("2024-03-12"),
            QStringLiteral("Statement Date"), true, true }));
    EXPECT_EQ(reading.read(1, waterBill), (PageAnswer { 1, {}, QStringLiteral("Invoice"), {}, {}, false, false }));
    // A date the model gives that the page doesn't show.
    EXPECT_EQ(reading.read(2, waterBill),
        (PageAnswer { 2, {}, QStringLiteral("Invoice"), QStringLiteral("2024-03-13"), {}, false, false }));

    ASSERT_EQ(reading.state.trace.attempts.size(), 3u);
    EXPECT_EQ(reading.state.trace.attempts[0].prompt, reading.model.calls().at(0).request.prompt);
    ASSERT_EQ(reading.seen.size(), 6u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(reading.seen[2 * i].id, reading.state.trace.attempts[i].id);
        EXPECT_EQ(reading.seen[2 * i].outcome, QStringLiteral("Running"));
        EXPECT_EQ(reading.seen[2 * i + 1], reading.state.trace.attempts[i]);
    }
}

TEST(ReadPage, aRefusedOrBlockedStructuredRequestSendsThisAndLaterPagesToPlainText)
{
    for (const Kind kind : { Kind::refusal, Kind::guardrailViolation }) {
        SCOPED_TRACE(int(kind));
        Reading reading;
        reading.model.push(kind == Kind::refusal ? Script::refusal(QStringLiteral("I can\u2019t help with that."))
                                                 : Script::error(kind, QStringLiteral("Unsafe content.")));
        reading.model.push(Script::plain(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"), {}));
        reading.model.push(Script::plain(false, {}, QStringLiteral("Acme Water"), {}));

        EXPECT_TRUE(reading.read(0, waterBill));
        EXPECT_TRUE(reading.read(1, waterBill));
        const std::vector<ScriptedModel::Call> calls = reading.model.calls();
        ASSERT_EQ(calls.size(), 3u);
        EXPECT_TRUE(calls[0].structured);
        EXPECT_FALSE(calls[1].structured || calls[2].structured);
        EXPECT_EQ(reading.state.trace.attempts[0].refusalExplanation,
            kind == Kind::refusal ? std::optional(QStringLiteral("I can\u2019t help with that.")) : std::nullopt);
    }
}

TEST(ReadPage, contextOverflowWith100Organizations_halvesTextAndListThenAsksPlainText)
{
    Reading reading;
    for (int i = 1; i <= 100; ++i)
        reading.state.organizations.append(QStringLiteral("Organization %1").arg(i));
    const QString longPage = QString(5000, u'x');
    for (int i = 0; i < 4; ++i)
        reading.model.push(Script::error(Kind::exceededContextWindowSize));
    reading.model.push(Script::plain(true, QStringLiteral("Bill"), QStringLiteral("Acme"), {}));
    reading.model.push(Script::facts(false, QStringLiteral("Bill"), QStringLiteral("Acme"), {}));

    EXPECT_TRUE(reading.read(0, longPage));
    EXPECT_TRUE(reading.read(1, longPage));

    const std::vector<ScriptedModel::Call> calls = reading.model.calls();
    ASSERT_EQ(calls.size(), 6u);
    const struct {
        bool structured;
        qsizetype text;
        qsizetype names;
    } expected[] = { { true, 3500, 100 }, { true, 1750, 50 }, { true, 875, 25 }, { true, 437, 25 }, { false, 437, 25 },
        { true, 3500, 25 } };
    const QString heading = QStringLiteral("\nOCR text of this page:\n");
    for (std::size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        const ModelRequest &request = calls[i].request;
        EXPECT_EQ(calls[i].structured, expected[i].structured);
        EXPECT_EQ(request.prompt.size() - request.prompt.indexOf(heading) - heading.size(), expected[i].text);
        EXPECT_EQ(request.instructions.count(QStringLiteral("\n- Organization ")), expected[i].names);
    }
    // The most used names stay.
    EXPECT_EQ(reading.state.organizations.last(), QStringLiteral("Organization 25"));
}

TEST(ReadPage, anUndecodableAnswerGoesToPlainTextWhoseReplyIsParsedOrRecordedAsUnreadable)
{
    const QString invalidUtf8 = QString::fromUtf8("Organization: \xff\xfe\xc3 Acme\x01\x02\nType: \xe2\x82");
    const std::pair<QString, bool> replies[] = { { QStringLiteral("yes\nAcme Water\n2024-03-12"), true },
        { QStringLiteral("Acme Water"), false }, { QString(200000, u'\u0301'), false }, { invalidUtf8, true } };
    for (const auto &[reply, readable] : replies) {
        SCOPED_TRACE(reply.left(60).toStdString());
        Reading reading;
        reading.model.push(Script::error(Kind::decodingFailure, QStringLiteral("not JSON")));
        reading.model.push(reply);
        EXPECT_EQ(reading.read(0, waterBill).has_value(), readable);
        // Structured requests stay on for the next page.
        EXPECT_TRUE(reading.state.structured);
        ASSERT_EQ(reading.state.trace.attempts.size(), 2u);
        EXPECT_EQ(reading.state.trace.attempts[1].response, reply);
        EXPECT_EQ(reading.outcome(1), readable ? QStringLiteral("OK") : QStringLiteral("Not in the asked-for form"));
    }
}

TEST(ReadPage, aBusyModelAbandonsThePageToBeTriedLater)
{
    for (const Kind kind : { Kind::concurrentRequests, Kind::rateLimited, Kind::assetsUnavailable }) {
        for (const bool onPlainText : { false, true }) {
            SCOPED_TRACE(int(kind) * 10 + onPlainText);
            Reading reading;
            if (onPlainText)
                reading.model.push(Script::refusal(QStringLiteral("No.")));
            reading.model.push(Script::error(kind, QStringLiteral("The server answered 503.")));
            try {
                reading.read(0, waterBill);
                ADD_FAILURE() << "no Failure thrown";
            } catch (const Failure &failure) {
                EXPECT_EQ(failure.kind, Failure::Kind::retryLater);
                EXPECT_EQ(failure.message(), QStringLiteral("The server answered 503."));
            }
            EXPECT_EQ(reading.state.trace.attempts.size(), onPlainText ? 2u : 1u);
        }
    }
}

TEST(ReadPage, otherErrorsGiveNoAnswerAndAStopLeavesTheRequestUnderWayUnrecorded)
{
    {
        Reading reading;
        reading.model.push(Script::error(Kind::unsupportedGuide));
        reading.model.push(Script::error(Kind::other, QStringLiteral("HTTP 500")));
        EXPECT_FALSE(reading.read(0, waterBill));
        EXPECT_EQ(reading.outcome(1), QStringLiteral("Error. HTTP 500"));
        EXPECT_TRUE(reading.state.structured);
    }
    {
        Reading reading;
        reading.model.push(Script::error(Kind::decodingFailure));
        reading.model.setRule([&](const ScriptedModel::Call &, const std::stop_token &) -> ScriptedModel::Reply {
            reading.stop.request_stop();
            throw Cancelled();
        });
        EXPECT_THROW(reading.read(0, waterBill), Cancelled);
        EXPECT_EQ(reading.state.trace.attempts.size(), 1u);
        EXPECT_EQ(reading.seen.back().outcome, QStringLiteral("Running"));
    }
    {
        Reading reading;
        reading.stop.request_stop();
        EXPECT_THROW(reading.read(0, waterBill), Cancelled);
        EXPECT_TRUE(reading.model.calls().empty());
    }
}

// What a server says is shown on one line of bounded length, whatever it sent.
TEST(ModelErrors, theServersWordsAreShownOnOneBoundedLine)
{
    EXPECT_EQ(describe(GenerationError(Kind::concurrentRequests, QStringLiteral(" \n "))), QStringLiteral("Busy"));
    EXPECT_EQ(describe(GenerationError(Kind::other, QStringLiteral("line one\r\n\tline\u0000two\u001b[0m"))),
        QStringLiteral("Error. line one line two [0m"));
    EXPECT_EQ(
        describe(GenerationError(Kind::other, QString(1'000'000, u'a'))), u"Error. " + QString(500, u'a') + u'\u2026');
    EXPECT_LT(describe(GenerationError(Kind::other, QString(1'000'000, u'\u0301'))).size(), 5000);
    EXPECT_EQ(explanation(GenerationError(Kind::refusal, QStringLiteral("refused\nwithout reason"))),
        QStringLiteral("(no explanation: refused without reason)"));
}
