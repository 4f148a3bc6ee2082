#include "support/StoreFixture.h"

using Ids = std::vector<std::int64_t>;

namespace {

class ScanStoreReads : public StoreFixture { };

TEST_F(ScanStoreReads, documents_readEveryColumnOfTheRow)
{
    const auto org = CatalogueFixtures::insertOrganization(db, QStringLiteral("Acme Insurance"));
    const auto similar = add({ .path = QStringLiteral("old/letter.pdf") });
    const auto id = add({ .path = QStringLiteral("2024/Bill.pdf"),
        .fileSize = 123456,
        .fileModified = 1'700'000'123.5,
        .addedAt = 1'700'000'999.25,
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("manual"),
        .date = QStringLiteral("2024-05-01"),
        .organizationID = org });
    db.run(QStringLiteral("UPDATE documents SET page_count = 3, error = 'oops', model_organization = 'ACME INS.', "
                          "extract_log = 'log', similar_document_id = ?, doc_kind = 'Bill', page_rotations = "
                          "'0,90,180' WHERE id = ?"),
        { similar, id });

    const auto documents = store->documents(Ids { id });
    ASSERT_EQ(documents.size(), 1u);
    const ScanDocument &doc = documents[0];
    EXPECT_EQ(doc.id, id);
    EXPECT_EQ(doc.path, QStringLiteral("2024/Bill.pdf"));
    EXPECT_EQ(doc.fileSize, 123456);
    EXPECT_EQ(doc.fileModified, QDateTime::fromMSecsSinceEpoch(1'700'000'123'500, Qt::UTC));
    EXPECT_EQ(doc.pageCount, 3);
    EXPECT_FALSE(doc.missing);
    EXPECT_EQ(doc.ocrStatus, OCRStatus::done);
    EXPECT_EQ(doc.extractStatus, ExtractStatus::manual);
    EXPECT_EQ(doc.error, QStringLiteral("oops"));
    EXPECT_EQ(doc.organizationID, org);
    EXPECT_EQ(doc.organizationName, QStringLiteral("Acme Insurance"));
    EXPECT_EQ(doc.date, QStringLiteral("2024-05-01"));
    EXPECT_EQ(doc.modelOrganization, QStringLiteral("ACME INS."));
    EXPECT_EQ(doc.addedAt, QDateTime::fromMSecsSinceEpoch(1'700'000'999'250, Qt::UTC));
    EXPECT_EQ(doc.extractLog, QStringLiteral("log"));
    EXPECT_EQ(doc.similarID, similar);
    EXPECT_EQ(doc.similarPath, QStringLiteral("old/letter.pdf"));
    EXPECT_EQ(doc.kind, QStringLiteral("Bill"));
    EXPECT_EQ(doc.pageRotations, (std::vector<int> { 0, 90, 180 }));
}

TEST_F(ScanStoreReads, documents_nullColumnsAndUnknownStatusesReadAsDefaults)
{
    const auto id = add({ .path = QStringLiteral("a.pdf") });
    db.run(
        QStringLiteral("UPDATE documents SET ocr_status = 'weird', extract_status = 'DONE', missing = 7 WHERE id = ?"),
        { id });
    const ScanDocument doc = store->documents().at(0);
    EXPECT_EQ(doc.ocrStatus, OCRStatus::pending);
    EXPECT_EQ(doc.extractStatus, ExtractStatus::pending);
    EXPECT_TRUE(doc.missing);
    EXPECT_FALSE(doc.pageCount);
    EXPECT_FALSE(doc.error);
    EXPECT_FALSE(doc.organizationID);
    EXPECT_FALSE(doc.similarPath);
    EXPECT_TRUE(doc.pageRotations.empty());
}

TEST_F(ScanStoreReads, documentsByIds_emptyListGivesNothingAndUnknownIdsAreSkipped)
{
    const auto a = add({ .path = QStringLiteral("a.pdf") });
    add({ .path = QStringLiteral("b.pdf") });
    EXPECT_TRUE(store->documents(Ids {}).empty());
    EXPECT_EQ(store->documents(Ids { a, 999 }), store->documents(Ids { a }));
    EXPECT_EQ(store->documents().size(), 2u);
}

TEST_F(ScanStoreReads, organizations_countPresentScansAndSortIgnoringCase)
{
    const auto zeta = CatalogueFixtures::insertOrganization(db, QStringLiteral("zeta"));
    const auto alpha = CatalogueFixtures::insertOrganization(db, QStringLiteral("Alpha"));
    const auto empty = CatalogueFixtures::insertOrganization(db, QStringLiteral("Beta"));
    add({ .path = QStringLiteral("1.pdf"), .organizationID = alpha });
    add({ .path = QStringLiteral("2.pdf"), .organizationID = alpha });
    add({ .path = QStringLiteral("3.pdf"), .missing = true, .organizationID = alpha });
    add({ .path = QStringLiteral("4.pdf"), .missing = true, .organizationID = zeta });

    EXPECT_EQ(store->organizations(),
        (std::vector<Organization> { { alpha, QStringLiteral("Alpha"), 2 }, { empty, QStringLiteral("Beta"), 0 },
            { zeta, QStringLiteral("zeta"), 0 } }));
}

TEST_F(ScanStoreReads, pages_comeInPageOrder)
{
    const auto id = add({ .path = QStringLiteral("a.pdf") });
    CatalogueFixtures::insertPage(db, id, 2, QStringLiteral("three"));
    CatalogueFixtures::insertPage(db, id, 0, QStringLiteral("one"));
    CatalogueFixtures::insertPage(db, id, 1, QString());
    EXPECT_EQ(store->pages(id), (QStringList { QStringLiteral("one"), QString(), QStringLiteral("three") }));
    EXPECT_TRUE(store->pages(id + 1).isEmpty());
}

TEST_F(ScanStoreReads, pendingCounts_leaveOutMissingScans)
{
    EXPECT_EQ(store->pendingCounts(), (ScanStore::PendingCounts { 0, 0 }));
    add({ .path = QStringLiteral("1.pdf") });
    add({ .path = QStringLiteral("2.pdf"), .missing = true });
    add({ .path = QStringLiteral("3.pdf"), .ocrStatus = QStringLiteral("done") });
    add({ .path = QStringLiteral("4.pdf"), .ocrStatus = QStringLiteral("done"), .missing = true });
    add({ .path = QStringLiteral("5.pdf"),
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("done") });
    add({ .path = QStringLiteral("6.pdf"), .ocrStatus = QStringLiteral("failed") });
    EXPECT_EQ(store->pendingCounts(), (ScanStore::PendingCounts { 1, 1 }));
}

TEST_F(ScanStoreReads, nextOCRJob_takesNewestPresentPendingScan)
{
    EXPECT_FALSE(store->nextOCRJob());
    const auto older = add({ .path = QStringLiteral("older.pdf"), .addedAt = 100 });
    const auto tieLow
        = add({ .path = QStringLiteral("tie-low.pdf"), .fileSize = 42, .fileModified = 5.5, .addedAt = 200 });
    const auto tieHigh = add({ .path = QStringLiteral("tie-high.pdf"), .addedAt = 200 });
    add({ .path = QStringLiteral("missing.pdf"), .addedAt = 300, .missing = true });
    add({ .path = QStringLiteral("done.pdf"), .addedAt = 300, .ocrStatus = QStringLiteral("done") });

    EXPECT_EQ(store->nextOCRJob()->id, tieHigh);
    EXPECT_EQ(store->nextOCRJob(Ids { older, tieLow }),
        (ScanStore::OCRJob { tieLow, QStringLiteral("tie-low.pdf"), 42, 5.5 }));
    EXPECT_EQ(store->nextOCRJob(Ids { older })->id, older);
    EXPECT_FALSE(store->nextOCRJob(Ids {}));
}

TEST_F(ScanStoreReads, nextExtractionJob_takesNewestScanWithTextAndCarriesItsPages)
{
    add({ .path = QStringLiteral("no-text.pdf"), .addedAt = 500 });
    const auto older
        = add({ .path = QStringLiteral("older.pdf"), .addedAt = 100, .ocrStatus = QStringLiteral("done") });
    const auto newer
        = add({ .path = QStringLiteral("newer.pdf"), .addedAt = 200, .ocrStatus = QStringLiteral("done") });
    add({ .path = QStringLiteral("filed.pdf"),
        .addedAt = 300,
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("done") });
    CatalogueFixtures::insertPage(db, newer, 1, QStringLiteral("b"));
    CatalogueFixtures::insertPage(db, newer, 0, QStringLiteral("a"));

    EXPECT_EQ(store->nextExtractionJob(),
        (ScanStore::ExtractionJob {
            newer, QStringLiteral("newer.pdf"), { QStringLiteral("a"), QStringLiteral("b") } }));
    EXPECT_EQ(store->nextExtractionJob(Ids { older })->id, older);
    EXPECT_FALSE(store->nextExtractionJob(Ids {}));
}

TEST_F(ScanStoreReads, traceAndSettings_absentUntilWritten)
{
    const auto id = add({ .path = QStringLiteral("a.pdf") });
    EXPECT_FALSE(store->trace(id));
    db.run(QStringLiteral("UPDATE documents SET extract_trace = '{}' WHERE id = ?"), { id });
    EXPECT_EQ(store->trace(id), QStringLiteral("{}"));

    EXPECT_FALSE(store->setting(QStringLiteral("instructions")));
    store->setSetting(QStringLiteral("instructions"), QStringLiteral("Be précis."));
    EXPECT_EQ(store->setting(QStringLiteral("instructions")), QStringLiteral("Be précis."));
    store->setSetting(QStringLiteral("instructions"), std::nullopt);
    EXPECT_FALSE(store->setting(QStringLiteral("instructions")));
}

TEST_F(ScanStoreReads, modelExtractionCount_countsPresentScansTheModelFiledOrFailed)
{
    for (const char *status : { "done", "failed", "manual", "pending" })
        add({ .path = QString::fromUtf8(status),
            .ocrStatus = QStringLiteral("done"),
            .extractStatus = QString::fromUtf8(status) });
    add({ .path = QStringLiteral("missing"),
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("done"),
        .missing = true });
    EXPECT_EQ(store->modelExtractionCount(), 2);
}

TEST_F(ScanStoreReads, pageSamples_cutEachPageInCharactersAndKeepPageOrder)
{
    const auto a = add({ .path = QStringLiteral("a.pdf"), .ocrStatus = QStringLiteral("done") });
    const auto b = add({ .path = QStringLiteral("b.pdf"), .ocrStatus = QStringLiteral("done") });
    const auto pending = add({ .path = QStringLiteral("c.pdf") });
    const auto missing = add({ .path = QStringLiteral("d.pdf"), .ocrStatus = QStringLiteral("done"), .missing = true });
    CatalogueFixtures::insertPage(db, a, 1, QStringLiteral("Öffnungszeiten"));
    CatalogueFixtures::insertPage(db, a, 0, QStringLiteral("Grüße aus Köln"));
    CatalogueFixtures::insertPage(db, b, 0, QStringLiteral("ab"));
    CatalogueFixtures::insertPage(db, pending, 0, QStringLiteral("pending"));
    CatalogueFixtures::insertPage(db, missing, 0, QStringLiteral("missing"));

    const auto samples = store->pageSamples(4);
    EXPECT_EQ(samples.size(), 2);
    EXPECT_EQ(samples.value(a), (QStringList { QStringLiteral("Grüß"), QStringLiteral("Öffn") }));
    EXPECT_EQ(samples.value(b), QStringList { QStringLiteral("ab") });
}

} // namespace
