#include "extract/Trace.h"

#include "support/Printing.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

using Extractor::Trace;

TEST(TraceJson, roundTripKeepsEveryFieldInTheFormOtherToolsRead)
{
    Trace trace;
    trace.date = QDateTime(QDate(2024, 5, 1), QTime(9, 30, 15, 250), Qt::UTC);
    trace.system = QStringLiteral("qwen2.5:3b on Ollama");
    trace.customInstructions = true;
    trace.hint = QStringLiteral("looks like 2023/water.pdf");
    Trace::Attempt attempt { QUuid::createUuid(), QStringLiteral("Page 1"), QStringLiteral("plain text"),
        QStringLiteral("i"), QStringLiteral("p"), 812, QStringLiteral("firstPage: true"), QStringLiteral("OK"),
        QStringLiteral("I can\u2019t. \U0001F6AB"), 1.234 };
    trace.attempts = { attempt, Trace::Attempt { .id = QUuid::createUuid(), .outcome = QStringLiteral("Busy") } };
    trace.pages = { PageAnswer { 0, QStringLiteral("Acme Water"), QStringLiteral("Utility bill"),
                        QStringLiteral("2024-03-12"), QStringLiteral("Statement Date"), true, true },
        PageAnswer { .page = 1 } };
    trace.consensus = QStringLiteral("No date.");
    const QByteArray json = trace.encode().value();
    EXPECT_EQ(Trace::decode(json), trace);

    // The date in seconds since 2001, ids in upper case, absent values left out.
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    EXPECT_EQ(object.value(u"date").toDouble(), 736248615.25);
    EXPECT_EQ(object.value(u"attempts")[0][u"id"].toString(), attempt.id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_FALSE(object.value(u"attempts")[1].toObject().contains(u"tokens"));

    // A value JSON can't hold fails the encoding rather than writing a transcript that won't read.
    trace.attempts[0].seconds = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(trace.encode());
}

TEST(TraceJson, decodingNeedsTheKeysOfACompleteTranscriptAndReadsHandEditedOnes)
{
    const QByteArray attempt = R"({"id":"8b1c0c4e-3f5a-4b8e-9a47-2f1d6c3b9e10","label":"Page 1, plain text",)"
                               R"("mode":"plain text","instructions":"i","prompt":"p","outcome":"OK")";
    const QByteArray head = R"({"date":0,"system":"s","customInstructions":false,"attempts":[)";
    const QByteArray page = R"("pages":[{"page":1,"firstPage":true)";
    // Lower-case ids, nulls for optional values and whole-number tokens written as reals all read.
    const std::optional<Trace> read
        = Trace::decode(head + attempt + R"(,"seconds":2,"tokens":12.0,"response":null}],"hint":null,"extra":[1],)"
            + page + R"(,"dateInText":false}]})");
    ASSERT_TRUE(read);
    ASSERT_EQ(read->attempts.size(), 1u);
    EXPECT_EQ(read->attempts[0].id, QUuid::fromString(QStringLiteral("8B1C0C4E-3F5A-4B8E-9A47-2F1D6C3B9E10")));
    EXPECT_EQ(read->attempts[0].tokens, 12);

    const QByteArray unreadable[] = {
        // A key missing from the transcript, an attempt or a page.
        R"({"date":0,"customInstructions":false,"pages":[],"attempts":[]})",
        head + attempt + R"(}],"pages":[]})",
        head + R"(],)" + page + "}]}",
        head + attempt + R"(,"seconds":2,"tokens":12.5}],"pages":[]})",
        R"({"date":1e300,"system":"s","customInstructions":false,"pages":[],"attempts":[]})",
        "{\"date\":0,\"system\":\"s\xff\xfe\",",
    };
    for (const QByteArray &json : unreadable)
        EXPECT_FALSE(Trace::decode(json)) << json.toStdString();
}
