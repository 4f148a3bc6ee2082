#include "extract/PageReader.h"

#include "core/Cancellation.h"
#include "extract/Failure.h"
#include "extract/ModelErrors.h"
#include "support/ScriptedModel.h"

#include <gtest/gtest.h>

#include "support/Printing.h"

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

    std::optional<PageAnswer> read(int index, const QString &text, qint64 pageCount = 3)
    {
        const ScanContext scan { model, pageCount, std::nullopt, std::nullopt, QStringLiteral("2024-05-01"),
            stop.get_token(), [this](const Trace::Attempt &attempt) { seen.push_back(attempt); } };
        return readPage(index, text, scan, state);
    }
    QStringList labels() const
    {
        QStringList labels;
        for (const Trace::Attempt &attempt : state.trace.attempts)
            labels.append(attempt.label);
        return labels;
    }
};

// The page text of a prompt, after its heading.
QString promptText(const QString &prompt)
{
    const QString heading = QStringLiteral("\nOCR text of this page:\n");
    return prompt.mid(prompt.indexOf(heading) + heading.size());
}

qsizetype organizationLines(const QString &instructions)
{
    return instructions.split(u'\n').filter(QRegularExpression(QStringLiteral("^- Organization \\d+$"))).size();
}
} // namespace

TEST(ReadPage, structuredAnswer_isCleanedAndRecorded)
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

    const std::vector<ScriptedModel::Call> calls = reading.model.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_TRUE(calls[0].structured);

    ASSERT_EQ(reading.state.trace.attempts.size(), 3u);
    const Trace::Attempt &first = reading.state.trace.attempts[0];
    EXPECT_EQ(first.label, QStringLiteral("Page 1, structured"));
    EXPECT_EQ(first.outcome, QStringLiteral("OK"));
    EXPECT_EQ(first.response,
        QStringLiteral("firstPage: true\nkind: Utility bill\norganization:   Acme Water, Inc. \n"
                       "dateLabel:  Statement Date \ndate: 2024-03-12"));
    EXPECT_EQ(first.instructions, calls[0].request.instructions);
    EXPECT_EQ(first.prompt, calls[0].request.prompt);

    // Each request is seen running, then finished, in order.
    ASSERT_EQ(reading.seen.size(), 6u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(reading.seen[2 * i].id, reading.state.trace.attempts[i].id);
        EXPECT_EQ(reading.seen[2 * i].outcome, QStringLiteral("Running"));
        EXPECT_EQ(reading.seen[2 * i + 1], reading.state.trace.attempts[i]);
    }
    EXPECT_NE(reading.state.trace.attempts[0].id, reading.state.trace.attempts[1].id);
}

