#include "store/DocDate.h"
#include "store/DocumentKind.h"
#include "store/ScanDocument.h"
#include "store/Status.h"

#include <QDate>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <vector>

// Readable QString values in failure messages.
static void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

const QString afterEveryName = QString(QChar(0xFFFF));

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
        { "text pending, facts known", O::pending, E::done, true, true, true, false, 1 },
        { "text pending, extract failed", O::pending, E::failed, false, false, true, false, 0 },
        { "waiting for the model", O::done, E::pending, false, false, true, false, 1 },
        { "waiting for the model, facts known", O::done, E::pending, true, true, true, false, 1 },
        { "filed by the model", O::done, E::done, true, true, false, false, 3 },
        { "model found no organization", O::done, E::done, false, true, false, true, 2 },
        { "model found no date", O::done, E::done, true, false, false, true, 2 },
        { "extract failed, no organization", O::done, E::failed, false, true, false, true, 0 },
        { "extract failed, facts known", O::done, E::failed, true, true, false, false, 0 },
        { "edited by hand", O::done, E::manual, true, true, false, false, 4 },
        { "edited by hand, no date", O::done, E::manual, true, false, false, true, 2 },
        { "edited by hand, no organization", O::done, E::manual, false, true, false, true, 2 },
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

TEST(ScanDocument, organizationSortKey_lowerCasedAndAbsentSortsAfterEveryName)
{
    ScanDocument named;
    named.organizationName = QStringLiteral("\u00c9lectricit\u00e9 de FRANCE");
    EXPECT_EQ(named.organizationSortKey(), QStringLiteral("\u00e9lectricit\u00e9 de france"));

    const ScanDocument unnamed;
    EXPECT_EQ(unnamed.organizationSortKey(), afterEveryName);
    EXPECT_EQ(unnamed.organizationSortKey().size(), 1);
    for (const QString &name : { QStringLiteral("zzz"), QStringLiteral("\u00ff"), QStringLiteral("\u03c9mega"),
             QStringLiteral("\u65e5\u672c\u9280\u884c"), QStringLiteral("\U0001F3E6 Bank") }) {
        ScanDocument other;
        other.organizationName = name;
        EXPECT_LT(other.organizationSortKey(), unnamed.organizationSortKey()) << name.toStdString();
    }
}

TEST(ScanDocument, otherSortKeys_useValueOrDefaultWhenAbsent)
{
    ScanDocument doc;
    doc.kind = QStringLiteral("Tax form");
    doc.date = QStringLiteral("2023-12-31");
    doc.path = QStringLiteral("/Scans/ACME/\u00c4pfel Rechnung.PDF");
    doc.pageCount = 12;
    EXPECT_EQ(doc.kindSortKey(), QStringLiteral("Tax form"));
    EXPECT_EQ(doc.dateSortKey(), QStringLiteral("2023-12-31"));
    EXPECT_EQ(doc.fileSortKey(), QStringLiteral("/scans/acme/\u00e4pfel rechnung.pdf"));
    EXPECT_EQ(doc.pagesSortKey(), 12);

    const ScanDocument bare;
    EXPECT_EQ(bare.kindSortKey(), afterEveryName);
    EXPECT_LT(QStringLiteral("Warranty or manual"), bare.kindSortKey());
    EXPECT_TRUE(bare.dateSortKey().isEmpty());
    EXPECT_LT(bare.dateSortKey(), QStringLiteral("0001-01-01"));
    EXPECT_EQ(bare.pagesSortKey(), 0);
}

// ---- Columns read into records ----

