#include "ocr/OCR.h"
#include "support/Printing.h"

#include <gtest/gtest.h>

namespace {

// Heights and offsets here are binary fractions, so the row and paragraph thresholds (0.6 and 1.4 times
// a height of 0.15625) are met exactly rather than up to rounding.
constexpr double height = 0.15625;

OCR::Line line(const QString &text, double x, double bottom, double width = 0.2)
{
    return { text, QRectF(x, bottom, width, height), 0 };
}

TEST(Layout, readsRowsTopDownAndColumnsLeftToRightWithoutEmptyLines)
{
    const QString text = OCR::layout({
        line(QStringLiteral("Total due"), 0.6, 0.5),
        line(QString(), 0.1, 0.9),
        line(QStringLiteral("Invoice"), 0.1, 0.7),
        line(QStringLiteral("Amount"), 0.1, 0.5),
    });
    EXPECT_EQ(text, QStringLiteral("Invoice\nAmount   Total due"));
    EXPECT_EQ(OCR::layout({}), QString());
}

TEST(Layout, rowsSplitOnlyWhenCentresDifferByAtLeastSixTenthsOfTheSmallerHeight)
{
    // Centres exactly 0.6 × height apart: two rows.
    EXPECT_EQ(OCR::layout({ line(QStringLiteral("A"), 0.1, 0.5), line(QStringLiteral("B"), 0.5, 0.40625) }),
        QStringLiteral("A\nB"));
    // A little closer: one row.
    EXPECT_EQ(
        OCR::layout({ line(QStringLiteral("A"), 0.1, 0.5), line(QStringLiteral("B"), 0.5, 0.40625 + 1.0 / 1024) }),
        QStringLiteral("A   B"));
    // The smaller of the two heights decides.
    OCR::Line small = line(QStringLiteral("B"), 0.5, 0.5);
    small.box.setHeight(height / 4);
    EXPECT_EQ(OCR::layout({ line(QStringLiteral("A"), 0.1, 0.5), small }), QStringLiteral("A\nB"));
}

TEST(Layout, paragraphBreakOnlyWhenTheGapExceedsOnePointFourMedianHeights)
{
    // The gap between the rows is exactly 1.4 × the median height: no empty line.
    EXPECT_EQ(OCR::layout({ line(QStringLiteral("First"), 0.1, 0.5), line(QStringLiteral("Second"), 0.1, 0.125) }),
        QStringLiteral("First\nSecond"));
    EXPECT_EQ(OCR::layout(
                  { line(QStringLiteral("First"), 0.1, 0.5), line(QStringLiteral("Second"), 0.1, 0.125 - 1.0 / 1024) }),
        QStringLiteral("First\n\nSecond"));
}

} // namespace
