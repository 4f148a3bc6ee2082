#include "ocr/OCR.h"
#include "support/Printing.h"

#include <gtest/gtest.h>

namespace {

// Heights and offsets here are binary fractions, so the row and paragraph thresholds are met exactly
// rather than up to rounding.
constexpr double height = 0.15625;

OCR::Line line(const QString &text, double x, double bottom, double h = height)
{
    return { text, QRectF(x, bottom, 0.2, h), 0 };
}

TEST(Layout, readsRowsTopDownColumnsLeftToRightAndBreaksParagraphsOnWideGaps)
{
    EXPECT_EQ(OCR::layout({
                  line(QStringLiteral("Total due"), 0.6, 0.5),
                  line(QString(), 0.1, 0.9),
                  line(QStringLiteral("Invoice"), 0.1, 0.7),
                  line(QStringLiteral("Amount"), 0.1, 0.5),
                  // Centres less than 0.6 heights apart: the same row.
                  line(QStringLiteral("$42"), 0.9, 0.5 + 0.09),
                  // A gap of more than 1.4 median heights: an empty line before.
                  line(QStringLiteral("Thank you"), 0.1, 0.125 - 1.0 / 1024),
              }),
        QStringLiteral("Invoice\nAmount   Total due   $42\n\nThank you"));
    // The smaller of two heights decides whether lines share a row.
    EXPECT_EQ(OCR::layout({ line(QStringLiteral("A"), 0.1, 0.5), line(QStringLiteral("B"), 0.5, 0.5, height / 4) }),
        QStringLiteral("A\nB"));
}

} // namespace