TEST(ScanDocument, parsePageRotations_readsNumbersBetweenCommas)
{
    const struct {
        std::optional<QString> text;
        std::vector<int> rotations;
    } cases[] = {
        { std::nullopt, {} },
        { QStringLiteral(""), {} },
        { QStringLiteral(",,"), {} },
        { QStringLiteral("90"), { 90 } },
        { QStringLiteral("0,180"), { 0, 180 } },
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
    for (const QString &text : {
             QString(),
             QStringLiteral("2023-02-29"),
             QStringLiteral("2024-02-30"),
             QStringLiteral("2024-13-01"),
             QStringLiteral("2024-00-10"),
             QStringLiteral("2024-01-00"),
             QStringLiteral("2024-1-05"),
             QStringLiteral("2024-01-5"),
             QStringLiteral("24-01-05"),
             QStringLiteral("20240105"),
             QStringLiteral("2024/01/05"),
             QStringLiteral(" 2024-01-05"),
             QStringLiteral("2024-01-05 "),
             QStringLiteral("2024-01-05\n"),
             QStringLiteral("2024-01-05T10:00"),
             QStringLiteral("+2024-01-05"),
             QStringLiteral("\u0662\u0660\u0662\u0664-\u0660\u0661-\u0660\u0665"),
             QStringLiteral("garbage"),
         }) {
        EXPECT_FALSE(DocDate::parse(text).isValid()) << text.toStdString();
    }
}

TEST(DocDate, displayUnreadableOrAbsent_isEmpty)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    for (const std::optional<QString> &text : { std::optional<QString>(), std::optional<QString>(QString()),
             std::optional(QStringLiteral("2024-02-30")), std::optional(QStringLiteral("2024-13-01")),
             std::optional(QStringLiteral("garbage")), std::optional(QStringLiteral("2024-1-5")) }) {
        EXPECT_TRUE(DocDate::display(text, english).isEmpty()) << (text ? text->toStdString() : "(absent)");
        EXPECT_TRUE(DocDate::display(text).isEmpty()) << (text ? text->toStdString() : "(absent)");
    }
}

TEST(DocDate, displayInEnglish_abbreviatesMonthWithoutWeekday)
{
    EXPECT_EQ(DocDate::display(QStringLiteral("2024-01-05"), QLocale(QLocale::English, QLocale::UnitedStates)),
        QStringLiteral("Jan 5, 2024"));
    EXPECT_EQ(DocDate::display(QStringLiteral("1999-12-31"), QLocale(QLocale::English, QLocale::UnitedStates)),
        QStringLiteral("Dec 31, 1999"));
}

TEST(DocDate, displayInGerman_usesLocaleOrderWithoutWeekday)
{
    // 5 January 2024 was a Friday.
    const QString shown = DocDate::display(QStringLiteral("2024-01-05"), QLocale(QLocale::German, QLocale::Germany));
    EXPECT_TRUE(shown.contains(QStringLiteral("2024"))) << shown.toStdString();
    EXPECT_TRUE(shown.contains(QStringLiteral("Jan"))) << shown.toStdString();
    EXPECT_FALSE(shown.contains(QStringLiteral("Januar"))) << shown.toStdString();
    EXPECT_FALSE(shown.contains(QStringLiteral("Fr"))) << shown.toStdString();
    EXPECT_TRUE(shown.startsWith(QLatin1Char('5'))) << shown.toStdString();
}

TEST(DocumentKind, all_hasTwentyEightDistinctKindsInFixedOrder)
{
    const QStringList &kinds = DocumentKind::all();
    ASSERT_EQ(kinds.size(), 28);
    EXPECT_EQ(kinds.first(), QStringLiteral("Bank statement"));
    EXPECT_EQ(kinds.last(), QStringLiteral("Other"));
    QSet<QString> folded;
    for (const QString &kind : kinds) {
        folded.insert(kind.toCaseFolded());
        EXPECT_EQ(kind, kind.trimmed());
    }
    // Matching ignores case, so kinds must differ by more than case.
    EXPECT_EQ(folded.size(), 28);
}

TEST(DocumentKind, match_ignoresCaseAndSurroundingDecoration)
{
    const struct {
        QString text;
        const char *kind;
    } cases[] = {
        { QStringLiteral("\u201cTax form\u201d"), "Tax form" },
        { QStringLiteral("tax FORM"), "Tax form" },
        { QStringLiteral("  invoice.  "), "Invoice" },
        { QStringLiteral("**Receipt**"), "Receipt" },
        { QStringLiteral("\"Bill\""), "Bill" },
        { QStringLiteral("\nUtility bill\r\n"), "Utility bill" },
        { QStringLiteral("\t* \"Pay stub\". \n"), "Pay stub" },
    };
    for (const auto &c : cases)
        EXPECT_EQ(DocumentKind::match(c.text), QString::fromUtf8(c.kind)) << c.text.toStdString();
}

} // namespace
