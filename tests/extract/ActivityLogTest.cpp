#include "extract/ActivityLog.h"

#include "support/Printing.h"

#include <gtest/gtest.h>

namespace {

Extractor::Trace::Attempt attempt(const QString &outcome, QUuid id)
{
    return { .id = id, .outcome = outcome };
}

TEST(ActivityLog, aFinishedRequestReplacesItsRunningEntryClearingKeepsRunningOnesAndTheOldestGo)
{
    ActivityLog log;
    const QUuid id = QUuid::createUuid();
    log.model(attempt(QStringLiteral("Running"), id), QStringLiteral("a.pdf"));
    const QDateTime started = log.entries().back().date;
    log.model(attempt(QStringLiteral("Running"), QUuid::createUuid()), QStringLiteral("b.pdf"));
    log.append(ActivityEntry {});

    log.model(attempt(QStringLiteral("OK"), id), QStringLiteral("a.pdf"));
    ASSERT_EQ(log.entries().size(), 3u);
    EXPECT_EQ(log.entries().front().outcome, QStringLiteral("OK"));
    EXPECT_EQ(log.entries().front().date, started);

    log.clear();
    ASSERT_EQ(log.entries().size(), 1u);
    EXPECT_EQ(log.entries().front().outcome, QStringLiteral("Running"));
    EXPECT_FALSE(log.entries().front().failed());
    // One whose running entry is gone comes in as new.
    log.model(attempt(QStringLiteral("Refused"), id), QStringLiteral("a.pdf"));
    ASSERT_EQ(log.entries().size(), 2u);
    EXPECT_TRUE(log.entries().back().failed());

    for (int index = 0; index < 2000; ++index)
        log.append(ActivityEntry { .title = QString::number(index) });
    // The two entries before them are the oldest.
    ASSERT_EQ(log.entries().size(), 2000u);
    EXPECT_EQ(log.entries().front().title, QStringLiteral("0"));
}

TEST(ActivityEntry, lineReadsTimeKindFileTitleOutcomeAndFigures)
{
    const QLocale locale(QLocale::English, QLocale::UnitedKingdom);
    const QDateTime date(QDate(2024, 3, 1), QTime(10, 42, 7));
    const ActivityEntry refused { .date = date,
        .kind = ActivityEntry::Kind::model,
        .file = QStringLiteral("a.pdf"),
        .title = QStringLiteral("Page 1"),
        .outcome = QStringLiteral("Refused"),
        .seconds = 2.34,
        .tokens = 1840 };
    EXPECT_EQ(refused.line(locale), QStringLiteral("10:42:07  Model  a.pdf  Page 1: Refused (2.3s, 1840 tokens)"));

    // With no outcome the line ends with the title, not a dangling colon; queue events never count as failed.
    ActivityEntry queue { .date = date, .title = QStringLiteral("Local model unavailable") };
    EXPECT_EQ(queue.line(locale), QStringLiteral("10:42:07  Queue  -  Local model unavailable"));
    queue.outcome = QStringLiteral("Refused");
    EXPECT_FALSE(queue.failed());
}

} // namespace
