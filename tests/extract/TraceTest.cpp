#include "extract/Trace.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include "support/Printing.h"

using Extractor::Trace;
using namespace Qt::StringLiterals;

namespace {
Trace::Attempt attempt(const QString &label, const QString &outcome, double seconds)
{
    Trace::Attempt attempt;
    attempt.id = QUuid::createUuid();
    attempt.label = label;
    attempt.mode = QStringLiteral("guided generation (PageFacts)");
    attempt.instructions = QStringLiteral("You file scanned paper mail.");
    attempt.prompt = QStringLiteral("Today is 2024-05-01.\n\nOCR text of this page:\nACME");
    attempt.outcome = outcome;
    attempt.seconds = seconds;
    return attempt;
}

PageAnswer page(std::int64_t index, std::optional<QString> organization, std::optional<QString> kind,
    std::optional<QString> date, bool firstPage, bool dateInText)
{
    return PageAnswer { index, organization, kind, date, std::nullopt, firstPage, dateInText };
}

// Two pages read in structured form, every optional value present somewhere.
Trace fullTrace()
{
    Trace trace;
    trace.date = QDateTime(QDate(2024, 5, 1), QTime(9, 30, 15, 250), Qt::UTC);
    trace.system = QStringLiteral("qwen2.5:3b on Ollama at 127.0.0.1:11434, context 4096 tokens, Linux 6.1.0, "
                                  "greedy sampling");
    trace.customInstructions = true;
    trace.hint = QStringLiteral("looks like 2023/water.pdf, filed under \u201CAcme Water\u201D");
    Trace::Attempt first = attempt(QStringLiteral("Page 1, structured"), QStringLiteral("OK"), 1.234);
    first.tokens = 812;
    first.response = QStringLiteral("firstPage: true\nkind: Utility bill\norganization: Acme Water\ndateLabel: "
                                    "Statement Date\ndate: 2024-03-12");
    Trace::Attempt second = attempt(QStringLiteral("Page 2, structured"), QStringLiteral("Refused"), 0.1);
    second.refusalExplanation = QStringLiteral("I can\u2019t help with that. \U0001F6AB");
    trace.attempts = { first, second };
    trace.pages = { PageAnswer { 0, QStringLiteral("Acme Water"), QStringLiteral("Utility bill"),
                        QStringLiteral("2024-03-12"), QStringLiteral("Statement Date"), true, true },
        page(1, std::nullopt, std::nullopt, std::nullopt, false, false) };
    trace.consensus = QStringLiteral("Organization \u201CAcme Water\u201D from page 1*. No date.");
    return trace;
}

QJsonObject encodedObject(const Trace &trace)
{
    const std::optional<QByteArray> json = trace.encode();
    EXPECT_TRUE(json);
    return QJsonDocument::fromJson(json.value_or(QByteArray())).object();
}
} // namespace

TEST(TraceJson, roundTrip_keepsEveryField)
{
    const Trace trace = fullTrace();
    EXPECT_EQ(Trace::decode(trace.encode().value()), trace);

    Trace bare;
    bare.date = QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).addMSecs(-1);
    EXPECT_EQ(Trace::decode(bare.encode().value()), bare);
}

// The form other tools read: the date in seconds since 2001, ids in upper case, absent values left out.
TEST(TraceJson, form_dateSince2001_upperCaseIds_absentValuesLeftOut)
{
    Trace trace = fullTrace();
    trace.hint.reset();
    const QJsonObject object = encodedObject(trace);
    EXPECT_FALSE(object.contains(u"hint"));
    // 2024-05-01 09:30:15.25 UTC is 736,248,615.25 seconds after 2001-01-01 UTC.
    EXPECT_EQ(object.value(u"date").toDouble(), 736248615.25);
    const QJsonObject first = object.value(u"attempts")[0].toObject();
    EXPECT_EQ(first.value(u"id").toString(), trace.attempts[0].id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_FALSE(object.value(u"attempts")[1].toObject().contains(u"tokens"));
    EXPECT_FALSE(object.value(u"pages")[1].toObject().contains(u"organization"));
}

TEST(TraceJson, decode_requiresTheKeysOfACompleteTranscript)
{
    const QJsonObject valid = encodedObject(fullTrace());
    ASSERT_TRUE(Trace::decode(QJsonDocument(valid).toJson()));

    // Without a key of the transcript, of its first attempt (list "attempts") or of its first page.
    auto without = [&](const QString &list, const QString &key) {
        QJsonObject broken = valid;
        if (list.isEmpty()) {
            broken.remove(key);
        } else {
            QJsonArray items = broken.value(list).toArray();
            QJsonObject first = items[0].toObject();
            first.remove(key);
            items[0] = first;
            broken.insert(list, items);
        }
        return QJsonDocument(broken).toJson();
    };
    const QStringList required[][2] = {
        { { QString() }, { u"date"_s, u"system"_s, u"customInstructions"_s, u"attempts"_s, u"pages"_s } },
        { { u"attempts"_s },
            { u"id"_s, u"label"_s, u"mode"_s, u"instructions"_s, u"prompt"_s, u"outcome"_s, u"seconds"_s } },
        { { u"pages"_s }, { u"page"_s, u"firstPage"_s, u"dateInText"_s } },
    };
    for (const auto &[list, keys] : required)
        for (const QString &key : keys)
            EXPECT_FALSE(Trace::decode(without(list.first(), key))) << key.toStdString();
}

TEST(TraceJson, decode_handEditedTexts)
{
    const QByteArray attempt = R"({"id":"8b1c0c4e-3f5a-4b8e-9a47-2f1d6c3b9e10","label":"Page 1, plain text",)"
                               R"("mode":"plain text","instructions":"i","prompt":"p","outcome":"OK","seconds":2)";
    const QByteArray head = R"({"date":0,"system":"s","customInstructions":false,"pages":[],"attempts":[)";
    // Lower-case ids, nulls for optional values and whole-number tokens written as reals all read.
    const std::optional<Trace> read
        = Trace::decode(head + attempt + R"(,"tokens":12.0,"response":null}],"hint":null,"extra":[1]})");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->date, QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC));
    ASSERT_EQ(read->attempts.size(), 1u);
    EXPECT_EQ(read->attempts[0].id, QUuid::fromString(QStringLiteral("8B1C0C4E-3F5A-4B8E-9A47-2F1D6C3B9E10")));
    EXPECT_EQ(read->attempts[0].tokens, 12);
    EXPECT_EQ(read->attempts[0].response, std::nullopt);
    EXPECT_EQ(read->hint, std::nullopt);

    const QByteArray unreadable[] = {
        head + attempt + R"(,"tokens":12.5}]})",
        head + R"({"id":"not a uuid","label":"","mode":"","instructions":"","prompt":"","outcome":"","seconds":0}]})",
        R"({"date":1e300,"system":"s","customInstructions":false,"pages":[],"attempts":[]})",
        R"({"date":"2024-05-01","system":"s","customInstructions":false,"pages":[],"attempts":[]})",
        R"({"date":0,"system":"s","customInstructions":false,"pages":[{"page":1.5,"firstPage":true,"dateInText":false}],"attempts":[]})",
        "{\"date\":0,\"system\":\"s\xff\xfe\",",
    };
    for (const QByteArray &json : unreadable)
        EXPECT_FALSE(Trace::decode(json)) << json.toStdString();
}

