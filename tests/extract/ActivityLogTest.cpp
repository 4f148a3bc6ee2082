#include "extract/ActivityLog.h"

#include "support/Printing.h"

#include <gtest/gtest.h>

namespace {

Extractor::Trace::Attempt attempt(const QString &outcome, QUuid id = QUuid::createUuid())
{
    Extractor::Trace::Attempt made;
    made.id = id;
    made.label = QStringLiteral("Page 1, structured");
    made.outcome = outcome;
    made.seconds = 2.34;
    made.tokens = 1840;
    return made;
}

ActivityEntry queueEntry(const QString &title)
{
    ActivityEntry entry;
    entry.title = title;
    return entry;
}

TEST(ActivityLog, keepsTheNewestTwoThousandEntries)
{
    ActivityLog log;
    for (int index = 0; index <= 2000; ++index)
        log.append(queueEntry(QString::number(index)));
    ASSERT_EQ(log.entries().size(), 2000u);
    EXPECT_EQ(log.entries().front().title, QStringLiteral("1"));
    EXPECT_EQ(log.entries().back().title, QStringLiteral("2000"));
}

TEST(ActivityLog, aFinishedRequestReplacesItsRunningEntryAndClearingKeepsRunningOnes)
{
    ActivityLog log;
    const QUuid id = QUuid::createUuid();
    log.model(attempt(QStringLiteral("Running"), id), QStringLiteral("a.pdf"));
    const QDateTime started = log.entries().back().date;
    log.model(attempt(QStringLiteral("Running")), QStringLiteral("b.pdf"));
    log.append(queueEntry(QStringLiteral("Paused")));

    log.model(attempt(QStringLiteral("OK"), id), QStringLiteral("a.pdf"));
    ASSERT_EQ(log.entries().size(), 3u);
    EXPECT_EQ(log.entries().front().outcome, QStringLiteral("OK"));
    EXPECT_EQ(log.entries().front().seconds, 2.34);
    EXPECT_EQ(log.entries().front().date, started);

    log.clear();
    ASSERT_EQ(log.entries().size(), 1u);
    EXPECT_EQ(log.entries().front().outcome, QStringLiteral("Running"));
    // One whose running entry is gone comes in as new.
    log.model(attempt(QStringLiteral("OK"), id), QStringLiteral("a.pdf"));
    EXPECT_EQ(log.entries().size(), 2u);
}

TEST(ActivityEntry, failuresAreUnfinishedOrNotOkButNeverQueueEvents)
{
    ActivityEntry entry = queueEntry(QStringLiteral("Gave up"));
    entry.outcome = QStringLiteral("The local model is unavailable");
    EXPECT_FALSE(entry.failed());
    entry.kind = ActivityEntry::Kind::model;
    EXPECT_TRUE(entry.failed());
    entry.outcome = QStringLiteral("Running");
    EXPECT_FALSE(entry.failed());
}

TEST(ActivityEntry, lineReadsTimeKindFileTitleOutcomeAndFigures)
{
    const QLocale locale(QLocale::English, QLocale::UnitedKingdom);
    ActivityEntry refused;
    refused.date = QDateTime(QDate(2024, 3, 1), QTime(10, 42, 7));
    refused.kind = ActivityEntry::Kind::model;
    refused.file = QStringLiteral("Invoice 2024-03.pdf");
    refused.title = QStringLiteral("Page 1, structured");
    refused.outcome = QStringLiteral("Refused");
    refused.seconds = 2.34;
    refused.tokens = 1840;
    refused.attempt = attempt(QStringLiteral("Refused"));
    refused.attempt->refusalExplanation = QStringLiteral("I can't help with that");
    EXPECT_EQ(refused.line(locale),
        QStringLiteral("10:42:07  Model  Invoice 2024-03.pdf  Page 1, structured: Refused (2.3s, 1840 tokens) "
                       "“I can't help with that”"));

    // With no outcome the line ends with the title.
    ActivityEntry unavailable = queueEntry(QStringLiteral("Local model unavailable: The server isn't answering"));
    unavailable.date = refused.date;
    EXPECT_EQ(unavailable.line(locale),
        QStringLiteral("10:42:07  Queue  -  Local model unavailable: The server isn't answering"));
}

} // namespace
