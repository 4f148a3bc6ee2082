#include "WindowFixture.h"
// After the fixture, whose first header teaches the tests to print texts.
#include "library/DocumentTableModel.h"
#include "ui/DocumentInspector.h"
#include "ui/DocumentTable.h"
#include "ui/EmptyState.h"
#include "ui/InspectorView.h"
#include "ui/LibraryView.h"
#include "ui/MultipleInspector.h"
#include "ui/PDFPreview.h"
#include "ui/PageTextView.h"
#include "ui/ToneLabel.h"

#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QToolButton>

#include "PageSides.h"

class InspectorTest : public WindowTest {
protected:
    // The window on the folder with the inspector shown.
    void openWithInspector()
    {
        openFolder();
        find<QToolButton>(u"inspectorToggle"_s)->click();
    }
    InspectorView &inspector() const { return *window->libraryView()->inspector(); }
    DocumentInspector *scanInspector() const { return qobject_cast<DocumentInspector *>(inspector().current()); }
    // The text of the shown inspector's label or button of that name; "(hidden)" when it isn't shown.
    QString shown(const QString &name) const
    {
        QWidget *widget = inspector().current()->findChild<QWidget *>(name);
        if (!widget || !widget->isVisibleTo(&inspector()))
            return u"(hidden)"_s;
        if (auto *label = qobject_cast<QLabel *>(widget))
            return label->text();
        if (auto *button = qobject_cast<QAbstractButton *>(widget))
            return button->text();
        return u"(shown)"_s;
    }
    // The captions and texts of the pages shown, once all of them are.
    QStringList captions() const
    {
        auto *text = inspector().current()->findChild<PageTextView *>();
        return text && text->isComplete() ? text->captions() : QStringList { u"(not shown)"_s };
    }
    QStringList pageTexts() const
    {
        auto *text = inspector().current()->findChild<PageTextView *>();
        return text && text->isComplete() ? text->pageTexts() : QStringList();
    }
    QString fileName(std::int64_t id) const { return QFileInfo(library->documentsByID().at(id).path).fileName(); }
};

TEST_F(InspectorTest, showsNothingOneScanOrSeveralAsTheSelectionChanges)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    fakeScan(u"b.pdf"_s, u"Garden club invoice for the yearly membership fee"_s);
    openWithInspector();
    const std::int64_t a = idOf(u"a.pdf"_s), b = idOf(u"b.pdf"_s);

    const auto emptyTitle = [&] {
        auto *empty = qobject_cast<EmptyState *>(inspector().current());
        return empty ? empty->title() : u"(not empty)"_s;
    };
    EXPECT_EQ(emptyTitle(), u"No Selection"_s);
    library->setSelection({ 9998, 9999 });
    EXPECT_EQ(emptyTitle(), u"No Selection"_s);

    library->setSelection({ a, 9999 });
    ASSERT_NE(scanInspector(), nullptr);
    EXPECT_EQ(scanInspector()->id(), a);
    EXPECT_EQ(shown(u"fileValue"_s), u"a.pdf"_s);
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"Found by the local model."_s);
    EXPECT_EQ(shown(u"provenanceAction"_s), u"Extract Again"_s);
    EXPECT_EQ(shown(u"errorValue"_s), u"(hidden)"_s);
    EXPECT_EQ(shown(u"modelDetails"_s), u"(shown)"_s);
    ASSERT_TRUE(waitUntil([&] { return !pageTexts().isEmpty(); }));
    EXPECT_TRUE(pageTexts().front().startsWith(u"Garden club newsletter"_s));
    // A one-page scan read upright has no caption at all.
    EXPECT_EQ(captions(), QStringList());

    // Another scan gets an inspector of its own, not the first one's state.
    DocumentInspector *first = scanInspector();
    library->setSelection({ b });
    ASSERT_NE(scanInspector(), nullptr);
    EXPECT_NE(scanInspector(), first);
    EXPECT_EQ(scanInspector()->id(), b);

    // Everything selected from the keyboard.
    QTableView *rows = window->libraryView()->table()->view();
    rows->setFocus();
    QTest::keyClick(rows, Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(library->selection(), (DocumentIDSet { a, b }));
    auto *several = qobject_cast<MultipleInspector *>(inspector().current());
    ASSERT_NE(several, nullptr);
    EXPECT_EQ(shown(u"selectionCount"_s), u"2 Scans Selected"_s);
    EXPECT_EQ(several->ids(), (DocumentIDSet { a, b }));

    // Hidden, the inspector doesn't follow; shown again, it catches up.
    find<QToolButton>(u"inspectorToggle"_s)->click();
    library->setSelection({ a });
    find<QToolButton>(u"inspectorToggle"_s)->click();
    ASSERT_NE(scanInspector(), nullptr);
    EXPECT_EQ(scanInspector()->id(), a);

    // The next window shows it as this one was left.
    window.reset();
    showWindow();
    EXPECT_TRUE(find<QToolButton>(u"inspectorToggle"_s)->isChecked());
    EXPECT_FALSE(inspector().isHidden());
}

