#include "ui/PDFPreview.h"

#include "support/FakeScans.h"
#include "support/ScanPdf.h"
#include "support/WaitUntil.h"

#include <QFile>
#include <QFileInfo>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include "PageSides.h"

namespace {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

class PDFPreviewTest : public ::testing::Test {
protected:
    std::unique_ptr<PDFPreview> preview(std::shared_ptr<RenderPool> pool = nullptr)
    {
        if (!pool)
            pool = std::make_shared<RenderPool>(
                RenderPool::Options { .readers = 2, .timeout = 1s, .program = fakeReaderProgram() });
        // Inside a window, so that a new size reaches it at once.
        auto view = std::make_unique<PDFPreview>(std::move(pool), &window);
        view->resize(420, 600);
        view->show();
        return view;
    }

    QString scan(const QString &name, const QStringList &pages)
    {
        writeFakeScan(folder.filePath(name), pages);
        return folder.filePath(name);
    }

    qsizetype rendersOf(const QString &path) const
    {
        QFile log(folder.filePath(QString::fromLatin1(fakeRenderLog)));
        if (!log.open(QIODevice::ReadOnly))
            return 0;
        return log.readAll().count(QByteArray(QFileInfo(path).fileName().toUtf8() + ' '));
    }

    // The width pages are fitted to.
    static int column(const PDFPreview &view) { return view.viewport()->width() - 20; }

    PDFPreviewTest()
    {
        window.resize(800, 700);
        window.show();
    }

