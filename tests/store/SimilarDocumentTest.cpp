#include "support/StoreFixture.h"

#include <ostream>

static void PrintTo(const ScanStore::SimilarDocument &similar, std::ostream *out)
{
    *out << similar.id << ' ' << similar.path.toStdString() << " (" << similar.organization.toStdString() << ')';
}

namespace {

const QString electricity = QStringLiteral("Acme Power electricity bill, account 1234, meter reading kilowatt hours");
const QString water = QStringLiteral("Beta Water quarterly statement, water usage cubic metres sewerage");

class SimilarDocument : public StoreFixture {
protected:
    // A recognised scan with the given first page, filed under `organization` when one is given.
    std::int64_t scan(const QString &path, const QString &firstPage, std::optional<std::int64_t> organization,
        const QString &extractStatus = QStringLiteral("done"), bool missing = false,
        const QString &ocrStatus = QStringLiteral("done"))
    {
        const auto id = add({ .path = path,
            .ocrStatus = ocrStatus,
            .extractStatus = extractStatus,
            .missing = missing,
            .organizationID = organization });
        CatalogueFixtures::insertPage(db, id, 0, firstPage);
        CatalogueFixtures::insertPage(db, id, 1, QStringLiteral("second page words never compared"));
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

TEST_F(SimilarDocument, offersOnlyPresentRecognisedScansFiledUnderAnOrganization)
{
    const auto acme = organization(QStringLiteral("Acme Power"));
    const auto beta = organization(QStringLiteral("Beta Water"));
    const auto newScan = scan(QStringLiteral("new.pdf"), electricity, std::nullopt, QStringLiteral("pending"));
    // Alike, but each is not to be offered.
    scan(QStringLiteral("missing.pdf"), electricity, acme, QStringLiteral("done"), true);
    scan(QStringLiteral("unread.pdf"), electricity, acme, QStringLiteral("done"), false, QStringLiteral("pending"));
    scan(QStringLiteral("unfiled.pdf"), electricity, std::nullopt);
    scan(QStringLiteral("failed.pdf"), electricity, acme, QStringLiteral("failed"));
    scan(QStringLiteral("waiting.pdf"), electricity, acme, QStringLiteral("pending"));
    EXPECT_EQ(store->similarFiledDocument(newScan), std::nullopt);

    scan(QStringLiteral("water.pdf"), water, beta);
    const auto filed = scan(
        QStringLiteral("2024/acme.pdf"), electricity + QStringLiteral(" overdue"), acme, QStringLiteral("manual"));
    // A new catalogue read happens only once: the rows added here are found through saveOCR below.
    EXPECT_EQ(store->similarFiledDocument(newScan), std::nullopt);

    store.reset();
    store = std::make_unique<ScanStore>(dir.path());
    EXPECT_EQ(store->similarFiledDocument(newScan),
        (ScanStore::SimilarDocument { filed, QStringLiteral("2024/acme.pdf"), QStringLiteral("Acme Power") }));
    EXPECT_EQ(store->similarFiledDocument(filed), std::nullopt); // its only likeness is not filed
    EXPECT_EQ(store->similarFiledDocument(9999), std::nullopt);
}

TEST_F(SimilarDocument, saveOCR_keepsTheFingerprintsCurrentOnceBuilt)
{
    const auto acme = organization(QStringLiteral("Acme Power"));
    const auto beta = organization(QStringLiteral("Beta Water"));
    const auto acmeScan = scan(QStringLiteral("acme.pdf"), electricity, acme);
    const auto betaScan = scan(QStringLiteral("beta.pdf"), water, beta);
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

TEST_F(SimilarDocument, equallyAlikeScans_theFirstTheCatalogueListsWins)
{
    const auto acme = organization(QStringLiteral("Acme Power"));
    const auto other = organization(QStringLiteral("Acme Power Two"));
    const auto first = scan(QStringLiteral("first.pdf"), electricity, other);
    scan(QStringLiteral("second.pdf"), electricity, acme);
    const auto newScan = scan(QStringLiteral("new.pdf"), electricity, std::nullopt, QStringLiteral("pending"));
    EXPECT_EQ(store->similarFiledDocument(newScan)->id, first);
}

} // namespace