TEST_F(InspectorTest, pagesAreCaptionedByNumberAndTheWayTheyWereScanned)
{
    fakeScan(u"upside.pdf"_s, u"@rotation=180\nA letter from the water works about the meter reading"_s);
    writeFakeScan(path(u"three.pdf"_s),
        { u"The first page of a long letter from the insurance company about the new policy"_s,
            u"@rotation=90\nThe second page, scanned sideways"_s, QString() });
    openWithInspector();

    library->setSelection({ idOf(u"upside.pdf"_s) });
    ASSERT_TRUE(waitUntil([&] { return !pageTexts().isEmpty(); }));
    EXPECT_EQ(captions(), QStringList { u"Scanned upside down"_s });

    library->setSelection({ idOf(u"three.pdf"_s) });
    ASSERT_TRUE(waitUntil([&] { return pageTexts().size() == 3; }));
    EXPECT_EQ(captions(), (QStringList { u"Page 1"_s, u"Page 2 · Scanned sideways"_s, u"Page 3"_s }));
    EXPECT_EQ(pageTexts().last(), u"(blank)"_s);
    EXPECT_TRUE(shown(u"sizeValue"_s).endsWith(u", 3 pages"_s)) << qPrintable(shown(u"sizeValue"_s));
}

TEST_F(InspectorTest, theTextAppearsOnceReadAndAMissingFileSaysSo)
{
    const QString file = fakeScan(u"late.pdf"_s, u"A parcel notice from the post office down the road"_s);
    QSettings().setValue(Library::pausedKey, true);
    showWindow();
    library->open(folder.path(), false);
    find<QToolButton>(u"inspectorToggle"_s)->click();
    ASSERT_TRUE(waitUntil([&] { return synced && library->documentsByID().size() == 1; }));
    const std::int64_t id = idOf(u"late.pdf"_s);
    library->setSelection({ id });
    EXPECT_EQ(shown(u"reading"_s), u"(shown)"_s);
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"(hidden)"_s);
    EXPECT_EQ(shown(u"provenanceAction"_s), u"(hidden)"_s);

    DocumentInspector *before = scanInspector();
    library->setPaused(false);
    ASSERT_TRUE(waitForQuiet());
    ASSERT_TRUE(waitUntil([&] { return !pageTexts().isEmpty(); }));
    EXPECT_EQ(scanInspector(), before);
    EXPECT_EQ(shown(u"reading"_s), u"(hidden)"_s);

    QFile::remove(file);
    library->rescan();
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().at(id).missing; }));
    library->reveal(id);
    ASSERT_NE(scanInspector(), nullptr);
    auto *missing = scanInspector()->findChild<EmptyState *>(u"fileMissing"_s);
    ASSERT_NE(missing, nullptr);
    EXPECT_EQ(missing->title(), u"File Missing"_s);
    EXPECT_EQ(missing->description(), u"late.pdf"_s);
    EXPECT_FALSE(scanInspector()->findChild<QPushButton *>(u"openInViewer"_s)->isEnabled());
    EXPECT_FALSE(scanInspector()->findChild<QPushButton *>(u"showInFileManager"_s)->isEnabled());
}