    static inline const QDateTime someTime = QDateTime::fromSecsSinceEpoch(1700000000);
    QTemporaryDir folder;
    QWidget window;
};

// Each page is turned by its stored rotation, a page beyond the list not at all, and the widest page
// fills the width. The same key again renders nothing; other rotations of the same file load anew.
TEST_F(PDFPreviewTest, pagesAreTurnedByTheirStoredRotationAndOnlyAnotherKeyLoadsAgain)
{
    const auto view = preview();
    const QString path = scan(u"letter.pdf"_s, { u"one"_s, u"two"_s, u"three"_s });
    view->show(path, someTime, { 0, 90 });
    ASSERT_TRUE(waitUntil([&] { return view->pageImage(0) && view->pageImage(1); }));
    EXPECT_EQ(view->pageCount(), 3);
    EXPECT_EQ(topSide(*view->pageImage(0)), Side::top);
    const QImage turned = *view->pageImage(1);
    EXPECT_EQ(topSide(turned), Side::right);
    EXPECT_NEAR(turned.width(), column(*view), 1);
    EXPECT_NEAR(view->pageImage(0)->height(), turned.width(), 1);

    ASSERT_TRUE(waitUntil([&] { return view->pageImage(2).has_value(); }));
    const qsizetype renders = rendersOf(path);
    view->show(path, someTime, { 0, 90 });
    EXPECT_TRUE(view->pageImage(1));
    EXPECT_FALSE(view->isLoading());
    EXPECT_EQ(rendersOf(path), renders);

    view->show(path, someTime, { 180 });
    EXPECT_FALSE(view->pageImage(0));
    ASSERT_TRUE(waitUntil([&] { return view->pageImage(0) && view->pageImage(1); }));
    EXPECT_EQ(topSide(*view->pageImage(0)), Side::bottom);
    EXPECT_EQ(topSide(*view->pageImage(1)), Side::top);
    EXPECT_GT(rendersOf(path), renders);
}

// A file that is no PDF replaces what was shown with nothing, without a message.
TEST_F(PDFPreviewTest, aFileThatIsNoPdfShowsAnEmptyPreview)
{
    const auto view = preview();
    view->show(scan(u"letter.pdf"_s, { u"one"_s }), someTime, {});
    ASSERT_TRUE(waitUntil([&] { return view->pageImage(0).has_value(); }));
    const QString notes = folder.filePath(u"notes.pdf"_s);
    writeFile(notes, "not a PDF");
    view->show(notes, someTime, {});
    ASSERT_TRUE(waitUntil([&] { return !view->isLoading(); }));
    EXPECT_EQ(view->pageCount(), 0);
    EXPECT_FALSE(view->pageImage(0));
    EXPECT_TRUE(view->message().isEmpty());
}

// A render that hangs past the time limit or ends the renderer shows why, without the window waiting
// for it; the key is not rendered again, not even by a new preview.
TEST_F(PDFPreviewTest, aRenderThatHangsOrCrashesShowsWhyAndIsNotTriedAgain)
{
    for (const char *directive : { fakeRenderHang, fakeRenderCrash }) {
        SCOPED_TRACE(directive);
        const auto view = preview();
        const QString path
            = scan(QString::fromLatin1(directive).mid(8) + u".pdf"_s, { QString::fromLatin1(directive) });
        view->show(path, someTime, {});
        EXPECT_TRUE(view->message().isEmpty());
        ASSERT_TRUE(waitUntil([&] { return !view->message().isEmpty(); }));
        EXPECT_EQ(view->pageCount(), 0);
        EXPECT_EQ(rendersOf(path), 1);

        const auto again = preview();
        again->show(path, someTime, {});
        EXPECT_EQ(again->message(), view->message());
        EXPECT_FALSE(again->isLoading());
        again->show(path, someTime.addSecs(60), {});
        EXPECT_TRUE(again->message().isEmpty());
    }
}

// A long scan is laid out at once and only the pages in or near the view are rendered, wherever it is
// scrolled to.
TEST_F(PDFPreviewTest, aLongScanRendersOnlyThePagesNearTheView)
{
    const auto view = preview();
    QStringList pages;
    for (int page = 1; page <= 300; ++page)
        pages << u"page %1"_s.arg(page);
    const QString path = scan(u"long.pdf"_s, pages);
    view->show(path, someTime, {});
    ASSERT_TRUE(waitUntil([&] { return view->pageImage(0) && view->pageImage(1); }));
    EXPECT_EQ(view->pageCount(), 300);
    EXPECT_GT(view->verticalScrollBar()->maximum(), 300 * column(*view));

    view->verticalScrollBar()->setValue(view->verticalScrollBar()->maximum());
    ASSERT_TRUE(waitUntil([&] { return view->pageImage(299) && view->pageImage(298); }));
    EXPECT_FALSE(view->pageImage(150));
    EXPECT_LT(rendersOf(path), 12);
}

// A new width or zoom shows the pictures at hand until pages rendered at the new size replace them.
TEST_F(PDFPreviewTest, aNewWidthOrZoomRendersThePagesAgainAtTheirNewSize)
{
    const auto view = preview();
    view->show(scan(u"letter.pdf"_s, { u"one"_s }), someTime, {});
    ASSERT_TRUE(waitUntil([&] { return view->pageImage(0).has_value(); }));
    const int narrow = view->pageImage(0)->width();
    EXPECT_NEAR(narrow, column(*view), 1);

    view->resize(620, 600);
    ASSERT_TRUE(view->pageImage(0));
    EXPECT_EQ(view->pageImage(0)->width(), narrow);
    ASSERT_TRUE(waitUntil([&] { return std::abs(view->pageImage(0)->width() - column(*view)) <= 1; }));

    QTest::keyClick(view.get(), Qt::Key_Plus, Qt::ControlModifier);
    EXPECT_GT(view->zoom(), 1);
    const double zoomed = column(*view) * view->zoom();
    ASSERT_TRUE(waitUntil([&] { return std::abs(view->pageImage(0)->width() - zoomed) <= 1; }));
    EXPECT_GT(view->horizontalScrollBar()->maximum(), 0);
    QTest::keyClick(view.get(), Qt::Key_0, Qt::ControlModifier);
    EXPECT_EQ(view->zoom(), 1);
}

// With the real reader: a page with its own /Rotate and a stored rotation shows its text upright.
TEST_F(PDFPreviewTest, aRotatedPdfPageWithAStoredRotationShowsUpright)
{
    // Other tests point VELLUMARK_READER at the fake reader.
    const QString reader = QCoreApplication::applicationDirPath() + u"/vellumark-reader"_s;
    const auto view = preview(std::make_shared<RenderPool>(RenderPool::Options { .readers = 1, .program = reader }));
    const QString path = folder.filePath(u"letter.pdf"_s);
    const QStringList lines { u"Northern Electricity Company"_s, u"Invoice for the month of March"_s };
    writeFile(path, scanPdf({ { .lines = lines, .turned = 180 }, { .lines = lines, .rotateAttribute = 90 } }));
    view->show(path, someTime, { 180, 270 });
    ASSERT_TRUE(waitUntil([&] { return view->pageImage(0) && view->pageImage(1); }));
    for (int page = 0; page < 2; ++page) {
        SCOPED_TRACE(page);
        EXPECT_LT(view->pageImage(page)->width(), view->pageImage(page)->height());
        EXPECT_EQ(topSide(*view->pageImage(page)), Side::top);
    }
}

} // namespace
