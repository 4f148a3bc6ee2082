#include "core/DocDate.h"
#include "core/DocumentKind.h"
#include "core/ScanDocument.h"
#include "core/Status.h"
#include "support/Printing.h"

#include <QDate>
#include <QLocale>
#include <QSet>

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <vector>

namespace {

ScanDocument document(bool missing, OCRStatus ocr, ExtractStatus extract, bool hasOrganization, bool hasDate)
{
    ScanDocument doc;
    doc.path = QStringLiteral("/scans/a.pdf");
    doc.missing = missing;
    doc.ocrStatus = ocr;
    doc.extractStatus = extract;
    if (hasOrganization) {
        doc.organizationID = 7;
        doc.organizationName = QStringLiteral("ACME");
    }
    if (hasDate)
        doc.date = QStringLiteral("2024-01-05");
    return doc;
}

// ---- ScanDocument state ----

TEST(ScanDocument, missingScan_neverProcessingNorNeedsReviewAndSortsWithProblems)
{
    for (auto ocr : { OCRStatus::pending, OCRStatus::done, OCRStatus::failed })
        for (auto extract :
            { ExtractStatus::pending, ExtractStatus::done, ExtractStatus::failed, ExtractStatus::manual })
            for (bool complete : { false, true }) {
                SCOPED_TRACE(qPrintable(rawValue(ocr) + QLatin1Char('/') + rawValue(extract)
                    + (complete ? QStringLiteral(" with facts") : QStringLiteral(" without"))));
                const ScanDocument doc = document(true, ocr, extract, complete, complete);
                EXPECT_FALSE(doc.isProcessing());
                EXPECT_FALSE(doc.needsReview());
                EXPECT_EQ(doc.statusSortKey(), 0);
            }
}

TEST(ScanDocument, presentScanStates_giveProcessingReviewAndStatusSortKey)
{
    struct Case {
        const char *name;
        OCRStatus ocr;
        ExtractStatus extract;
        bool hasOrganization;
        bool hasDate;
        bool processing;
        bool review;
        int sortKey;
    };
    using O = OCRStatus;
    using E = ExtractStatus;
    const Case cases[] = {
        { "new scan", O::pending, E::pending, false, false, true, false, 1 },
        { "text pending after an edit", O::pending, E::manual, false, false, true, false, 1 },
        { "text pending, extract failed", O::pending, E::failed, false, false, true, false, 0 },
        { "waiting for the model", O::done, E::pending, false, false, true, false, 1 },
        { "filed by the model", O::done, E::done, true, true, false, false, 3 },
        { "model found no organization", O::done, E::done, false, true, false, true, 2 },
        { "model found no date", O::done, E::done, true, false, false, true, 2 },
        { "extract failed, no organization", O::done, E::failed, false, true, false, true, 0 },
        { "extract failed, facts known", O::done, E::failed, true, true, false, false, 0 },
        { "edited by hand", O::done, E::manual, true, true, false, false, 4 },
        { "edited by hand, no date", O::done, E::manual, true, false, false, true, 2 },
        { "text failed", O::failed, E::pending, false, false, false, false, 0 },
        { "text failed, facts known", O::failed, E::manual, true, true, false, false, 0 },
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const ScanDocument doc = document(false, c.ocr, c.extract, c.hasOrganization, c.hasDate);
        EXPECT_EQ(doc.isProcessing(), c.processing);
        EXPECT_EQ(doc.needsReview(), c.review);
        EXPECT_EQ(doc.statusSortKey(), c.sortKey);
    }
}

// ---- ScanDocument sort keys ----

TEST(ScanDocument, sortKeys_foldCaseAndPutAbsentValuesLast)
{
    ScanDocument doc;
    doc.organizationName = QStringLiteral("\u00c9lectricit\u00e9 de FRANCE");
    doc.path = QStringLiteral("/Scans/\u00c4pfel.PDF");
    EXPECT_EQ(doc.organizationSortKey(), QStringLiteral("\u00e9lectricit\u00e9 de france"));
    EXPECT_EQ(doc.fileSortKey(), QStringLiteral("/scans/\u00e4pfel.pdf"));

    const ScanDocument bare;
    for (const QString &name :
        { QStringLiteral("zzz"), QStringLiteral("\u65e5\u672c"), QStringLiteral("\U0001F3E6 Bank") }) {
        ScanDocument other;
        other.organizationName = name;
        other.kind = name;
        EXPECT_LT(other.organizationSortKey(), bare.organizationSortKey()) << name.toStdString();
        EXPECT_LT(other.kindSortKey(), bare.kindSortKey()) << name.toStdString();
    }
    EXPECT_LT(bare.dateSortKey(), QStringLiteral("0001-01-01"));
}

// ---- Columns read into records ----

TEST(ScanDocument, parsePageRotations_readsNumbersBetweenCommas)
{
    const struct {
        std::optional<QString> text;
        std::vector<int> rotations;
    } cases[] = {
        { std::nullopt, {} },
        { QStringLiteral(",,"), {} },
        { QStringLiteral("180,,90"), { 180, 90 } },
        { QStringLiteral("270,"), { 270 } },
        { QStringLiteral("x,90"), { 0, 90 } },
        { QStringLiteral("90,1.5,270"), { 90, 0, 270 } },
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text ? c.text->toStdString() : std::string("(absent)"));
        EXPECT_EQ(parsePageRotations(c.text), c.rotations);
    }
}