TEST(TraceJson, encode_failsOnValuesJsonCannotHold)
{
    Trace trace = fullTrace();
    trace.attempts[0].seconds = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(trace.encode());
    EXPECT_FALSE(Trace {}.encode());
}

TEST(TraceSummary, linesForPagesFailuresConsensusAndTime)
{
    Trace trace;
    trace.date = QDateTime::currentDateTimeUtc();
    EXPECT_EQ(trace.summary(), u"0 requests, 0.0 s");

    trace.attempts = { attempt(QStringLiteral("Page 1, structured"), QStringLiteral("OK"), 1.5),
        attempt(QStringLiteral("Page 2, structured"), QStringLiteral("OK"), 1.9) };
    trace.pages = { page(0, QStringLiteral("Acme Water"), QStringLiteral("Utility bill"), QStringLiteral("2024-03-12"),
                        true, true),
        page(1, QStringLiteral("Acme Water"), QStringLiteral("Utility bill"), std::nullopt, false, false),
        page(4, std::nullopt, std::nullopt, QStringLiteral("2024-02-01"), false, false) };
    trace.consensus = QStringLiteral("Stopped after page 2: pages agree. Organization \u201CAcme Water\u201D.");
    EXPECT_EQ(trace.summary(),
        u"Page 1 (first page): Acme Water, Utility bill, 2024-03-12\n"
        u"Page 2: Acme Water, Utility bill, no date\n"
        u"Page 5: no organization, no type, 2024-02-01 (not in text)\n"
        u"Stopped after page 2: pages agree. Organization \u201CAcme Water\u201D.\n"
        u"2 requests, 3.4 s");
}

TEST(TraceSummary, failedRequests_countRefusalsAndQuoteTheFirstFailure)
{
    Trace trace;
    trace.date = QDateTime::currentDateTimeUtc();
    trace.hint = QStringLiteral("looks like a.pdf, filed under \u201CAcme\u201D");
    Trace::Attempt busy = attempt(QStringLiteral("Page 1, structured"), QStringLiteral("Busy"), 0.25);
    Trace::Attempt refused = attempt(QStringLiteral("Page 1, plain text"), QStringLiteral("Refused"), 0.5);
    refused.refusalExplanation = QStringLiteral("Not allowed");
    Trace::Attempt unreadable
        = attempt(QStringLiteral("Page 2, plain text"), QStringLiteral("Not in the asked-for form"), 0.3);
    trace.attempts = { busy, refused, unreadable };
    EXPECT_EQ(trace.summary(),
        u"Hint: looks like a.pdf, filed under \u201CAcme\u201D\n"
        u"3 of 3 requests failed (1 refused): Busy\n"
        u"3 requests, 1.1 s");

    trace.attempts = { refused, busy, attempt(QStringLiteral("Page 2, plain text"), QStringLiteral("OK"), 1) };
    trace.hint.reset();
    EXPECT_EQ(trace.summary(),
        u"2 of 3 requests failed (1 refused): Refused \u201CNot allowed\u201D\n"
        u"3 requests, 1.8 s");
}

TEST(TraceFullText, everyRequestWithItsOutcomeAndTexts)
{
    const QString text = fullTrace().fullText(QLocale(QLocale::English, QLocale::UnitedStates));
    for (const QString &part : { QStringLiteral("Using custom instructions."),
             QStringLiteral("\n===== Request 1: Page 1, structured [guided generation (PageFacts)] =====\n"
                            "Outcome: OK in 1.2s, 812 tokens\n"),
             QStringLiteral("\n--- Response ---\nfirstPage: true\n"),
             QStringLiteral(
                 "Outcome: Refused in 0.1s\nModel's explanation: I can\u2019t help with that. \U0001F6AB\n") })
        EXPECT_TRUE(text.contains(part)) << part.toStdString() << " missing from:\n" << text.toStdString();
    EXPECT_EQ(text.count(QStringLiteral("--- Prompt ---")), 2);
    EXPECT_EQ(text.count(QStringLiteral("--- Response ---")), 1);
}