TEST(ReadPage, refusalOnPage1OfThree_laterPagesGoStraightToPlainText)
{
    for (const Kind kind : { Kind::refusal, Kind::guardrailViolation }) {
        SCOPED_TRACE(int(kind));
        Reading reading;
        reading.model.push(kind == Kind::refusal ? Script::refusal(QStringLiteral("I can\u2019t help with that."))
                                                 : Script::error(kind, QStringLiteral("Unsafe content.")));
        reading.model.push(Script::plain(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"), {}));
        reading.model.push(Script::plain(false, {}, QStringLiteral("Acme Water"), {}));
        reading.model.push(Script::plain(false, {}, {}, {}));

        EXPECT_TRUE(reading.read(0, waterBill));
        EXPECT_TRUE(reading.read(1, waterBill));
        EXPECT_TRUE(reading.read(2, waterBill));

        EXPECT_EQ(reading.labels(),
            QStringList({ QStringLiteral("Page 1, structured"), QStringLiteral("Page 1, plain text"),
                QStringLiteral("Page 2, plain text"), QStringLiteral("Page 3, plain text") }));
        EXPECT_FALSE(reading.state.structured);
        const Trace::Attempt &refused = reading.state.trace.attempts[0];
        EXPECT_FALSE(refused.response);
        if (kind == Kind::refusal) {
            EXPECT_TRUE(refused.outcome.startsWith(QStringLiteral("Refused")));
            EXPECT_EQ(refused.refusalExplanation, QStringLiteral("I can\u2019t help with that."));
        } else {
            EXPECT_EQ(refused.outcome, QStringLiteral("Blocked by safety guardrails. Unsafe content."));
            EXPECT_FALSE(refused.refusalExplanation);
        }
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
    EXPECT_TRUE(reading.state.structured);
    EXPECT_TRUE(reading.read(1, longPage));

    const std::vector<ScriptedModel::Call> calls = reading.model.calls();
    ASSERT_EQ(calls.size(), 6u);
    const struct {
        bool structured;
        qsizetype text;
        qsizetype names;
    } expected[] = { { true, 3500, 100 }, { true, 1750, 50 }, { true, 875, 25 }, { true, 437, 25 }, { false, 437, 25 },
        { true, 3500, 25 } };
    for (std::size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(calls[i].structured, expected[i].structured);
        EXPECT_EQ(promptText(calls[i].request.prompt).size(), expected[i].text);
        EXPECT_EQ(organizationLines(calls[i].request.instructions), expected[i].names);
    }
    // The most used names stay.
    EXPECT_EQ(reading.state.organizations.first(), QStringLiteral("Organization 1"));
    EXPECT_EQ(reading.state.organizations.last(), QStringLiteral("Organization 25"));
    EXPECT_EQ(reading.state.trace.attempts[0].outcome, QStringLiteral("Too long for the context window"));
    EXPECT_EQ(reading.state.trace.attempts.size(), 6u);
}

TEST(ReadPage, plainReplies_parsedOrRecordedAsNotInTheAskedForForm)
{
    struct Case {
        QString reply;
        std::optional<PageAnswer> expected;
    };
    const QString invalidUtf8 = QString::fromUtf8("Organization: \xff\xfe\xc3 Acme\x01\x02\nType: \xe2\x82");
    const Case cases[] = {
        { QStringLiteral("First page: no\nType: Invoice\nOrganization: none\nDate label: none\nDate: none"),
            PageAnswer { 0, {}, QStringLiteral("Invoice"), {}, {}, false, false } },
        { QStringLiteral("yes\nAcme Water\n2024-03-12"),
            PageAnswer { 0, QStringLiteral("Acme Water"), {}, QStringLiteral("2024-03-12"), {}, true, true } },
        { QStringLiteral("Acme Water"), std::nullopt },
        { QString(200000, u'\u0301'), std::nullopt },
        { QString(100000, u'\n') + QStringLiteral("\u0000\u0007"), std::nullopt },
        { invalidUtf8, PageAnswer { 0, {}, {}, {}, {}, false, false } },
    };
    for (const Case &test : cases) {
        SCOPED_TRACE(test.reply.left(60).toStdString());
        Reading reading;
        // An answer that breaks the schema sends the page to plain text but keeps structured requests on.
        reading.model.push(Script::error(Kind::decodingFailure, QStringLiteral("not JSON")));
        reading.model.push(test.reply);

        const std::optional<PageAnswer> answer = reading.read(0, waterBill);

        if (test.expected && test.reply != invalidUtf8)
            EXPECT_EQ(answer, test.expected);
        EXPECT_EQ(answer.has_value(), test.expected.has_value());
        EXPECT_TRUE(reading.state.structured);
        ASSERT_EQ(reading.state.trace.attempts.size(), 2u);
        EXPECT_EQ(reading.state.trace.attempts[0].outcome, QStringLiteral("Couldn\u2019t decode the answer. not JSON"));
        const Trace::Attempt &plain = reading.state.trace.attempts[1];
        EXPECT_EQ(plain.response, test.reply);
        EXPECT_EQ(plain.outcome, test.expected ? QStringLiteral("OK") : QStringLiteral("Not in the asked-for form"));
    }
}

TEST(ReadPage, busyModel_recordsTheRequestAndAsksToRetryLater)
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
                EXPECT_EQ(failure.message, QStringLiteral("The server answered 503."));
                EXPECT_FALSE(failure.trace);
            }
            ASSERT_EQ(reading.state.trace.attempts.size(), onPlainText ? 2u : 1u);
            EXPECT_TRUE(reading.state.trace.attempts.back().outcome.endsWith(u". The server answered 503."));
        }
    }
}

