#include "library/ReaderWorker.h"
#include "library/RenderPool.h"
#include "support/ScanPdf.h"

#include <QPointF>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace Qt::StringLiterals;

const QStringList letter { u"Northern Electricity Company"_s, u"Invoice for the month of March"_s,
    u"Please pay the amount below"_s, u"within thirty days of receipt"_s };

// The mean position of the pixels darker than the paper, as fractions of the width and the height.
QPointF inkCentre(const QImage &image)
{
    double x = 0;
    double y = 0;
    double count = 0;
    for (int row = 0; row < image.height(); ++row) {
        for (int column = 0; column < image.width(); ++column) {
            if (qGray(image.pixel(column, row)) < 200) {
                x += column + 0.5;
                y += row + 0.5;
                ++count;
            }
        }
    }
    return count == 0 ? QPointF(-1, -1) : QPointF(x / count / image.width(), y / count / image.height());
}

// Where a letter's lines lie in the picture (at the top left of the paper): the side that was the top.
enum class Side { top, right, bottom, left, none };

// The edge nearest the lines' centre.
Side topSide(const QImage &image)
{
    const QPointF centre = inkCentre(image);
    if (centre.x() < 0)
        return Side::none;
    const std::vector<std::pair<double, Side>> distances { { centre.y(), Side::top }, { 1 - centre.x(), Side::right },
        { 1 - centre.y(), Side::bottom }, { centre.x(), Side::left } };
    return std::ranges::min(distances).second;
}

RenderPool::Result rendered(RenderPool &pool, const QString &path, int maxPixel, int rotation, int index = 0)
{
    QFuture<RenderPool::Result> future = pool.render(path, index, maxPixel, rotation);
    future.waitForFinished();
    return future.result();
}

RenderPool::Measured measured(RenderPool &pool, const QString &path)
{
    QFuture<RenderPool::Measured> future = pool.measure(path);
    future.waitForFinished();
    return future.result();
}

class PageImageTest : public ::testing::Test {
protected:
    QString file(const QString &name, const QByteArray &bytes)
    {
        writeFile(folder.filePath(name), bytes);
        return folder.filePath(name);
    }

    QTemporaryDir folder;
};

// The page as a viewer shows it (crop box, /Rotate), its larger side as asked, then turned clockwise by
// the rotation asked for; -90 is 270.
TEST_F(PageImageTest, aScanIsRenderedAtTheSizeAskedAsAViewerShowsItThenTurned)
{
    RenderPool pool;
    const QString upright = file(u"upright.pdf"_s, scanPdf({ { .lines = letter } }));
    const QString rotated = file(u"rotated.pdf"_s, scanPdf({ { .lines = letter, .rotateAttribute = 90 } }));
    const QString cropped
        = file(u"cropped.pdf"_s, scanPdf({ { .lines = letter, .cropBox = QRectF(0, 198, 612, 594) } }));
    struct Case {
        QString path;
        int rotation;
        QSize size;
        Side top;
    };
    // A letter page is 612 by 792 points.
    const std::vector<Case> cases { { upright, 0, { 92, 120 }, Side::top }, { upright, 90, { 120, 92 }, Side::right },
        { upright, 180, { 92, 120 }, Side::bottom }, { upright, 270, { 120, 92 }, Side::left },
        { upright, -90, { 120, 92 }, Side::left }, { rotated, 0, { 120, 92 }, Side::right },
        { rotated, 270, { 92, 120 }, Side::top }, { cropped, 0, { 120, 116 }, Side::top } };
    for (const Case &test : cases) {
        SCOPED_TRACE(test.path.toStdString() + " turned " + std::to_string(test.rotation));
        const RenderPool::Result result = rendered(pool, test.path, 120, test.rotation);
        ASSERT_EQ(result.outcome, RenderPool::Outcome::rendered) << result.why.toStdString();
        EXPECT_EQ(result.image.size(), test.size);
        EXPECT_EQ(result.image.format(), QImage::Format_ARGB32_Premultiplied);
        EXPECT_EQ(result.pageCount, 1);
        EXPECT_EQ(topSide(result.image), test.top);
    }
    EXPECT_EQ(rendered(pool, upright, 120, -90).image, rendered(pool, upright, 120, 270).image);
    // Measured as rendered before turning: /Rotate swaps the sides, the crop box is the page.
    const QString mixed = file(u"mixed.pdf"_s,
        scanPdf({ { .lines = letter }, { .lines = letter, .rotateAttribute = 270 },
            { .lines = letter, .cropBox = QRectF(0, 198, 612, 594) } }));
    const RenderPool::Measured sizes = measured(pool, mixed);
    ASSERT_EQ(sizes.outcome, RenderPool::Outcome::rendered) << sizes.why.toStdString();
    EXPECT_EQ(sizes.sizes, (QList { QSizeF(612, 792), QSizeF(792, 612), QSizeF(612, 594) }));
    // No upper limit but what fits in one answer.
    EXPECT_EQ(rendered(pool, upright, 100000, 0).image.height(), ReaderProtocol::maximumImageSide);
}

// Files that give no picture, nor sizes, leave the reader running; one reader reads and renders in turn.
TEST_F(PageImageTest, aFileWithoutThePageGivesNoImageAndAReaderReadsAndRendersInTurn)
{
    RenderPool pool({ .readers = 1 });
    const QString twoPages = file(u"two.pdf"_s, scanPdf({ { .lines = letter }, { .lines = letter, .turned = 180 } }));
    for (const auto &[path, index] : std::vector<std::pair<QString, int>> { { file(u"html.pdf"_s, "<html></html>"), 0 },
             { folder.filePath(u"gone.pdf"_s), 0 }, { twoPages, 2 }, { file(u"empty.pdf"_s, pdfWithoutPages()), 0 } }) {
        SCOPED_TRACE(path.toStdString());
        const RenderPool::Result result = rendered(pool, path, 120, 0, index);
        EXPECT_EQ(result.outcome, RenderPool::Outcome::noImage);
        EXPECT_TRUE(result.image.isNull());
        EXPECT_FALSE(result.why.isEmpty());
        if (index == 0) {
            const RenderPool::Measured sizes = measured(pool, path);
            EXPECT_EQ(sizes.outcome, RenderPool::Outcome::noImage);
            EXPECT_TRUE(sizes.sizes.isEmpty());
        }
    }
    const RenderPool::Result second = rendered(pool, twoPages, 120, 0, 1);
    EXPECT_EQ(second.pageCount, 2);
    EXPECT_EQ(topSide(second.image), Side::bottom);

    ReaderWorker worker({});
    EXPECT_EQ(worker.recognize(twoPages).pages.size(), 2u);
    const pid_t reader = worker.processId();
    EXPECT_EQ(topSide(worker.render(twoPages, 0, 200, 0).image), Side::top);
    EXPECT_EQ(worker.recognize(twoPages).pages.size(), 2u);
    EXPECT_EQ(worker.processId(), reader);
}

} // namespace
