#include "extract/PageReader.h"

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

    std::optional<PageAnswer> read(int index, const QString &text = waterBill)
    {
        const ScanContext scan { model, 3, std::nullopt, std::nullopt, QStringLiteral("2024-05-01"), {}, {} };
        return readPage(index, text, scan, state);
    }
    QString outcome(std::size_t attempt) const { return state.trace.attempts.at(attempt).outcome; }
};
} // namespace

TEST(ReadPage, structuredAnswersAreCleaned)
{
    Reading reading;
    reading.model.push(Script::facts(true, QStringLiteral("Utility bill"), QStringLiteral("  Acme Water, Inc. "),
        QStringLiteral("2024-03-12"), QStringLiteral(" Statement Date ")));
    // No organization, a date that doesn't exist, then one the page doesn't show.
    reading.model.push(Script::facts(false, QStringLiteral("Invoice"), QStringLiteral("NONE"),
        QStringLiteral("2024-02-30"), QStringLiteral("none")));
    reading.model.push(Script::facts(false, QStringLiteral("Invoice"), {}, QStringLiteral("2024-03-13"), {}));

    EXPECT_EQ(reading.read(0),
        (PageAnswer { 0, QStringLiteral("Acme Water"), QStringLiteral("Utility bill"), QStringLiteral("2024-03-12"),
            QStringLiteral("Statement Date"), true, true }));
    EXPECT_EQ(reading.read(1), (PageAnswer { .page = 1, .kind = QStringLiteral("Invoice") }));
    EXPECT_EQ(reading.read(2),
        (PageAnswer { .page = 2, .kind = QStringLiteral("Invoice"), .date = QStringLiteral("2024-03-13") }));
}

TEST(ReadPage, aRefusedOrBlockedStructuredRequestSendsThisAndLaterPagesToPlainText)
{
    for (const GenerationError &refused :
        { Script::refusal(QStringLiteral("I can't.")), Script::error(Kind::guardrailViolation) }) {
        Reading reading;
        reading.model.push(refused);
        reading.model.push(Script::plain(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"), {}));
        reading.model.push(Script::plain(false, {}, QStringLiteral("Acme Water"), {}));
        EXPECT_TRUE(reading.read(0) && reading.read(1));
        const std::vector<ScriptedModel::Call> calls = reading.model.calls();
        ASSERT_EQ(calls.size(), 3u);
        EXPECT_TRUE(calls[0].structured && !calls[1].structured && !calls[2].structured);
        EXPECT_EQ(reading.state.trace.attempts[0].refusalExplanation, refused.refusalExplanation);
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
    EXPECT_TRUE(reading.read(0, longPage) && reading.read(1, longPage));

    // Structured, characters of page text and names listed of each request; the next page keeps the list.
    const std::vector<std::tuple<bool, qsizetype, qsizetype>> expected { { true, 3500, 100 }, { true, 1750, 50 },
        { true, 875, 25 }, { true, 437, 25 }, { false, 437, 25 }, { true, 3500, 25 } };
    const QString heading = QStringLiteral("\nOCR text of this page:\n");
    std::vector<std::tuple<bool, qsizetype, qsizetype>> asked;
    for (const auto &[structured, request] : reading.model.calls())
        asked.emplace_back(structured, request.prompt.size() - request.prompt.indexOf(heading) - heading.size(),
            request.instructions.count(QStringLiteral("\n- Organization ")));
    EXPECT_EQ(asked, expected);
    // The most used names stay.
    EXPECT_EQ(reading.state.organizations.last(), QStringLiteral("Organization 25"));
}

TEST(ReadPage, anUndecodableAnswerGoesToPlainTextWhoseReplyIsParsedOrRecordedAsUnreadable)
{
    const QString invalidUtf8 = QString::fromUtf8("Organization: \xff\xfe\xc3 Acme\x01\x02\nType: \xe2\x82");
    const std::pair<QString, bool> replies[]
        = { { QStringLiteral("Acme Water"), false }, { QString(200000, u'\u0301'), false }, { invalidUtf8, true } };
    for (const auto &[reply, readable] : replies) {
        SCOPED_TRACE(reply.left(60).toStdString());
        Reading reading;
        reading.model.push(Script::error(Kind::decodingFailure, QStringLiteral("not JSON")));
        reading.model.push(reply);
        EXPECT_EQ(reading.read(0).has_value(), readable);
        // Structured requests stay on for the next page.
        EXPECT_TRUE(reading.state.structured);
        ASSERT_EQ(reading.state.trace.attempts.size(), 2u);
        EXPECT_EQ(reading.state.trace.attempts[1].response, reply);
        EXPECT_EQ(reading.outcome(1), readable ? QStringLiteral("OK") : QStringLiteral("Not in the asked-for form"));
    }
}

TEST(ReadPage, aBusyModelAbandonsThePageAndOtherErrorsGiveNoAnswer)
{
    // Busy on the plain-text request that follows a refusal: the page is tried again later.
    Reading busy;
    busy.model.push(Script::refusal(QStringLiteral("No.")));
    busy.model.push(Script::error(Kind::assetsUnavailable, QStringLiteral("The server answered 503.")));
    try {
        busy.read(0);
        ADD_FAILURE() << "no Failure thrown";
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.kind, Failure::Kind::retryLater);
    }
    EXPECT_EQ(busy.state.trace.attempts.size(), 2u);

    Reading failing;
    failing.model.push(Script::error(Kind::unsupportedGuide));
    failing.model.push(Script::error(Kind::other, QStringLiteral("HTTP 500")));
    EXPECT_FALSE(failing.read(0));
    EXPECT_EQ(failing.outcome(1), QStringLiteral("Error. HTTP 500"));
    EXPECT_TRUE(failing.state.structured);
}

// What a server says is shown on one line of bounded length, whatever it sent.
TEST(ModelErrors, theServersWordsAreShownOnOneBoundedLine)
{
    EXPECT_EQ(describe(GenerationError(Kind::other, QStringLiteral("line one\r\n\tline\u0000two\u001b[0m"))),
        QStringLiteral("Error. line one line two [0m"));
    EXPECT_EQ(
        describe(GenerationError(Kind::other, QString(1'000'000, u'a'))), u"Error. " + QString(500, u'a') + u'\u2026');
    EXPECT_LT(describe(GenerationError(Kind::other, QString(1'000'000, u'\u0301'))).size(), 5000);
}
