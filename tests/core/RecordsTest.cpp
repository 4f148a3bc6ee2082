#include "core/DocDate.h"
#include "core/DocumentKind.h"
#include "core/ScanDocument.h"
#include "core/Status.h"
#include "support/Printing.h"

#include <QDate>
#include <QLocale>

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// The sidebar's views and the table's order are tested through the Library; these are their edges.
TEST(ScanDocument, aMissingFileIsNeitherProcessingNorForReviewAndAbsentValuesSortLast)
{
    ScanDocument doc;
    doc.missing = true;
    EXPECT_FALSE(doc.isProcessing());
    doc.ocrStatus = OCRStatus::done;
    doc.extractStatus = ExtractStatus::done;
    EXPECT_FALSE(doc.needsReview());

    doc.organizationName = u"\U0001F3E6 \u00c9LECTRICIT\u00c9"_s;
    doc.kind = u"\U0001F3E6"_s;
    EXPECT_EQ(doc.organizationSortKey(), u"\U0001F3E6 \u00e9lectricit\u00e9"_s);
    const ScanDocument bare;
    EXPECT_LT(doc.organizationSortKey(), bare.organizationSortKey());
    EXPECT_LT(doc.kindSortKey(), bare.kindSortKey());
}

TEST(ScanDocument, pageRotationsAreNumbersBetweenCommasAndZeroForAnythingElse)
{
    EXPECT_EQ(parsePageRotations(std::nullopt), std::vector<int>());
    EXPECT_EQ(parsePageRotations(u"x,,1.5,270,"_s), std::vector<int>({ 0, 0, 270 }));
}

TEST(DocDate, onlyRealDatesInYearMonthDayShapeAreReadAndShown)
{
    EXPECT_EQ(DocDate::parse(u"0999-12-31"_s), QDate(999, 12, 31));
    for (const QString &text : { u"2023-02-29"_s, u"2024-1-05"_s, u"2024-01-05\n"_s, u"+2024-01-05"_s,
             u"\u0662\u0660\u0662\u0664-\u0660\u0661-\u0660\u0665"_s })
        EXPECT_FALSE(DocDate::parse(text).isValid()) << text.toStdString();

    const QLocale english(QLocale::English, QLocale::UnitedStates);
    EXPECT_EQ(DocDate::display(u"2024-01-05"_s, english), u"Jan 5, 2024"_s);
    EXPECT_TRUE(DocDate::display(u"2024-02-30"_s, english).isEmpty());
}

TEST(DocumentKind, matchIgnoresCaseAndSurroundingDecoration)
{
    EXPECT_EQ(DocumentKind::match(u"\t* \u201cpay STUB\u201d. \n"_s), u"Pay stub"_s);
}

} // namespace