TEST_F(InspectorTest, theStatusFollowsTheModelAndItsButtonMovesAScanUpTheLine)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    fakeScan(u"b.pdf"_s, u"Garden club invoice for the yearly membership fee"_s);
    fakeScan(u"c.pdf"_s, u"Garden club minutes of the autumn meeting"_s);
    StubReply held = StubModelServer::ollamaChat(
        uR"({"firstPage":true,"kind":"Letter","organization":"Garden Club","dateLabel":"Date","date":"2024-03-05"})"_s);
    held.hold = true;
    server.reply(u"POST"_s, u"/api/chat"_s, { held });
    showWindow();
    library->open(folder.path(), false);
    find<QToolButton>(u"inspectorToggle"_s)->click();
    ASSERT_TRUE(waitUntil([&] { return library->pendingOCR() == 0 && library->currentExtraction(); }));

    std::int64_t asking = 0;
    for (const auto &[id, document] : library->documentsByID())
        if (fileName(id) == *library->currentExtraction())
            asking = id;
    library->setSelection({ asking });
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"Asking the local model…"_s);

    std::int64_t waiting = asking == idOf(u"a.pdf"_s) ? idOf(u"b.pdf"_s) : idOf(u"a.pdf"_s);
    library->setSelection({ waiting });
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"Waiting for the local model (3 in line)…"_s);
    EXPECT_EQ(shown(u"provenanceAction"_s), u"Extract Now"_s);
    scanInspector()->findChild<QPushButton *>(u"provenanceAction"_s)->click();
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"Next up for the local model."_s);
    EXPECT_EQ(shown(u"provenanceAction"_s), u"(hidden)"_s);

    server.release();
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"Found by the local model."_s);

    // The organization renamed by hand: what the model said is told only when it differs by more than case.
    const std::int64_t club = *library->documentsByID().at(waiting).organizationID;
    library->renameOrganization(club, u"Garden club"_s);
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().at(waiting).organizationName == u"Garden club"_s; }));
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"Found by the local model."_s);
    library->renameOrganization(club, u"Allotment Society"_s);
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().at(waiting).organizationName != u"Garden club"_s; }));
    EXPECT_EQ(shown(u"provenanceStatus"_s), u"The local model said “Garden Club”."_s);
}

TEST_F(InspectorTest, aScanTheModelGaveUpOnOpensItsDetailsAndSeveralAreAskedAgainTogether)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    fakeScan(u"b.pdf"_s, u"Garden club invoice for the yearly membership fee"_s);
    server.reply(u"POST"_s, u"/api/chat"_s, { StubModelServer::ollamaChat(u"no idea what this is"_s) });
    openWithInspector();
    const std::int64_t a = idOf(u"a.pdf"_s), b = idOf(u"b.pdf"_s);
    ASSERT_EQ(library->documentsByID().at(a).extractStatus, ExtractStatus::failed);

    library->setSelection({ a });
    auto *status = scanInspector()->findChild<ToneLabel *>(u"provenanceStatus"_s);
    EXPECT_EQ(status->text(), library->documentsByID().at(a).error.value_or(u"(none)"_s));
    EXPECT_EQ(status->tone(), ToneLabel::Tone::orange);
    EXPECT_EQ(shown(u"modelLog"_s), library->documentsByID().at(a).extractLog.value_or(u"(none)"_s));
    EXPECT_EQ(shown(u"showTranscript"_s), u"Show Transcript…"_s);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(unnamedControls(), QStringList());

    fileEverythingAs(u"Garden Club"_s, u"Letter"_s, u"2024-03-05"_s);
    library->setSelection({ a, b });
    ASSERT_NE(qobject_cast<MultipleInspector *>(inspector().current()), nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(unnamedControls(), QStringList());
    inspector().current()->findChild<QPushButton *>(u"extractAgain"_s)->click();
    ASSERT_TRUE(waitUntil([&] {
        return library->documentsByID().at(a).extractStatus == ExtractStatus::done
            && library->documentsByID().at(b).extractStatus == ExtractStatus::done;
    }));
}