TEST(ReadPage, otherErrors_giveNoAnswerAndCancellationLeavesTheRequestUnrecorded)
{
    {
        Reading reading;
        reading.model.push(Script::error(Kind::unsupportedGuide));
        reading.model.push(Script::error(Kind::other, QStringLiteral("HTTP 500")));
        EXPECT_FALSE(reading.read(0, waterBill));
        ASSERT_EQ(reading.state.trace.attempts.size(), 2u);
        EXPECT_EQ(reading.state.trace.attempts[0].outcome, QStringLiteral("Unsupported guide"));
        EXPECT_EQ(reading.state.trace.attempts[1].outcome, QStringLiteral("Error. HTTP 500"));
        EXPECT_TRUE(reading.state.structured);
    }
    {
        // Stopped while the request runs: the model gives up with Cancelled.
        Reading reading;
        reading.model.push(Script::error(Kind::decodingFailure));
        reading.model.setRule([&](const ScriptedModel::Call &, const std::stop_token &) -> ScriptedModel::Reply {
            reading.stop.request_stop();
            throw Cancelled();
        });
        EXPECT_THROW(reading.read(0, waterBill), Cancelled);
        EXPECT_EQ(reading.state.trace.attempts.size(), 1u);
        EXPECT_EQ(reading.model.calls().size(), 2u);
        ASSERT_EQ(reading.seen.size(), 3u);
        EXPECT_EQ(reading.seen.back().outcome, QStringLiteral("Running"));
    }
    {
        Reading reading;
        reading.stop.request_stop();
        EXPECT_THROW(reading.read(0, waterBill), Cancelled);
        EXPECT_TRUE(reading.model.calls().empty());
        EXPECT_TRUE(reading.seen.empty());
    }
}

TEST(ModelErrors, describe_titleAndServerWordsOnOneBoundedLine)
{
    EXPECT_EQ(describe(GenerationError(Kind::rateLimited, QStringLiteral("Too many requests."))),
        QStringLiteral("Rate limited. Too many requests."));
    EXPECT_EQ(describe(GenerationError(Kind::concurrentRequests, QStringLiteral(" \n "))), QStringLiteral("Busy"));
    EXPECT_EQ(describe(GenerationError(Kind(99), QStringLiteral("?"))), QStringLiteral("Error. ?"));
    EXPECT_EQ(describe(GenerationError(Kind::other, QStringLiteral("line one\r\n\tline\u0000two\u001b[0m"))),
        QStringLiteral("Error. line one line two [0m"));

    const QString huge = describe(GenerationError(Kind::other, QString(1'000'000, u'a')));
    EXPECT_EQ(huge, u"Error. " + QString(500, u'a') + u'\u2026');
    const QString marks = describe(GenerationError(Kind::other, QString(1'000'000, u'\u0301')));
    EXPECT_LT(marks.size(), 5000);

    EXPECT_EQ(explanation(Script::refusal(QStringLiteral("Not this one."))), QStringLiteral("Not this one."));
    EXPECT_EQ(explanation(GenerationError(Kind::refusal, QStringLiteral("refused\nwithout reason"))),
        QStringLiteral("(no explanation: refused without reason)"));
    EXPECT_EQ(retryMessage(GenerationError(Kind::concurrentRequests, {})), QStringLiteral("Busy"));
}
