#include "support/Printing.h"
#include "support/StoreFixture.h"

using namespace Qt::StringLiterals;

using Ids = std::vector<std::int64_t>;

namespace {

class ScanStoreTest : public StoreFixture {
protected:
    // A scan with statuses "ocr/extract".
    std::int64_t row(const QString &path, const QString &statuses = u"done/done"_s, bool missing = false,
        std::optional<std::int64_t> organization = {})
    {
        return add({ .path = path,
            .ocrStatus = statuses.section(QLatin1Char('/'), 0, 0),
            .extractStatus = statuses.section(QLatin1Char('/'), 1),
            .missing = missing,
            .organizationID = organization });
    }
    ScanStore::OCRJob pendingJob(const QString &path)
    {
        return { add({ .path = path, .fileSize = 2048, .fileModified = 1.5 }), path, 2048, 1.5 };
    }
    QString status(std::int64_t id)
    {
        return value(u"SELECT ocr_status || '/' || extract_status FROM documents WHERE id = %1"_s.arg(id))
            .value_or(QString());
    }
    QString count(const QString &where)
    {
        return value(u"SELECT COUNT(*) FROM documents WHERE "_s + where).value_or(QString());
    }
    std::int64_t organization(const QString &name) { return CatalogueFixtures::insertOrganization(db, name); }
};

// ---- Reads ----

// What no other test reads back; unknown statuses read as pending.
TEST_F(ScanStoreTest, documents_readTheRowWithItsOrganizationAndSimilarScan)
{
    const auto org = CatalogueFixtures::insertOrganization(db, u"Acme Insurance"_s);
    const auto similar = add({ .path = u"old.pdf"_s, .fileModified = 1'700'000'123.5, .addedAt = 9.25 });
    const auto id = add({ .path = u"new.pdf"_s, .organizationID = org });
    db.run(u"UPDATE documents SET extract_log = 'log', similar_document_id = ? WHERE id = ?"_s, { similar, id });
    db.run(u"UPDATE documents SET ocr_status = 'x', extract_status = 'DONE', missing = 7 WHERE id = ?"_s, { similar });

    const ScanDocument doc = store->documents(Ids { id, 999 }).at(0);
    EXPECT_EQ(doc.organizationName, u"Acme Insurance"_s);
    EXPECT_EQ(doc.similarPath, u"old.pdf"_s);
    EXPECT_EQ(doc.extractLog, u"log"_s);
    const ScanDocument old = store->documents(Ids { similar }).at(0);
    EXPECT_EQ(old.fileModified, QDateTime::fromMSecsSinceEpoch(1'700'000'123'500, Qt::UTC));
    EXPECT_EQ(old.addedAt, QDateTime::fromMSecsSinceEpoch(9'250, Qt::UTC));
    EXPECT_EQ(old.ocrStatus, OCRStatus::pending);
    EXPECT_EQ(old.extractStatus, ExtractStatus::pending);
    EXPECT_TRUE(old.missing);
    EXPECT_EQ(store->documents(Ids { id, 999 }).size(), 1u);
    EXPECT_TRUE(store->documents(Ids {}).empty());
}

TEST_F(ScanStoreTest, organizationsAndPendingCounts_countPresentScansOnly)
{
    const auto zeta = organization(u"zeta"_s);
    const auto alpha = organization(u"Alpha"_s);
    const auto empty = organization(u"Beta"_s);
    row(u"1.pdf"_s, u"pending/pending"_s, false, alpha);
    row(u"2.pdf"_s, u"pending/pending"_s, true, alpha);
    row(u"3.pdf"_s, u"done/pending"_s, false, alpha);
    row(u"4.pdf"_s, u"done/pending"_s, true, zeta);
    row(u"5.pdf"_s);
    row(u"6.pdf"_s, u"failed/pending"_s);

    EXPECT_EQ(store->organizations(),
        (std::vector<Organization> { { alpha, u"Alpha"_s, 2 }, { empty, u"Beta"_s, 0 }, { zeta, u"zeta"_s, 0 } }));
    EXPECT_EQ(store->pendingCounts(), (ScanStore::PendingCounts { 1, 1 }));
}

TEST_F(ScanStoreTest, nextJobs_takeTheNewestPresentPendingScan)
{
    EXPECT_FALSE(store->nextOCRJob());
    const auto older = add({ .path = u"older.pdf"_s, .addedAt = 1 });
    const auto tieLow = add({ .path = u"tie-low.pdf"_s, .fileSize = 42, .fileModified = 5.5, .addedAt = 2 });
    const auto tieHigh = add({ .path = u"tie-high.pdf"_s, .addedAt = 2 });
    row(u"missing.pdf"_s, u"pending/pending"_s, true);
    row(u"filed.pdf"_s); // added last
    const auto read = row(u"read.pdf"_s, u"done/pending"_s);
    const auto readLater = row(u"b.pdf"_s, u"done/pending"_s);
    CatalogueFixtures::insertPage(db, readLater, 1, u"b"_s);
    CatalogueFixtures::insertPage(db, readLater, 0, u"a"_s);

    EXPECT_EQ(store->nextOCRJob()->id, tieHigh);
    EXPECT_EQ(store->nextOCRJob(Ids { older, tieLow }), (ScanStore::OCRJob { tieLow, u"tie-low.pdf"_s, 42, 5.5 }));
    EXPECT_FALSE(store->nextOCRJob(Ids {}));
    EXPECT_EQ(store->nextExtractionJob(), (ScanStore::ExtractionJob { readLater, u"b.pdf"_s, { u"a"_s, u"b"_s } }));
    EXPECT_EQ(store->nextExtractionJob(Ids { read, older })->id, read);
    EXPECT_FALSE(store->nextExtractionJob(Ids {}));
}

TEST_F(ScanStoreTest, pageSamples_cutEachPageInCharactersForPresentReadScans)
{
    const auto a = row(u"a.pdf"_s);
    const auto b = row(u"b.pdf"_s);
    const auto pending = row(u"c.pdf"_s, u"pending/pending"_s);
    const auto missing = row(u"d.pdf"_s, u"done/done"_s, true);
    CatalogueFixtures::insertPage(db, a, 1, u"Öffnungszeiten"_s);
    CatalogueFixtures::insertPage(db, a, 0, u"Grüße aus Köln"_s);
    CatalogueFixtures::insertPage(db, b, 0, u"ab"_s);
    CatalogueFixtures::insertPage(db, pending, 0, u"pending"_s);
    CatalogueFixtures::insertPage(db, missing, 0, u"missing"_s);

    const auto samples = store->pageSamples(4);
    EXPECT_EQ(samples.size(), 2);
    EXPECT_EQ(samples.value(a), (QStringList { u"Grüß"_s, u"Öffn"_s }));
    EXPECT_EQ(samples.value(b), QStringList { u"ab"_s });
}

TEST_F(ScanStoreTest, settings_absentUntilWrittenAndRemovedByNoValue)
{
    const QString key = u"instructions"_s;
    EXPECT_FALSE(store->setting(key));
    store->setSetting(key, u"Be précis."_s);
    EXPECT_EQ(store->setting(key), u"Be précis."_s);
    store->setSetting(key, std::nullopt);
    EXPECT_FALSE(store->setting(key));
}

// ---- Text recognition results ----

TEST_F(ScanStoreTest, saveOCR_storesPagesAndFactsAndIndexesTheTextReplacingAnEarlierReading)
{
    const auto job = pendingJob(u"a.pdf"_s);
    db.run(u"UPDATE documents SET error = 'earlier failure' WHERE id = ?"_s, { job.id });
    store->saveOCR(job, { u"alpha"_s, u"beta"_s, u"gamma"_s }, { 90, 0, 0 }, u"h1"_s);
    store->resetOCR({ job.id });
    store->saveOCR(job, { u"Invoice number 42"_s, u"Kündigung bestätigt"_s }, { 0, 180 }, u"h2"_s);

    EXPECT_EQ(store->pages(job.id), (QStringList { u"Invoice number 42"_s, u"Kündigung bestätigt"_s }));
    const ScanDocument doc = store->documents().at(0);
    EXPECT_EQ(doc.ocrStatus, OCRStatus::done);
    EXPECT_EQ(doc.pageCount, 2);
    EXPECT_EQ(doc.pageRotations, (std::vector<int> { 0, 180 }));
    EXPECT_FALSE(doc.error);
    EXPECT_EQ(search(u"kundigung"_s), Ids { job.id });
    EXPECT_TRUE(search(u"beta"_s).empty());

    // Upright pages store no rotations.
    store->resetOCR({ job.id });
    store->saveOCR(job, { u"delta"_s }, { 0 }, u"h3"_s);
    EXPECT_FALSE(column(job.id, u"page_rotations"_s));
}

// A reading that took long must not overwrite a file that changed, was reset or was read meanwhile.
TEST_F(ScanStoreTest, saveOCRAndMarkOCRFailed_forAStaleJobWriteNothing)
{
    const auto changed = pendingJob(u"changed.pdf"_s);
    db.run(u"UPDATE documents SET file_size = 4096 WHERE id = ?"_s, { changed.id });
    const auto touched = pendingJob(u"touched.pdf"_s);
    db.run(u"UPDATE documents SET file_modified = file_modified + 1 WHERE id = ?"_s, { touched.id });
    const auto failed = pendingJob(u"failed.pdf"_s);
    db.run(u"UPDATE documents SET ocr_status = 'failed' WHERE id = ?"_s, { failed.id });
    const ScanStore::OCRJob deleted { 999, u"deleted.pdf"_s, 1, 1 };

    for (const auto &job : { changed, touched, failed, deleted }) {
        EXPECT_NO_THROW(store->saveOCR(job, { u"stale"_s }, { 0 }, u"h"_s));
        store->markOCRFailed(job, u"PDF is locked"_s);
    }
    EXPECT_EQ(value(u"SELECT COUNT(*) FROM pages"_s), u"0"_s);
    EXPECT_EQ(count(u"ocr_status = 'done' OR error IS NOT NULL"_s), u"0"_s);
    EXPECT_EQ(status(changed.id), u"pending/pending"_s);

    const auto current = pendingJob(u"current.pdf"_s);
    store->markOCRFailed(current, u"PDF is locked"_s);
    EXPECT_EQ(status(current.id), u"failed/pending"_s);
    EXPECT_EQ(column(current.id, u"error"_s), u"PDF is locked"_s);
}

// ---- The model's results ----

TEST_F(ScanStoreTest, saveExtraction_filesAPendingScanAndKeepsTheRawAnswer)
{
    const auto id = row(u"bill.pdf"_s, u"done/pending"_s);
    const auto similar = row(u"older.pdf"_s);
    db.run(u"UPDATE documents SET error = 'busy' WHERE id = ?"_s, { id });
    store->saveExtraction(
        id, u"ACME Corp."_s, u"2024-05-01"_s, u"Utility bill"_s, u"summary"_s, u"{\"attempts\":[]}"_s, similar);

    const ScanDocument doc = store->documents(Ids { id }).at(0);
    EXPECT_EQ(doc.extractStatus, ExtractStatus::done);
    EXPECT_EQ(doc.modelOrganization, u"ACME Corp."_s);
    EXPECT_EQ(doc.organizationName, u"ACME"_s); // filed under the cleaned answer
    EXPECT_EQ(doc.date, u"2024-05-01"_s);
    EXPECT_EQ(doc.kind, u"Utility bill"_s);
    EXPECT_EQ(doc.similarID, similar);
    EXPECT_FALSE(doc.error);
    EXPECT_EQ(store->trace(id), u"{\"attempts\":[]}"_s);
    EXPECT_EQ(search(u"kind:utility"_s), Ids { id });
}

// A late answer for a scan edited by hand, filed already or deleted meanwhile is dropped; so is a late
// failure.
TEST_F(ScanStoreTest, saveExtractionAndMarkExtractionFailed_forAScanNoLongerPendingWriteNothing)
{
    const auto manual = row(u"manual.pdf"_s, u"done/manual"_s);
    const auto done = row(u"done.pdf"_s);
    for (const auto id : { manual, done, std::int64_t(999) }) {
        store->saveExtraction(
            id, u"Late Answer Inc"_s, u"1999-01-01"_s, u"Bill"_s, u"late"_s, std::nullopt, std::nullopt);
        store->markExtractionFailed(id, u"Gave up"_s, u"log"_s, u"{}"_s, {});
    }
    EXPECT_EQ(count(QStringLiteral("doc_date IS NOT NULL OR model_organization IS NOT NULL OR extract_log IS NOT "
                                   "NULL OR extract_trace IS NOT NULL OR error IS NOT NULL")),
        u"0"_s);
    EXPECT_EQ(status(manual), u"done/manual"_s);
    EXPECT_EQ(status(done), u"done/done"_s);

    const auto pending = row(u"p.pdf"_s, u"done/pending"_s);
    store->markExtractionFailed(pending, u"Gave up"_s, u"log"_s, u"{}"_s, {});
    EXPECT_EQ(status(pending), u"done/failed"_s);
    EXPECT_EQ(store->trace(pending), u"{}"_s);
    EXPECT_EQ(column(pending, u"error"_s), u"Gave up"_s);
}

TEST_F(ScanStoreTest, saveExtraction_dropsOrganizationsWithoutScansButKeepsThoseOfMissingScans)
{
    row(u"k.pdf"_s, u"done/done"_s, false, organization(u"Kept"_s));
    row(u"m.pdf"_s, u"done/done"_s, true, organization(u"Of missing scan"_s));
    organization(u"Orphan"_s);
    store->saveExtraction(row(u"new.pdf"_s, u"done/pending"_s), std::nullopt, std::nullopt, std::nullopt, std::nullopt,
        std::nullopt, std::nullopt);

    QStringList names;
    for (const auto &org : store->organizations())
        names.append(org.name);
    EXPECT_EQ(names, (QStringList { u"Kept"_s, u"Of missing scan"_s }));
}

// ---- Edits and resets ----

TEST_F(ScanStoreTest, resets_keepHandSetFactsClearErrorsAndNeedText)
{
    const auto manual = row(u"manual.pdf"_s, u"done/manual"_s);
    const auto done = row(u"done.pdf"_s);
    const auto failed = row(u"failed.pdf"_s, u"failed/pending"_s);
    const auto untouched = row(u"other.pdf"_s);
    db.run(u"UPDATE documents SET error = 'x'"_s);

    store->resetOCR({ manual, done, failed });
    EXPECT_EQ(status(manual), u"pending/manual"_s);
    EXPECT_EQ(status(done), u"pending/pending"_s);
    EXPECT_EQ(status(failed), u"pending/pending"_s);
    EXPECT_EQ(status(untouched), u"done/done"_s);
    EXPECT_EQ(count(u"error IS NOT NULL"_s), u"1"_s);

    const auto extractManual = row(u"m2.pdf"_s, u"done/manual"_s);
    const auto extractFailed = row(u"f2.pdf"_s, u"done/failed"_s);
    const auto waiting = row(u"waiting.pdf"_s, u"pending/failed"_s);
    store->resetExtraction({ extractManual, extractFailed, waiting });
    EXPECT_EQ(status(extractManual), u"done/pending"_s);
    EXPECT_EQ(status(extractFailed), u"done/pending"_s);
    EXPECT_EQ(status(waiting), u"pending/failed"_s);
}

TEST_F(ScanStoreTest, setDateAndKind_markScansHandSetAndReindexThem)
{
    const Ids ids { row(u"1.pdf"_s), row(u"2.pdf"_s, u"done/failed"_s), row(u"3.pdf"_s, u"pending/pending"_s) };
    const auto other = row(u"4.pdf"_s);
    db.run(u"UPDATE documents SET error = 'x'"_s);

    store->setDate(ids, u"2023-11-30"_s);
    store->setKind(ids, u"Tax notice"_s);
    for (const auto &doc : store->documents(ids)) {
        EXPECT_EQ(doc.extractStatus, ExtractStatus::manual);
        EXPECT_FALSE(doc.error);
    }
    EXPECT_EQ(search(u"date:\"2023-11-30\""_s), ids);
    EXPECT_EQ(search(u"kind:notice"_s), ids);
    EXPECT_EQ(status(other), u"done/done"_s);

    store->setKind({ ids[0] }, std::nullopt);
    EXPECT_FALSE(store->documents({ ids[0] }).at(0).kind);
    EXPECT_EQ(search(u"kind:notice"_s), (Ids { ids[1], ids[2] }));
}

TEST_F(ScanStoreTest, reextract_resetsModelFiledScansOrOnlyIncompleteOnes)
{
    const auto org = organization(u"Org"_s);
    const auto complete = row(u"1.pdf"_s, u"done/done"_s, false, org);
    db.run(u"UPDATE documents SET doc_date = '2024-01-01' WHERE id = ?"_s, { complete });
    const auto undated = row(u"2.pdf"_s, u"done/done"_s, false, org);
    const auto failed = row(u"3.pdf"_s, u"done/failed"_s);
    const auto manual = row(u"4.pdf"_s, u"done/manual"_s);
    EXPECT_EQ(store->modelExtractionCount(), 3);

    EXPECT_EQ(store->reextractIncomplete(), 2);
    EXPECT_EQ(status(complete), u"done/done"_s);
    EXPECT_EQ(status(undated), u"done/pending"_s);
    EXPECT_EQ(status(failed), u"done/pending"_s);

    EXPECT_EQ(store->reextractModelFiled(), 1);
    EXPECT_EQ(status(complete), u"done/pending"_s);
    EXPECT_EQ(status(manual), u"done/manual"_s);
}

} // namespace
