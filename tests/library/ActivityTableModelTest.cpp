#include "library/ActivityTableModel.h"

#include "library/ModelChecker.h"
#include "support/Printing.h"

#include <QPersistentModelIndex>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Kind = ActivityEntry::Kind;

Extractor::Trace::Attempt attempt(QUuid id, const QString &outcome, double seconds = 0)
{
    return { .id = id, .label = u"Page 1, structured"_s, .outcome = outcome, .seconds = seconds };
}

ActivityEntry event(Kind kind, const QString &title, const QString &outcome = {})
{
    return { .kind = kind, .title = title, .outcome = outcome };
}

// The requests' titles of the rows shown, top to bottom.
QStringList titles(const ActivityTableModel &model)
{
    QStringList shown;
    for (int row = 0; row < model.rowCount(); ++row)
        shown << model.index(row, ActivityTableModel::request).data().toString();
    return shown;
}

// The log's entries the filters keep, in order: what the rows should show however they got there.
QStringList expected(const ActivityLog &log, const ActivityTableModel &model)
{
    QStringList kept;
    for (const ActivityEntry &entry : log.entries()) {
        const bool kindShown = entry.kind == Kind::model ? model.showModel()
            : entry.kind == Kind::ocr                    ? model.showOCR()
                                                         : model.showQueue();
        if (kindShown && (!model.failuresOnly() || entry.failed()))
            kept << entry.title;
    }
    return kept;
}

class ActivityTableModelTest : public ::testing::Test {
protected:
    ActivityLog log;
};

TEST_F(ActivityTableModelTest, filtersKeepKindsAndFailuresWhileTheFooterCountsEveryFinishedRequest)
{
    const QUuid running = QUuid::createUuid();
    log.model(attempt(QUuid::createUuid(), u"OK"_s, 2.4), u"a.pdf"_s);
    log.model(attempt(QUuid::createUuid(), u"Busy"_s, 1.3), u"a.pdf"_s);
    log.model(attempt(running, u"Running"_s), u"b.pdf"_s);
    log.append(event(Kind::ocr, u"Read"_s, u"No text found"_s));
    // An error text in a queue event is not a failure.
    log.append(event(Kind::queue, u"Gave up"_s, u"The model server isn't answering"_s));
    ActivityTableModel model(log);
    ModelChecker checker(&model);
    ASSERT_EQ(model.rowCount(), 5);

    model.setFailuresOnly(true);
    EXPECT_EQ(titles(model), QStringList({ u"Page 1, structured"_s, u"Read"_s }));
    EXPECT_EQ(model.index(0, ActivityTableModel::outcome).data().toString(), u"Busy"_s);
    EXPECT_TRUE(model.index(0, 0).data(ActivityTableModel::FailedRole).toBool());
    model.setFailuresOnly(false);

    model.setShowModel(false);
    model.setShowOCR(false);
    model.setShowQueue(false);
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_TRUE(model.shownLines().isEmpty());
    // The running request doesn't count yet; the seconds add up to 3.7, shown without decimals.
    EXPECT_EQ(model.footer(),
        u"2 model requests, 1 failed, 4 s total. This session only; each scan's last transcript is under Model details."_s);

    model.setShowQueue(true);
    EXPECT_EQ(model.shownLines(), QStringList({ log.entries().back().line() }));
    log.model(attempt(running, u"OK"_s, 3.0), u"b.pdf"_s);
    EXPECT_TRUE(model.footer().startsWith(u"3 model requests, 1 failed, 7 s total."_s));
}

TEST_F(ActivityTableModelTest, cellsShowTheFiguresOnlyWhenKnownAndMarkRunningRequests)
{
    const QUuid id = QUuid::createUuid();
    log.model(attempt(id, u"Running"_s, 0.5), u"a.pdf"_s);
    log.append(event(Kind::queue, u"Paused"_s));
    ActivityTableModel model(log);
    const auto cell
        = [&](int row, int column, int role = Qt::DisplayRole) { return model.index(row, column).data(role); };

    EXPECT_TRUE(cell(0, 0, ActivityTableModel::RunningRole).toBool());
    EXPECT_FALSE(cell(0, 0, ActivityTableModel::FailedRole).toBool());
    // While running, the time so far is no figure to show.
    EXPECT_EQ(cell(0, ActivityTableModel::seconds).toString(), QString());
    EXPECT_EQ(cell(1, ActivityTableModel::file).toString(), QString());

    Extractor::Trace::Attempt finished = attempt(id, u"OK"_s, 2.34);
    finished.tokens = 1840;
    log.model(finished, u"a.pdf"_s);
    EXPECT_FALSE(cell(0, 0, ActivityTableModel::RunningRole).toBool());
    EXPECT_EQ(cell(0, ActivityTableModel::seconds).toString(), u"2.3"_s);
    EXPECT_EQ(cell(0, ActivityTableModel::tokens).toString(), u"1840"_s);
    EXPECT_EQ(cell(0, ActivityTableModel::time).toString(), log.entries().front().timeOfDay());
}