// ---- DocDate ----

TEST(DocDate, parse_acceptsOnlyRealDatesInYearMonthDayShape)
{
    EXPECT_EQ(DocDate::parse(QStringLiteral("2024-02-29")), QDate(2024, 2, 29));
    EXPECT_EQ(DocDate::parse(QStringLiteral("0999-12-31")), QDate(999, 12, 31));
    for (const QString &text : { QString(), QStringLiteral("2023-02-29"), QStringLiteral("2024-13-01"),
             QStringLiteral("2024-01-00"), QStringLiteral("2024-1-05"), QStringLiteral("20240105"),
             QStringLiteral(" 2024-01-05"), QStringLiteral("2024-01-05\n"), QStringLiteral("2024-01-05T10:00"),
             QStringLiteral("+2024-01-05"), QStringLiteral("\u0662\u0660\u0662\u0664-\u0660\u0661-\u0660\u0665") }) {
        EXPECT_FALSE(DocDate::parse(text).isValid()) << text.toStdString();
    }
}

TEST(DocDate, display_localeOrderAbbreviatedMonthNoWeekdayAndEmptyWhenUnreadable)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    EXPECT_EQ(DocDate::display(QStringLiteral("2024-01-05"), english), QStringLiteral("Jan 5, 2024"));
    // 5 January 2024 was a Friday.
    const QString german = DocDate::display(QStringLiteral("2024-01-05"), QLocale(QLocale::German, QLocale::Germany));
    EXPECT_TRUE(german.startsWith(QLatin1Char('5')) && german.contains(QStringLiteral("Jan"))
        && german.contains(QStringLiteral("2024")))
        << german.toStdString();
    EXPECT_FALSE(german.contains(QStringLiteral("Januar")) || german.contains(QStringLiteral("Fr")))
        << german.toStdString();

    for (const std::optional<QString> &text : { std::optional<QString>(), std::optional(QStringLiteral("2024-02-30")),
             std::optional(QStringLiteral("garbage")) })
        EXPECT_TRUE(DocDate::display(text, english).isEmpty()) << (text ? text->toStdString() : "(absent)");
}

// Matching ignores case, so kinds must differ by more than case.
TEST(DocumentKind, all_differByMoreThanCase)
{
    QSet<QString> folded;
    for (const QString &kind : DocumentKind::all())
        folded.insert(kind.toCaseFolded());
    EXPECT_EQ(folded.size(), DocumentKind::all().size());
}

TEST(DocumentKind, match_ignoresCaseAndSurroundingDecoration)
{
    const struct {
        QString text;
        const char *kind;
    } cases[] = {
        { QStringLiteral("\u201cTax form\u201d"), "Tax form" },
        { QStringLiteral("  invoice.  "), "Invoice" },
        { QStringLiteral("\t* \"Pay stub\". \n"), "Pay stub" },
    };
    for (const auto &c : cases)
        EXPECT_EQ(DocumentKind::match(c.text), QString::fromUtf8(c.kind)) << c.text.toStdString();
}

} // namespace
