#include "store/Migrations.h"
#include "support/StoreFixture.h"

#include <ostream>
#include <set>

using namespace Qt::StringLiterals;

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
        const QString &extractStatus = u"done"_s, bool missing = false, const QString &ocrStatus = u"done"_s)
    {
        const std::int64_t id = add({ .path = path,
            .ocrStatus = ocrStatus,
            .extractStatus = extractStatus,
            .missing = missing,
            .organizationID = organization });
        CatalogueFixtures::insertPage(db, id, 0, text);
        CatalogueFixtures::insertPage(db, id, 1, u"second page words never compared"_s);
        db.run(Migrations::fullTextFill() + u"d.id = ?"_s, { id });
        return id;
    }
    std::int64_t organization(const QString &name) { return CatalogueFixtures::insertOrganization(db, name); }
    void read(std::int64_t id, const QStringList &pages)
    {
        store->resetOCR({ id });
        const auto job = store->nextOCRJob(DocumentIDs { id });
        ASSERT_TRUE(job);
        store->saveOCR(*job, pages, std::vector<int>(std::size_t(pages.size()), 0), u"hash"_s);
    }
};

const QString electricity = u"Acme Power electricity bill, account 1234, meter reading kilowatt hours"_s;
const QString water = u"Beta Water quarterly statement, water usage cubic metres sewerage"_s;

// Searching as one types is tested through the Library; here, the query text is never read as syntax.
TEST_F(Search, querySyntaxInTheWordsIsSearchedAsText)
{
    const auto quoted = scan(u"a.pdf"_s, u"He said \"hello\" NOT there OR here"_s);
    scan(u"b.pdf"_s, u"Nothing to see"_s);
    for (const char *words : { "said\" NOT", "OR", "\"hello\"" })
        EXPECT_EQ(store->search(QString::fromUtf8(words)), (IdSet { quoted })) << words;
    for (const char *words : { "* ( ) : ^", "name:nothing", "tatement" })
        EXPECT_EQ(store->search(QString::fromUtf8(words)), IdSet {}) << words;
}

// The filed scan a new one looks like: only present, read scans filed under an organization are offered.
TEST_F(Search, similarFiledDocument_offersOnlyFiledScansAndFollowsNewReadings)
{
    const auto acme = organization(u"Acme Power"_s);
    const auto newScan = scan(u"new.pdf"_s, electricity, std::nullopt, u"pending"_s);
    // Alike, but each is not to be offered.
    scan(u"missing.pdf"_s, electricity, acme, u"done"_s, true);
    scan(u"unread.pdf"_s, electricity, acme, u"done"_s, false, u"pending"_s);
    scan(u"unfiled.pdf"_s, electricity, std::nullopt);
    scan(u"failed.pdf"_s, electricity, acme, u"failed"_s);
    scan(u"waiting.pdf"_s, electricity, acme, u"pending"_s);
    EXPECT_EQ(store->similarFiledDocument(newScan), std::nullopt);

    const auto betaScan = scan(u"water.pdf"_s, water, organization(u"Beta Water"_s));
    const auto filed = scan(u"2024/acme.pdf"_s, electricity + u" overdue"_s, acme, u"manual"_s);
    scan(u"acme too.pdf"_s, electricity + u" overdue"_s, organization(u"Acme Power Two"_s));
    // The catalogue's first pages are read once: rows added behind the store's back are not seen.
    EXPECT_EQ(store->similarFiledDocument(newScan), std::nullopt);
    store = std::make_unique<ScanStore>(dir.path());
    // The first of equals wins.
    EXPECT_EQ(store->similarFiledDocument(newScan),
        (ScanStore::SimilarDocument { filed, u"2024/acme.pdf"_s, u"Acme Power"_s }));

    // Read again, the scan now looks like the water bill.
    read(newScan, { water + u" reminder"_s });
    EXPECT_EQ(store->similarFiledDocument(newScan)->id, betaScan);
    // A scan that enters the catalogue after the fingerprints were built gets one when it is read.
    const auto later = add({ .path = u"later.pdf"_s });
    read(later, { electricity });
    EXPECT_EQ(store->similarFiledDocument(later)->id, filed);
    // A first page without words is never like anything.
    read(later, { u"12 34 56 -- ab"_s });
    EXPECT_EQ(store->similarFiledDocument(later), std::nullopt);
}

} // namespace
