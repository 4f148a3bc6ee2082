#include "ui/ActivityView.h"

#include "library/BlockingWait.h"
#include "library/Library.h"
#include "support/Printing.h"
#include "support/WaitUntil.h"
#include "ui/AttemptView.h"
#include "ui/Disclosure.h"
#include "ui/EmptyState.h"
#include "ui/ToneLabel.h"
#include "ui/Tones.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QSettings>
#include <QTableView>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Kind = ActivityEntry::Kind;

Extractor::Trace::Attempt request(QUuid id, const QString &label, const QString &outcome)
{
    return { .id = id,
        .label = label,
        .mode = u"guided generation (PageFacts)"_s,
        .instructions = u"Read the page."_s,
        .prompt = u"Page text"_s,
        .outcome = outcome,
        .seconds = 1.5 };
}

// The focusable controls shown in `window` without an accessible name (a button's text counts).
QStringList unnamedControls(QWidget &window)
{
    QStringList unnamed;
    for (QWidget *widget : window.findChildren<QWidget *>()) {
        if (!widget->isVisibleTo(&window) || !widget->focusPolicy())
            continue;
        const auto *button = qobject_cast<QAbstractButton *>(widget);
        if (widget->accessibleName().isEmpty() && !(button && !button->text().isEmpty()))
            unnamed << QString::fromLatin1(widget->metaObject()->className()) + u' ' + widget->objectName();
    }
    return unnamed;
}

// The activity window over a library with no folder open, its log filled by the test.
class ActivityViewTest : public ::testing::Test {
protected:
    ActivityViewTest()
    {
        QSettings().clear();
        activity().append({ .kind = Kind::ocr, .file = u"a.pdf"_s, .title = u"Read 1 page"_s, .outcome = u"OK"_s });
        activity().model(request(finished, u"Page 1, structured"_s, u"OK"_s), u"a.pdf"_s);
        activity().model(request(running, u"Page 2, structured"_s, u"Running"_s), u"a.pdf"_s);
        activity().append({ .kind = Kind::queue, .title = u"Gave up"_s, .outcome = u"The model failed"_s });
        view = std::make_unique<ActivityView>(library);
        view->show();
    }
    ~ActivityViewTest() override
    {
        view.reset();
        QSettings().clear();
    }

    ActivityLog &activity() { return library.activity(); }
    QTableView *table() const { return view->findChild<QTableView *>(u"activityTable"_s); }
    QAction *action(const QString &name) const { return view->findChild<QAction *>(name); }
    void select(const QUuid &id)
    {
        for (int row = 0; row < table()->model()->rowCount(); ++row) {
            if (table()->model()->index(row, 0).data(Qt::UserRole + 1).toUuid() == id) {
                table()->selectRow(row);
                return;
            }
        }
        ADD_FAILURE() << "no row for " << qPrintable(id.toString());
    }
    QStringList requests() const
    {
        QStringList shown;
        for (int row = 0; row < table()->model()->rowCount(); ++row)
            shown << table()->model()->index(row, 3).data().toString();
        return shown;
    }
    // The request shown in full, if one is.
    AttemptView *detail() const
    {
        auto *attempt = view->findChild<AttemptView *>();
        return attempt && attempt->isVisibleTo(view.get()) ? attempt : nullptr;
    }
    bool emptyStateShown() const { return view->findChild<EmptyState *>(u"activityEmpty"_s)->isVisibleTo(view.get()); }
    QString footer() const { return view->findChild<QLabel *>(u"activityFooter"_s)->text(); }

    Library library;
    const QUuid finished = QUuid::createUuid();
    const QUuid running = QUuid::createUuid();
    std::unique_ptr<ActivityView> view;
};

TEST_F(ActivityViewTest, togglesFilterTheRowsAndCopyTakesOnlyThoseShown)
{
    EXPECT_EQ(view->objectName(), u"activity"_s);
    EXPECT_EQ(requests().size(), 4);
    const QString counted = footer();
    EXPECT_TRUE(counted.startsWith(u"1 model requests, 0 failed, 2 s total."_s)) << qPrintable(counted);

    for (const QString &kind : { u"showModel"_s, u"showOCR"_s, u"showQueue"_s })
        action(kind)->trigger();
    EXPECT_TRUE(requests().isEmpty());
    EXPECT_EQ(footer(), counted);

    action(u"showQueue"_s)->trigger();
    action(u"showOCR"_s)->trigger();
    // The queue's error text is no failure; the text read went well: nothing failed.
    action(u"failuresOnly"_s)->trigger();
    EXPECT_TRUE(requests().isEmpty());
    action(u"failuresOnly"_s)->trigger();
    EXPECT_EQ(requests(), QStringList({ u"Read 1 page"_s, u"Gave up"_s }));

    action(u"copyActivity"_s)->trigger();
    EXPECT_EQ(
        QGuiApplication::clipboard()->text(), activity().entries()[0].line() + u'\n' + activity().entries()[3].line());
}

