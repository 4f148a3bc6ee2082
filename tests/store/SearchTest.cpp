#include "store/Migrations.h"
#include "support/StoreFixture.h"

#include <ostream>
#include <set>

static void PrintTo(const ScanStore::SimilarDocument &similar, std::ostream *out)
{
    *out << similar.id << ' ' << similar.path.toStdString() << " (" << similar.organization.toStdString() << ')';
}

namespace {

using IdSet = std::set<std::int64_t>;

// A recognised scan with `text` as its first page, indexed for search.
class Search : public StoreFixture {
protected:
    std::int64_t scan(const QString &path, const QString &text, std::optional<std::int64_t> organization = {},
        const QString &extractStatus = QStringLiteral("done"), bool missing = false,
        const QString &ocrStatus = QStringLiteral("done"))
    {
        const std::int64_t id = add({ .path = path,
            .ocrStatus = ocrStatus,
            .extractStatus = extractStatus,
            .missing = missing,
            .organizationID = organization });
        CatalogueFixtures::insertPage(db, id, 0, text);
        CatalogueFixtures::insertPage(db, id, 1, QStringLiteral("second page words never compared"));
        db.run(Migrations::fullTextFill() + QStringLiteral("d.id = ?"), { id });
        return id;
    }
    std::int64_t organization(const QString &name) { return CatalogueFixtures::insertOrganization(db, name); }
    void read(std::int64_t id, const QStringList &pages)
    {
        store->resetOCR({ id });
        const auto job = store->nextOCRJob(DocumentIDs { id });
        ASSERT_TRUE(job);
        store->saveOCR(*job, pages, std::vector<int>(std::size_t(pages.size()), 0), QStringLiteral("hash"));
    }
};

const QString electricity = QStringLiteral("Acme Power electricity bill, account 1234, meter reading kilowatt hours");
const QString water = QStringLiteral("Beta Water quarterly statement, water usage cubic metres sewerage");

// ---- Full text ----

TEST_F(Search, everyWordMustStartAWordOfSomeColumnAccentsIgnored)
{
    const auto acme = organization(QStringLiteral("Acme Corporation"));
    const auto both = scan(QStringLiteral("2024/statement.pdf"), QStringLiteral("Your Banking summary"), acme);
    const auto kind = scan(QStringLiteral("letters/acme.pdf"), QStringLiteral("Dear customer"));
    const auto accent = scan(QStringLiteral("café.pdf"), QStringLiteral("Résumé of the Société Générale account"));
    store->setKind({ kind }, QStringLiteral("Bank Statement"));

    EXPECT_EQ(store->search(QStringLiteral("acme bank")), (IdSet { both, kind }));
    EXPECT_EQ(store->search(QStringLiteral("ACME   dear")), (IdSet { kind }));
    EXPECT_EQ(store->search(QStringLiteral("anking")), IdSet {});
    EXPECT_EQ(store->search(QStringLiteral("2024")), (IdSet { both }));
    EXPECT_EQ(store->search(QStringLiteral("societe generale")), (IdSet { accent }));
    EXPECT_EQ(store->search(QStringLiteral("résu cafe")), (IdSet { accent }));
    EXPECT_EQ(store->search(QStringLiteral(" \u2003\n ")), IdSet {});
}

TEST_F(Search, quotesAndQuerySyntaxInTheWordsAreSearchedAsText)
{
    const auto quoted = scan(QStringLiteral("a.pdf"), QStringLiteral("He said \"hello\" NOT there OR here"));
    scan(QStringLiteral("b.pdf"), QStringLiteral("Nothing to see"));
    EXPECT_EQ(store->search(QStringLiteral("\"hello\"")), (IdSet { quoted }));
    EXPECT_EQ(store->search(QStringLiteral("said\" NOT")), (IdSet { quoted }));
    EXPECT_EQ(store->search(QStringLiteral("OR")), (IdSet { quoted }));
    EXPECT_EQ(store->search(QStringLiteral("* ( ) : ^")), IdSet {});
    EXPECT_EQ(store->search(QStringLiteral("name:nothing")), IdSet {});
}

// ---- The filed scan a new one looks like ----

TEST_F(Search, similarFiledDocument_offersOnlyPresentRecognisedScansFiledUnderAnOrganization)
{
    const auto acme = organization(QStringLiteral("Acme Power"));
    const auto newScan = scan(QStringLiteral("new.pdf"), electricity, std::nullopt, QStringLiteral("pending"));
    // Alike, but each is not to be offered.
    scan(QStringLiteral("missing.pdf"), electricity, acme, QStringLiteral("done"), true);
    scan(QStringLiteral("unread.pdf"), electricity, acme, QStringLiteral("done"), false, QStringLiteral("pending"));
    scan(QStringLiteral("unfiled.pdf"), electricity, std::nullopt);
    scan(QStringLiteral("failed.pdf"), electricity, acme, QStringLiteral("failed"));
    scan(QStringLiteral("waiting.pdf"), electricity, acme, QStringLiteral("pending"));
    EXPECT_EQ(store->similarFiledDocument(newScan), std::nullopt);

    scan(QStringLiteral("water.pdf"), water, organization(QStringLiteral("Beta Water")));
    const auto filed = scan(
        QStringLiteral("2024/acme.pdf"), electricity + QStringLiteral(" overdue"), acme, QStringLiteral("manual"));
    // The catalogue's first pages are read once: rows added behind the store's back are not seen.
    EXPECT_EQ(store->similarFiledDocument(newScan), std::nullopt);

    store = std::make_unique<ScanStore>(dir.path());
    EXPECT_EQ(store->similarFiledDocument(newScan),
        (ScanStore::SimilarDocument { filed, QStringLiteral("2024/acme.pdf"), QStringLiteral("Acme Power") }));
    EXPECT_EQ(store->similarFiledDocument(filed), std::nullopt); // its only likeness is not filed
    EXPECT_EQ(store->similarFiledDocument(9999), std::nullopt);
}

TEST_F(Search, similarFiledDocument_followsNewReadingsAndTakesTheFirstOfEquals)
{
    const auto acme = organization(QStringLiteral("Acme Power"));
    const auto acmeScan = scan(QStringLiteral("acme.pdf"), electricity, acme);
    scan(QStringLiteral("acme too.pdf"), electricity, organization(QStringLiteral("Acme Power Two")));
    const auto betaScan = scan(QStringLiteral("beta.pdf"), water, organization(QStringLiteral("Beta Water")));
    const auto newScan = scan(QStringLiteral("new.pdf"), electricity, std::nullopt, QStringLiteral("pending"));
    EXPECT_EQ(store->similarFiledDocument(newScan)->id, acmeScan);

    // Read again, the scan now looks like the water bill.
    read(newScan, { water + QStringLiteral(" reminder") });
    EXPECT_EQ(store->similarFiledDocument(newScan)->id, betaScan);
    // A scan that enters the catalogue after the fingerprints were built gets one when it is read.
    const auto later = add({ .path = QStringLiteral("later.pdf") });
    read(later, { electricity });
    EXPECT_EQ(store->similarFiledDocument(later)->id, acmeScan);
    // No first page, or one without words, is never like anything.
    read(later, {});
    EXPECT_EQ(store->similarFiledDocument(later), std::nullopt);
    read(later, { QStringLiteral("12 34 56 -- ab") });
    EXPECT_EQ(store->similarFiledDocument(later), std::nullopt);
}

} // namespace
