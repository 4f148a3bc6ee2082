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

namespace {

// A file gone from disk is neither being read nor waiting for review, whatever its statuses say; a scan
// the model filed without an organization or a date waits for review.
TEST(ScanDocument, missingFilesAndScansLackingFactsAreToldApart)
{
    using O = OCRStatus;
    using E = ExtractStatus;
    const struct {
        const char *name;
        bool missing;
        OCRStatus ocr;
        ExtractStatus extract;
        bool hasDate;
        bool processing;
        bool review;
    } cases[] = {
        { "missing", true, O::done, E::done, false, false, false },
        { "new scan", false, O::pending, E::pending, false, true, false },
        { "filed without a date", false, O::done, E::done, false, false, true },
        { "filed", false, O::done, E::done, true, false, false },
        { "text failed", false, O::failed, E::pending, false, false, false },
    };
    for (const auto &c : cases) {
        ScanDocument doc;
        doc.missing = c.missing;
        doc.ocrStatus = c.ocr;
        doc.extractStatus = c.extract;
        doc.organizationID = 7;
        doc.organizationName = QStringLiteral("ACME");
        if (c.hasDate)
            doc.date = QStringLiteral("2024-01-05");
        EXPECT_EQ(doc.isProcessing(), c.processing) << c.name;
        EXPECT_EQ(doc.needsReview(), c.review) << c.name;
    }
}

TEST(ScanDocument, sortKeysFoldCaseAndPutAbsentValuesLast)
{
    ScanDocument doc;
    doc.organizationName = QStringLiteral("\u00c9lectricit\u00e9 de FRANCE");
    doc.path = QStringLiteral("/Scans/\u00c4pfel.PDF");
    EXPECT_EQ(doc.organizationSortKey(), QStringLiteral("\u00e9lectricit\u00e9 de france"));
    EXPECT_EQ(doc.fileSortKey(), QStringLiteral("/scans/\u00e4pfel.pdf"));

    const ScanDocument bare;
    for (const QString &name : { QStringLiteral("zzz"), QStringLiteral("\U0001F3E6 Bank") }) {
        ScanDocument other;
        other.organizationName = name;
        other.kind = name;
        EXPECT_LT(other.organizationSortKey(), bare.organizationSortKey()) << name.toStdString();
        EXPECT_LT(other.kindSortKey(), bare.kindSortKey()) << name.toStdString();
    }
    EXPECT_LT(bare.dateSortKey(), QStringLiteral("0001-01-01"));
}

TEST(ScanDocument, pageRotationsAreNumbersBetweenCommas)
{
    EXPECT_EQ(parsePageRotations(std::nullopt), std::vector<int>());
    EXPECT_EQ(parsePageRotations(QStringLiteral("180,,90")), std::vector<int>({ 180, 90 }));
    EXPECT_EQ(parsePageRotations(QStringLiteral("x,1.5,270,")), std::vector<int>({ 0, 0, 270 }));
}

TEST(DocDate, onlyRealDatesInYearMonthDayShapeAreRead)
{
    EXPECT_EQ(DocDate::parse(QStringLiteral("2024-02-29")), QDate(2024, 2, 29));
    EXPECT_EQ(DocDate::parse(QStringLiteral("0999-12-31")), QDate(999, 12, 31));
    for (const QString &text :
        { QStringLiteral("2023-02-29"), QStringLiteral("2024-1-05"), QStringLiteral("2024-01-05\n"),
            QStringLiteral("+2024-01-05"), QStringLiteral("\u0662\u0660\u0662\u0664-\u0660\u0661-\u0660\u0665") })
        EXPECT_FALSE(DocDate::parse(text).isValid()) << text.toStdString();
}

TEST(DocDate, shownInTheLocalesOrderWithAnAbbreviatedMonthAndNoWeekday)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    EXPECT_EQ(DocDate::display(QStringLiteral("2024-01-05"), english), QStringLiteral("Jan 5, 2024"));
    // 5 January 2024 was a Friday.
    const QString german = DocDate::display(QStringLiteral("2024-01-05"), QLocale(QLocale::German, QLocale::Germany));
    EXPECT_TRUE(german.startsWith(QLatin1Char('5')) && german.contains(QStringLiteral("Jan"))
        && !german.contains(QStringLiteral("Januar")) && !german.contains(QStringLiteral("Fr")))
        << german.toStdString();
    EXPECT_TRUE(DocDate::display(QStringLiteral("2024-02-30"), english).isEmpty());
    EXPECT_TRUE(DocDate::display(std::nullopt, english).isEmpty());
}

TEST(DocumentKind, matchIgnoresCaseAndSurroundingDecoration)
{
    EXPECT_EQ(DocumentKind::match(QStringLiteral("\u201cTax form\u201d")), QStringLiteral("Tax form"));
    EXPECT_EQ(DocumentKind::match(QStringLiteral("\t* \"pay STUB\". \n")), QStringLiteral("Pay stub"));
}

} // namespace