TEST_F(ActivityViewTest, aSelectedModelRowShowsItsRequestInFullOtherRowsSayHowToGetThere)
{
    EXPECT_TRUE(emptyStateShown());
    select(activity().entries()[0].id);
    EXPECT_TRUE(emptyStateShown());
    EXPECT_EQ(detail(), nullptr);

    select(finished);
    ASSERT_NE(detail(), nullptr);
    EXPECT_FALSE(emptyStateShown());
    EXPECT_EQ(detail()->findChild<QLabel *>(u"attemptTitle"_s)->text(), u"1. Page 1, structured"_s);
    detail()->instructions()->setExpanded(true);
    detail()->prompt()->setExpanded(true);
    EXPECT_EQ(unnamedControls(*view), QStringList());
    detail()->findChild<QToolButton *>(u"copyPrompt"_s)->click();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"Page text"_s);

    select(activity().entries()[3].id);
    EXPECT_TRUE(emptyStateShown());
}

TEST_F(ActivityViewTest, theSelectionStaysWhileRowsArriveFinishOrOtherKindsAreHidden)
{
    select(running);
    ASSERT_NE(detail(), nullptr);
    detail()->prompt()->setExpanded(true);
    activity().append({ .kind = Kind::queue, .title = u"Filed"_s });
    activity().model(request(QUuid::createUuid(), u"Page 3, structured"_s, u"Running"_s), u"b.pdf"_s);

    // The running request finishes in its row, still selected, and its full form replaces the running one.
    Extractor::Trace::Attempt done = request(running, u"Page 2, structured"_s, u"Busy"_s);
    done.response = u"kind: Letter"_s;
    activity().model(done, u"a.pdf"_s);
    ASSERT_EQ(view->selection(), running);
    EXPECT_EQ(table()->selectionModel()->selectedRows().front().row(), 2);
    ASSERT_NE(detail(), nullptr);
    EXPECT_EQ(detail()->attempt(), done);
    EXPECT_TRUE(detail()->prompt()->isExpanded());
    EXPECT_EQ(detail()->findChild<ToneLabel *>(u"attemptOutcome"_s)->tone(), ToneLabel::Tone::orange);

    action(u"showQueue"_s)->trigger();
    action(u"showOCR"_s)->trigger();
    action(u"failuresOnly"_s)->trigger();
    EXPECT_EQ(view->selection(), running);
    EXPECT_EQ(table()->selectionModel()->selectedRows().front().row(), 0);

    // Clearing takes the finished request away, and its detail with it.
    action(u"clearActivity"_s)->trigger();
    EXPECT_EQ(view->selection(), std::nullopt);
    EXPECT_TRUE(emptyStateShown());
    EXPECT_EQ(activity().entries().size(), 1u);
}

// Counts as the reader sees them: a letter and its accent are one character.
TEST(AttemptView, disclosuresCountCharactersAndStartClosedTheStatusFollowsTheOutcome)
{
    Extractor::Trace::Attempt refused { .label = u"Page 1, plain text"_s,
        .instructions = u"Cafe\u0301 bills"_s,
        .prompt = u"🇫🇷 ok"_s,
        .outcome = u"Refused"_s,
        .seconds = 2 };
    AttemptView view(3, refused);
    EXPECT_EQ(view.instructions()->button()->text(), u"Instructions (10 characters)"_s);
    EXPECT_EQ(view.prompt()->button()->text(), u"Prompt (4 characters)"_s);
    EXPECT_FALSE(view.instructions()->isExpanded());
    EXPECT_FALSE(view.prompt()->isExpanded());
    const auto statusColour = [](const AttemptView &shown) {
        return shown.findChild<QLabel *>(u"attemptStatus"_s)->pixmap().toImage().pixelColor(8, 2);
    };
    EXPECT_EQ(statusColour(view), Tones::orange(view.palette()));
    refused.outcome = u"OK"_s;
    EXPECT_NE(statusColour(AttemptView(1, refused)), Tones::orange(view.palette()));
}

} // namespace
