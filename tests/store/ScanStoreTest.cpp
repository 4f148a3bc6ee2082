#include "support/Printing.h"
#include "support/StoreFixture.h"

using Ids = std::vector<std::int64_t>;

namespace {

class ScanStoreTest : public StoreFixture {
protected:
    ScanStore::OCRJob pendingJob(const QString &path)
    {
        return { add({ .path = path, .fileSize = 2048, .fileModified = 1'700'000'000.5 }), path, 2048,
            1'700'000'000.5 };
    }
    std::int64_t filed(const QString &path, const QString &extractStatus = QStringLiteral("done"))
    {
        return add({ .path = path, .ocrStatus = QStringLiteral("done"), .extractStatus = extractStatus });
    }
    QString status(std::int64_t id)
    {
        return value(QStringLiteral("SELECT ocr_status || '/' || extract_status FROM documents WHERE id = %1").arg(id))
            .value_or(QString());
    }
    QString count(const QString &where)
    {
        return value(QStringLiteral("SELECT COUNT(*) FROM documents WHERE ") + where).value_or(QString());
    }
};

// ---- Reads ----

TEST_F(ScanStoreTest, documents_readEveryColumnAndDefaultsForNullsAndUnknownStatuses)
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
    db.run(
        QStringLiteral("UPDATE documents SET ocr_status = 'weird', extract_status = 'DONE', missing = 7 WHERE id = ?"),
        { similar });

    const ScanDocument expected { .id = id,
        .path = QStringLiteral("2024/Bill.pdf"),
        .fileSize = 123456,
        .fileModified = QDateTime::fromMSecsSinceEpoch(1'700'000'123'500, Qt::UTC),
        .pageCount = 3,
        .ocrStatus = OCRStatus::done,
        .extractStatus = ExtractStatus::manual,
        .error = QStringLiteral("oops"),
        .organizationID = org,
        .organizationName = QStringLiteral("Acme Insurance"),
        .date = QStringLiteral("2024-05-01"),
        .modelOrganization = QStringLiteral("ACME INS."),
        .addedAt = QDateTime::fromMSecsSinceEpoch(1'700'000'999'250, Qt::UTC),
        .extractLog = QStringLiteral("log"),
        .similarID = similar,
        .similarPath = QStringLiteral("old/letter.pdf"),
        .kind = QStringLiteral("Bill"),
        .pageRotations = { 0, 90, 180 } };
    const ScanDocument defaults { .id = similar,
        .path = QStringLiteral("old/letter.pdf"),
        .fileSize = 1000,
        .fileModified = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC),
        .missing = true,
        .addedAt = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC) };
    EXPECT_TRUE(store->documents(Ids { id, 999 }) == std::vector { expected });
    EXPECT_TRUE(store->documents(Ids { similar }) == std::vector { defaults });
    EXPECT_EQ(store->documents().size(), 2u);
    EXPECT_TRUE(store->documents(Ids {}).empty());
}

TEST_F(ScanStoreTest, organizationsAndPendingCounts_countPresentScansOnly)
{
    const auto zeta = CatalogueFixtures::insertOrganization(db, QStringLiteral("zeta"));
    const auto alpha = CatalogueFixtures::insertOrganization(db, QStringLiteral("Alpha"));
    const auto empty = CatalogueFixtures::insertOrganization(db, QStringLiteral("Beta"));
    add({ .path = QStringLiteral("1.pdf"), .organizationID = alpha });
    add({ .path = QStringLiteral("2.pdf"), .missing = true, .organizationID = alpha });
    add({ .path = QStringLiteral("3.pdf"), .ocrStatus = QStringLiteral("done"), .organizationID = alpha });
    add({ .path = QStringLiteral("4.pdf"),
        .ocrStatus = QStringLiteral("done"),
        .missing = true,
        .organizationID = zeta });
    add({ .path = QStringLiteral("5.pdf"),
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("done") });
    add({ .path = QStringLiteral("6.pdf"), .ocrStatus = QStringLiteral("failed") });

    EXPECT_EQ(store->organizations(),
        (std::vector<Organization> { { alpha, QStringLiteral("Alpha"), 2 }, { empty, QStringLiteral("Beta"), 0 },
            { zeta, QStringLiteral("zeta"), 0 } }));
    EXPECT_EQ(store->pendingCounts(), (ScanStore::PendingCounts { 1, 1 }));
}

TEST_F(ScanStoreTest, nextJobs_takeTheNewestPresentPendingScan)
{
    EXPECT_FALSE(store->nextOCRJob());
    const auto older = add({ .path = QStringLiteral("older.pdf"), .addedAt = 100 });
    const auto tieLow
        = add({ .path = QStringLiteral("tie-low.pdf"), .fileSize = 42, .fileModified = 5.5, .addedAt = 200 });
    const auto tieHigh = add({ .path = QStringLiteral("tie-high.pdf"), .addedAt = 200 });
    add({ .path = QStringLiteral("missing.pdf"), .addedAt = 300, .missing = true });
    add({ .path = QStringLiteral("filed.pdf"),
        .addedAt = 300,
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("done") });
    const auto read = add({ .path = QStringLiteral("read.pdf"), .addedAt = 50, .ocrStatus = QStringLiteral("done") });
    const auto readLater = add({ .path = QStringLiteral("b.pdf"), .addedAt = 60, .ocrStatus = QStringLiteral("done") });
    CatalogueFixtures::insertPage(db, readLater, 1, QStringLiteral("b"));
    CatalogueFixtures::insertPage(db, readLater, 0, QStringLiteral("a"));

    EXPECT_EQ(store->nextOCRJob()->id, tieHigh);
    EXPECT_EQ(store->nextOCRJob(Ids { older, tieLow }),
        (ScanStore::OCRJob { tieLow, QStringLiteral("tie-low.pdf"), 42, 5.5 }));
    EXPECT_FALSE(store->nextOCRJob(Ids {}));
    EXPECT_EQ(store->nextExtractionJob(),
        (ScanStore::ExtractionJob {
            readLater, QStringLiteral("b.pdf"), { QStringLiteral("a"), QStringLiteral("b") } }));
    EXPECT_EQ(store->nextExtractionJob(Ids { read, older })->id, read);
    EXPECT_FALSE(store->nextExtractionJob(Ids {}));
}

TEST_F(ScanStoreTest, pageSamples_cutEachPageInCharactersForPresentReadScans)
{
    const auto a = filed(QStringLiteral("a.pdf"));
    const auto b = filed(QStringLiteral("b.pdf"));
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

TEST_F(ScanStoreTest, settings_absentUntilWrittenAndRemovedByNoValue)
{
    EXPECT_FALSE(store->setting(QStringLiteral("instructions")));
    store->setSetting(QStringLiteral("instructions"), QStringLiteral("Be précis."));
    EXPECT_EQ(store->setting(QStringLiteral("instructions")), QStringLiteral("Be précis."));
    store->setSetting(QStringLiteral("instructions"), std::nullopt);
    EXPECT_FALSE(store->setting(QStringLiteral("instructions")));
}

// ---- Text recognition results ----

TEST_F(ScanStoreTest, saveOCR_storesPagesAndFactsAndIndexesTheTextReplacingAnEarlierReading)
{
    const auto job = pendingJob(QStringLiteral("a.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'earlier failure' WHERE id = ?"), { job.id });
    store->saveOCR(job, { QStringLiteral("alpha"), QStringLiteral("beta"), QStringLiteral("gamma") }, { 90, 0, 0 },
        QStringLiteral("h1"));
    store->resetOCR({ job.id });
    store->saveOCR(job, { QStringLiteral("Invoice number 42"), QStringLiteral("Kündigung bestätigt") }, { 0, 180 },
        QStringLiteral("h2"));

    EXPECT_EQ(store->pages(job.id),
        (QStringList { QStringLiteral("Invoice number 42"), QStringLiteral("Kündigung bestätigt") }));
    const ScanDocument doc = store->documents().at(0);
    EXPECT_EQ(doc.ocrStatus, OCRStatus::done);
    EXPECT_EQ(doc.pageCount, 2);
    EXPECT_EQ(doc.pageRotations, (std::vector<int> { 0, 180 }));
    EXPECT_FALSE(doc.error);
    EXPECT_EQ(search(QStringLiteral("kundigung")), Ids { job.id });
    EXPECT_TRUE(search(QStringLiteral("beta")).empty());

    // Upright pages store no rotations.
    store->resetOCR({ job.id });
    store->saveOCR(job, { QStringLiteral("delta") }, { 0 }, QStringLiteral("h3"));
    EXPECT_FALSE(column(job.id, QStringLiteral("page_rotations")));
}

// A reading that took long must not overwrite a file that changed, was reset or was read meanwhile.
TEST_F(ScanStoreTest, saveOCRAndMarkOCRFailed_forAStaleJobWriteNothing)
{
    const auto changed = pendingJob(QStringLiteral("changed.pdf"));
    db.run(QStringLiteral("UPDATE documents SET file_size = 4096 WHERE id = ?"), { changed.id });
    const auto touched = pendingJob(QStringLiteral("touched.pdf"));
    db.run(QStringLiteral("UPDATE documents SET file_modified = file_modified + 1 WHERE id = ?"), { touched.id });
    const auto failed = pendingJob(QStringLiteral("failed.pdf"));
    db.run(QStringLiteral("UPDATE documents SET ocr_status = 'failed' WHERE id = ?"), { failed.id });
    const ScanStore::OCRJob deleted { 999, QStringLiteral("deleted.pdf"), 1, 1 };

    for (const auto &job : { changed, touched, failed, deleted }) {
        EXPECT_NO_THROW(store->saveOCR(job, { QStringLiteral("stale") }, { 0 }, QStringLiteral("h")));
        store->markOCRFailed(job, QStringLiteral("PDF is locked"));
    }
    EXPECT_EQ(value(QStringLiteral("SELECT COUNT(*) FROM pages")), QStringLiteral("0"));
    EXPECT_EQ(count(QStringLiteral("ocr_status = 'done' OR error IS NOT NULL")), QStringLiteral("0"));
    EXPECT_EQ(status(changed.id), QStringLiteral("pending/pending"));

    const auto current = pendingJob(QStringLiteral("current.pdf"));
    store->markOCRFailed(current, QStringLiteral("PDF is locked"));
    EXPECT_EQ(status(current.id), QStringLiteral("failed/pending"));
    EXPECT_EQ(column(current.id, QStringLiteral("error")), QStringLiteral("PDF is locked"));
}

TEST_F(ScanStoreTest, saveOCR_failureHalfWayLeavesEverythingAsItWas)
{
    const auto job = pendingJob(QStringLiteral("a.pdf"));
    store->saveOCR(job, { QStringLiteral("original") }, { 0 }, QStringLiteral("h1"));
    store->resetOCR({ job.id });
    db.execute(QStringLiteral("CREATE TRIGGER refuse BEFORE UPDATE OF page_count ON documents "
                              "BEGIN SELECT RAISE(ABORT, 'disk on fire'); END"));

    EXPECT_THROW(store->saveOCR(job, { QStringLiteral("replacement") }, { 0 }, QStringLiteral("h2")), Database::Error);
    EXPECT_EQ(store->pages(job.id), QStringList { QStringLiteral("original") });
    EXPECT_EQ(status(job.id), QStringLiteral("pending/pending"));
    EXPECT_TRUE(search(QStringLiteral("replacement")).empty());
    // The transaction is closed: the store can write again.
    db.execute(QStringLiteral("DROP TRIGGER refuse"));
    store->saveOCR(job, { QStringLiteral("replacement") }, { 0 }, QStringLiteral("h2"));
    EXPECT_EQ(search(QStringLiteral("replacement")), Ids { job.id });
}

// ---- The model's results ----

TEST_F(ScanStoreTest, saveExtraction_filesAPendingScanAndKeepsTheRawAnswer)
{
    const auto id = filed(QStringLiteral("bill.pdf"), QStringLiteral("pending"));
    const auto similar = filed(QStringLiteral("older.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'busy' WHERE id = ?"), { id });
    store->saveExtraction(id, QStringLiteral("ACME Corp."), QStringLiteral("2024-05-01"),
        QStringLiteral("Utility bill"), QStringLiteral("summary"), QStringLiteral("{\"attempts\":[]}"), similar);

    const ScanDocument doc = store->documents(Ids { id }).at(0);
    EXPECT_EQ(doc.extractStatus, ExtractStatus::done);
    EXPECT_EQ(doc.modelOrganization, QStringLiteral("ACME Corp."));
    EXPECT_EQ(doc.organizationName, QStringLiteral("ACME")); // filed under the cleaned answer
    EXPECT_EQ(doc.date, QStringLiteral("2024-05-01"));
    EXPECT_EQ(doc.kind, QStringLiteral("Utility bill"));
    EXPECT_EQ(doc.similarID, similar);
    EXPECT_FALSE(doc.error);
    EXPECT_EQ(store->trace(id), QStringLiteral("{\"attempts\":[]}"));
    EXPECT_EQ(search(QStringLiteral("kind:utility")), Ids { id });
}

// A late answer for a scan edited by hand, filed already or deleted meanwhile is dropped; so is a late
// failure.
TEST_F(ScanStoreTest, saveExtractionAndMarkExtractionFailed_forAScanNoLongerPendingWriteNothing)
{
    const auto manual = filed(QStringLiteral("manual.pdf"), QStringLiteral("manual"));
    const auto done = filed(QStringLiteral("done.pdf"), QStringLiteral("done"));
    for (const auto id : { manual, done, std::int64_t(999) }) {
        store->saveExtraction(id, QStringLiteral("Late Answer Inc"), QStringLiteral("1999-01-01"),
            QStringLiteral("Bill"), QStringLiteral("late"), std::nullopt, std::nullopt);
        store->markExtractionFailed(id, QStringLiteral("Gave up"), QStringLiteral("log"), QStringLiteral("{}"), {});
    }
    EXPECT_EQ(count(QStringLiteral("doc_date IS NOT NULL OR model_organization IS NOT NULL OR extract_log IS NOT "
                                   "NULL OR extract_trace IS NOT NULL OR error IS NOT NULL")),
        QStringLiteral("0"));
    EXPECT_EQ(status(manual), QStringLiteral("done/manual"));
    EXPECT_EQ(status(done), QStringLiteral("done/done"));

    const auto pending = filed(QStringLiteral("p.pdf"), QStringLiteral("pending"));
    store->markExtractionFailed(pending, QStringLiteral("Gave up"), QStringLiteral("log"), QStringLiteral("{}"), {});
    EXPECT_EQ(status(pending), QStringLiteral("done/failed"));
    EXPECT_EQ(store->trace(pending), QStringLiteral("{}"));
    EXPECT_EQ(column(pending, QStringLiteral("error")), QStringLiteral("Gave up"));
}

TEST_F(ScanStoreTest, saveExtraction_dropsOrganizationsWithoutScansButKeepsThoseOfMissingScans)
{
    const auto kept = CatalogueFixtures::insertOrganization(db, QStringLiteral("Kept"));
    const auto ofMissing = CatalogueFixtures::insertOrganization(db, QStringLiteral("Of missing scan"));
    CatalogueFixtures::insertOrganization(db, QStringLiteral("Orphan"));
    add({ .path = QStringLiteral("k.pdf"), .organizationID = kept });
    add({ .path = QStringLiteral("m.pdf"), .missing = true, .organizationID = ofMissing });
    store->saveExtraction(filed(QStringLiteral("new.pdf"), QStringLiteral("pending")), std::nullopt, std::nullopt,
        std::nullopt, std::nullopt, std::nullopt, std::nullopt);

    QStringList names;
    for (const auto &org : store->organizations())
        names.append(org.name);
    EXPECT_EQ(names, (QStringList { QStringLiteral("Kept"), QStringLiteral("Of missing scan") }));
}

// ---- Edits and resets ----

TEST_F(ScanStoreTest, resets_keepHandSetFactsClearErrorsAndNeedText)
{
    const auto manual = filed(QStringLiteral("manual.pdf"), QStringLiteral("manual"));
    const auto done = filed(QStringLiteral("done.pdf"));
    const auto failed = add({ .path = QStringLiteral("failed.pdf"), .ocrStatus = QStringLiteral("failed") });
    const auto untouched = filed(QStringLiteral("other.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'x'"));

    store->resetOCR({ manual, done, failed });
    EXPECT_EQ(status(manual), QStringLiteral("pending/manual"));
    EXPECT_EQ(status(done), QStringLiteral("pending/pending"));
    EXPECT_EQ(status(failed), QStringLiteral("pending/pending"));
    EXPECT_EQ(status(untouched), QStringLiteral("done/done"));
    EXPECT_EQ(count(QStringLiteral("error IS NOT NULL")), QStringLiteral("1"));

    const auto extractManual = filed(QStringLiteral("m2.pdf"), QStringLiteral("manual"));
    const auto extractFailed = filed(QStringLiteral("f2.pdf"), QStringLiteral("failed"));
    const auto waiting = add({ .path = QStringLiteral("waiting.pdf"), .extractStatus = QStringLiteral("failed") });
    store->resetExtraction({ extractManual, extractFailed, waiting });
    EXPECT_EQ(status(extractManual), QStringLiteral("done/pending"));
    EXPECT_EQ(status(extractFailed), QStringLiteral("done/pending"));
    EXPECT_EQ(status(waiting), QStringLiteral("pending/failed"));
}

TEST_F(ScanStoreTest, setDateAndKind_markScansHandSetAndReindexThem)
{
    const Ids ids { filed(QStringLiteral("1.pdf")), filed(QStringLiteral("2.pdf"), QStringLiteral("failed")),
        add({ .path = QStringLiteral("3.pdf") }) };
    const auto other = filed(QStringLiteral("4.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'x'"));

    store->setDate(ids, QStringLiteral("2023-11-30"));
    store->setKind(ids, QStringLiteral("Tax notice"));
    for (const auto &doc : store->documents(ids)) {
        EXPECT_EQ(doc.extractStatus, ExtractStatus::manual);
        EXPECT_FALSE(doc.error);
    }
    EXPECT_EQ(search(QStringLiteral("date:\"2023-11-30\"")), ids);
    EXPECT_EQ(search(QStringLiteral("kind:notice")), ids);
    EXPECT_EQ(status(other), QStringLiteral("done/done"));

    store->setKind({ ids[0] }, std::nullopt);
    EXPECT_FALSE(store->documents({ ids[0] }).at(0).kind);
    EXPECT_EQ(search(QStringLiteral("kind:notice")), (Ids { ids[1], ids[2] }));
}

TEST_F(ScanStoreTest, reextract_resetsModelFiledScansOrOnlyIncompleteOnes)
{
    const auto org = CatalogueFixtures::insertOrganization(db, QStringLiteral("Org"));
    const auto complete = add({ .path = QStringLiteral("1.pdf"),
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("done"),
        .date = QStringLiteral("2024-01-01"),
        .organizationID = org });
    const auto undated = add({ .path = QStringLiteral("2.pdf"),
        .ocrStatus = QStringLiteral("done"),
        .extractStatus = QStringLiteral("done"),
        .organizationID = org });
    const auto failed = filed(QStringLiteral("3.pdf"), QStringLiteral("failed"));
    const auto manual = filed(QStringLiteral("4.pdf"), QStringLiteral("manual"));
    EXPECT_EQ(store->modelExtractionCount(), 3);

    EXPECT_EQ(store->reextractIncomplete(), 2);
    EXPECT_EQ(status(complete), QStringLiteral("done/done"));
    EXPECT_EQ(status(undated), QStringLiteral("done/pending"));
    EXPECT_EQ(status(failed), QStringLiteral("done/pending"));

    EXPECT_EQ(store->reextractModelFiled(), 1);
    EXPECT_EQ(status(complete), QStringLiteral("done/pending"));
    EXPECT_EQ(status(manual), QStringLiteral("done/manual"));
}

} // namespace