// A view keeps its selection and scroll position only if rows come and go one by one: no reset, and
// each row stays on its entry.
TEST_F(ActivityTableModelTest, rowsFollowTheLogOneByOneAndStayOnTheirEntries)
{
    const QUuid first = QUuid::createUuid();
    const QUuid second = QUuid::createUuid();
    log.append(event(Kind::queue, u"q0"_s));
    log.model(attempt(first, u"Running"_s), u"a.pdf"_s);
    log.append(event(Kind::ocr, u"t0"_s, u"OK"_s));
    ActivityTableModel model(log);
    ModelChecker checker(&model);
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    const QPersistentModelIndex text = model.index(2, 0);
    const QPersistentModelIndex request = model.index(1, 0);

    // The running request turns into its finished form in its own row.
    log.model(attempt(first, u"OK"_s, 1), u"a.pdf"_s);
    EXPECT_EQ(changes.count(), 1);
    EXPECT_EQ(request.row(), 1);
    EXPECT_EQ(request.sibling(1, ActivityTableModel::outcome).data().toString(), u"OK"_s);

    // Hiding and showing other kinds leaves the rows on their entries.
    model.setShowQueue(false);
    log.append(event(Kind::queue, u"q1"_s));
    model.setShowModel(false);
    model.setShowModel(true);
    EXPECT_EQ(text.data(ActivityTableModel::IdRole), log.entries()[2].id);
    model.setShowQueue(true);
    EXPECT_EQ(titles(model), expected(log, model));
    EXPECT_EQ(text.row(), 2);

    // Under "Failures Only", a request shows up when it turns out to have failed, in its place.
    log.model(attempt(second, u"Running"_s), u"b.pdf"_s);
    log.append(event(Kind::ocr, u"t1"_s, u"No text"_s));
    model.setFailuresOnly(true);
    EXPECT_EQ(titles(model), QStringList({ u"t1"_s }));
    log.model(attempt(second, u"Refused"_s, 2), u"b.pdf"_s);
    EXPECT_EQ(titles(model), expected(log, model));
    EXPECT_EQ(model.index(0, 0).data(ActivityTableModel::IdRole), second);
    model.setFailuresOnly(false);

    // Clearing leaves the running request, whatever runs of finished entries lie around it.
    const QUuid third = QUuid::createUuid();
    log.model(attempt(third, u"Running"_s), u"c.pdf"_s);
    log.append(event(Kind::queue, u"q2"_s));
    const QPersistentModelIndex running = model.index(*model.rowOf(third), 0);
    log.clear();
    EXPECT_EQ(titles(model), expected(log, model));
    EXPECT_EQ(running.row(), 0);
    EXPECT_FALSE(text.isValid());
    log.model(attempt(third, u"OK"_s, 1), u"c.pdf"_s);
    EXPECT_EQ(running.sibling(0, ActivityTableModel::outcome).data().toString(), u"OK"_s);

    // Past the cap, the oldest rows go from the top while the rest keep theirs.
    model.setShowOCR(false);
    for (std::size_t index = 1; index < ActivityLog::capacity; ++index)
        log.append(event(index % 2 ? Kind::ocr : Kind::queue, QString::number(index)));
    const QPersistentModelIndex oldestQueue = model.index(1, 0);
    EXPECT_EQ(oldestQueue.data(ActivityTableModel::IdRole), log.entries()[2].id);
    log.append(event(Kind::queue, u"last"_s));
    log.append(event(Kind::queue, u"past the cap"_s));
    EXPECT_EQ(titles(model), expected(log, model));
    EXPECT_EQ(oldestQueue.row(), 0);
    EXPECT_EQ(resets.count(), 0);
}

} // namespace