TEST_F(InspectorTest, theScanAnotherLookedLikeIsNamedAndShownOnRequest)
{
    fakeScan(u"january.pdf"_s, u"Garden club statement of account for January, membership number 4411"_s);
    fakeScan(u"february.pdf"_s, u"Garden club statement of account for February, membership number 4411"_s);
    openWithInspector();
    std::optional<ScanDocument> later;
    for (const auto &[id, document] : library->documentsByID())
        if (document.similarID)
            later = document;
    ASSERT_TRUE(later.has_value());
    const QString earlier = library->documentsByID().at(*later->similarID).path;

    library->setSelection({ later->id });
    EXPECT_EQ(
        shown(u"similarScan"_s), u"Looks like "_s + earlier + u" (Garden Club); the model was given that as a hint."_s);
    scanInspector()->findChild<QPushButton *>(u"showSimilar"_s)->click();
    EXPECT_EQ(library->selection(), DocumentIDSet { *later->similarID });
    ASSERT_NE(scanInspector(), nullptr);
    EXPECT_EQ(scanInspector()->id(), *later->similarID);
    EXPECT_EQ(shown(u"similarScan"_s), u"(hidden)"_s);
    // The arrow keys go on from the scan shown.
    DocumentTable &table = *window->libraryView()->table();
    EXPECT_EQ(table.view()->currentIndex().row(), table.model()->rowOf(*later->similarID));
}

TEST_F(InspectorTest, thePreviewShowsEachPageTurnedAsItWasReadAndReloadsWhenThatChanges)
{
    writeFakeScan(path(u"two.pdf"_s),
        { u"The first page of a long letter from the insurance company about the new policy"_s,
            u"@rotation=90\nThe second page, scanned sideways"_s });
    openWithInspector();
    const std::int64_t id = idOf(u"two.pdf"_s);
    ASSERT_EQ(library->documentsByID().at(id).pageRotations, (std::vector<int> { 0, 90 }));
    library->setSelection({ id });
    auto *preview = scanInspector()->findChild<PDFPreview *>();
    ASSERT_NE(preview, nullptr);
    ASSERT_TRUE(waitUntil([&] { return preview->pageImage(0) && preview->pageImage(1); }));
    EXPECT_EQ(topSide(*preview->pageImage(0)), Side::top);
    EXPECT_EQ(topSide(*preview->pageImage(1)), Side::right);
    const QString before = preview->loadedKey();

    // Read again the other way up: the same file with other rotations is shown anew.
    writeFakeScan(path(u"two.pdf"_s),
        { u"@rotation=180\nThe first page of a long letter from the insurance company about the new policy"_s,
            u"The second page, now upright"_s });
    QFile(path(u"two.pdf"_s)).setFileTime(QDateTime::currentDateTime().addSecs(5), QFileDevice::FileModificationTime);
    library->rescan();
    ASSERT_TRUE(waitUntil([&] {
        return library->documentsByID().at(id).pageRotations == std::vector<int> { 180, 0 };
    }));
    EXPECT_EQ(scanInspector()->findChild<PDFPreview *>(), preview);
    EXPECT_NE(preview->loadedKey(), before);
    ASSERT_TRUE(waitUntil([&] {
        return preview->pageImage(0) && topSide(*preview->pageImage(0)) == Side::bottom && preview->pageImage(1)
            && topSide(*preview->pageImage(1)) == Side::top;
    }));
}

TEST(PageTextView, aLongScansPagesAllArriveInOrderAndShowingOthersStartsAfresh)
{
    QStringList pages;
    for (int page = 1; page <= 40; ++page)
        pages << u"Text of page %1"_s.arg(page);
    PageTextView view;
    view.setPages(pages, 40, { 0, 180 });
    ASSERT_TRUE(waitUntil([&] { return view.isComplete(); }));
    EXPECT_EQ(view.pageTexts(), pages);
    EXPECT_EQ(view.captions().size(), 40);
    EXPECT_EQ(view.captions().at(1), u"Page 2 · Scanned upside down"_s);

    // Shown again before the first pages were all added: none of them are left over.
    view.setPages(pages, 40, {});
    view.setPages({ u"Only page"_s, QString() }, 2, {});
    ASSERT_TRUE(waitUntil([&] { return view.isComplete(); }));
    QCoreApplication::processEvents();
    EXPECT_EQ(view.pageTexts(), (QStringList { u"Only page"_s, u"(blank)"_s }));
    EXPECT_EQ(view.captions(), (QStringList { u"Page 1"_s, u"Page 2"_s }));
}
