#include "support/StoreFixture.h"

using Ids = std::vector<std::int64_t>;

namespace {

class ScanStoreWrites : public StoreFixture {
protected:
    ScanStore::OCRJob pendingJob(const QString &path)
    {
        const auto id = add({ .path = path, .fileSize = 2048, .fileModified = 1'700'000'000.5 });
        return { id, path, 2048, 1'700'000'000.5 };
    }
    std::int64_t filed(const QString &path, const QString &extractStatus = QStringLiteral("done"))
    {
        return add({ .path = path, .ocrStatus = QStringLiteral("done"), .extractStatus = extractStatus });
    }
    QString status(std::int64_t id)
    {
        return column(id, QStringLiteral("ocr_status")).value_or(QString()) + QLatin1Char('/')
            + column(id, QStringLiteral("extract_status")).value_or(QString());
    }
};

TEST_F(ScanStoreWrites, saveOCR_storesPagesAndFactsAndIndexesTheText)
{
    const auto job = pendingJob(QStringLiteral("a.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'earlier failure' WHERE id = ?"), { job.id });
    store->saveOCR(job, { QStringLiteral("Invoice number 42"), QStringLiteral("Kündigung bestätigt") }, { 0, 180 },
        QStringLiteral("abc123"));

    EXPECT_EQ(store->pages(job.id),
        (QStringList { QStringLiteral("Invoice number 42"), QStringLiteral("Kündigung bestätigt") }));
    const ScanDocument doc = store->documents().at(0);
    EXPECT_EQ(doc.ocrStatus, OCRStatus::done);
    EXPECT_EQ(doc.pageCount, 2);
    EXPECT_EQ(doc.pageRotations, (std::vector<int> { 0, 180 }));
    EXPECT_FALSE(doc.error);
    EXPECT_EQ(search(QStringLiteral("invoice")), Ids { job.id });
    EXPECT_EQ(search(QStringLiteral("kundigung")), Ids { job.id });
}

TEST_F(ScanStoreWrites, saveOCR_uprightPagesStoreNoRotationsAndANewReadingReplacesOldPages)
{
    const auto job = pendingJob(QStringLiteral("a.pdf"));
    store->saveOCR(job, { QStringLiteral("alpha"), QStringLiteral("beta"), QStringLiteral("gamma") }, { 90, 0, 0 },
        QStringLiteral("h1"));
    store->resetOCR({ job.id });
    store->saveOCR(job, { QStringLiteral("delta") }, { 0 }, QStringLiteral("h2"));

    EXPECT_EQ(store->pages(job.id), QStringList { QStringLiteral("delta") });
    EXPECT_FALSE(column(job.id, QStringLiteral("page_rotations")));
    EXPECT_TRUE(search(QStringLiteral("beta")).empty());
    EXPECT_EQ(search(QStringLiteral("delta")), Ids { job.id });
}

// A reading that took long must not overwrite a file that changed, was reset or was read meanwhile.
TEST_F(ScanStoreWrites, saveOCR_staleJobWritesNothing)
{
    const auto changed = pendingJob(QStringLiteral("changed.pdf"));
    db.run(QStringLiteral("UPDATE documents SET file_size = 4096 WHERE id = ?"), { changed.id });
    const auto touched = pendingJob(QStringLiteral("touched.pdf"));
    db.run(QStringLiteral("UPDATE documents SET file_modified = file_modified + 1 WHERE id = ?"), { touched.id });
    const auto failed = pendingJob(QStringLiteral("failed.pdf"));
    db.run(QStringLiteral("UPDATE documents SET ocr_status = 'failed' WHERE id = ?"), { failed.id });
    const ScanStore::OCRJob deleted { 999, QStringLiteral("deleted.pdf"), 1, 1 };

    for (const auto &job : { changed, touched, failed, deleted })
        EXPECT_NO_THROW(store->saveOCR(job, { QStringLiteral("stale") }, { 0 }, QStringLiteral("h")))
            << job.path.toStdString();

    EXPECT_EQ(value(QStringLiteral("SELECT COUNT(*) FROM pages")), QStringLiteral("0"));
    EXPECT_EQ(value(QStringLiteral("SELECT COUNT(*) FROM documents WHERE ocr_status = 'done'")), QStringLiteral("0"));
    EXPECT_TRUE(search(QStringLiteral("stale")).empty());
}

TEST_F(ScanStoreWrites, saveOCR_failureHalfWayLeavesEverythingAsItWas)
{
    const auto job = pendingJob(QStringLiteral("a.pdf"));
    store->saveOCR(job, { QStringLiteral("original") }, { 0 }, QStringLiteral("h1"));
    store->resetOCR({ job.id });
    db.execute(QStringLiteral("CREATE TRIGGER refuse BEFORE UPDATE OF page_count ON documents "
                              "BEGIN SELECT RAISE(ABORT, 'disk on fire'); END"));

    try {
        store->saveOCR(job, { QStringLiteral("replacement"), QStringLiteral("pages") }, { 0, 0 }, QStringLiteral("h2"));
        FAIL() << "the failing update was not reported";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("disk on fire"));
    }
    EXPECT_EQ(store->pages(job.id), QStringList { QStringLiteral("original") });
    EXPECT_EQ(status(job.id), QStringLiteral("pending/pending"));
    EXPECT_EQ(search(QStringLiteral("original")), Ids { job.id });
    EXPECT_TRUE(search(QStringLiteral("replacement")).empty());
    // The transaction is closed: the store can write again.
    db.execute(QStringLiteral("DROP TRIGGER refuse"));
    store->saveOCR(job, { QStringLiteral("replacement") }, { 0 }, QStringLiteral("h2"));
    EXPECT_EQ(search(QStringLiteral("replacement")), Ids { job.id });
}

TEST_F(ScanStoreWrites, saveExtraction_filesPendingScanAndKeepsTheRawAnswer)
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

TEST_F(ScanStoreWrites, saveExtraction_scanNoLongerPendingIsLeftAlone)
{
    const auto manual = filed(QStringLiteral("manual.pdf"), QStringLiteral("manual"));
    const auto done = filed(QStringLiteral("done.pdf"), QStringLiteral("done"));
    for (const auto id : { manual, done, std::int64_t(999) })
        store->saveExtraction(id, QStringLiteral("Late Answer Inc"), QStringLiteral("1999-01-01"),
            QStringLiteral("Bill"), QStringLiteral("late"), std::nullopt, std::nullopt);
    EXPECT_EQ(value(QStringLiteral("SELECT COUNT(*) FROM documents WHERE doc_date IS NOT NULL OR "
                                   "model_organization IS NOT NULL OR extract_log IS NOT NULL")),
        QStringLiteral("0"));
    EXPECT_EQ(status(manual), QStringLiteral("done/manual"));
}

TEST_F(ScanStoreWrites, saveExtraction_dropsOrganizationsWithoutScansButKeepsThoseOfMissingScans)
{
    const auto kept = CatalogueFixtures::insertOrganization(db, QStringLiteral("Kept"));
    const auto ofMissing = CatalogueFixtures::insertOrganization(db, QStringLiteral("Of missing scan"));
    CatalogueFixtures::insertOrganization(db, QStringLiteral("Orphan"));
    add({ .path = QStringLiteral("k.pdf"), .organizationID = kept });
    add({ .path = QStringLiteral("m.pdf"), .missing = true, .organizationID = ofMissing });
    const auto id = filed(QStringLiteral("new.pdf"), QStringLiteral("pending"));

    store->saveExtraction(id, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
    std::vector<QString> names;
    for (const auto &org : store->organizations())
        names.push_back(org.name);
    EXPECT_EQ(names, (std::vector<QString> { QStringLiteral("Kept"), QStringLiteral("Of missing scan") }));
    EXPECT_EQ(status(id), QStringLiteral("done/done"));
}

TEST_F(ScanStoreWrites, resetOCR_keepsHandSetFactsAndClearsErrors)
{
    const auto manual = filed(QStringLiteral("manual.pdf"), QStringLiteral("manual"));
    const auto done = filed(QStringLiteral("done.pdf"));
    const auto failed = add({ .path = QStringLiteral("failed.pdf"), .ocrStatus = QStringLiteral("failed") });
    const auto untouched = filed(QStringLiteral("other.pdf"));
    db.run(QStringLiteral("UPDATE documents SET error = 'x'"));

    store->resetOCR({});
    EXPECT_EQ(status(done), QStringLiteral("done/done"));
    store->resetOCR({ manual, done, failed });
    EXPECT_EQ(status(manual), QStringLiteral("pending/manual"));
    EXPECT_EQ(status(done), QStringLiteral("pending/pending"));
    EXPECT_EQ(status(failed), QStringLiteral("pending/pending"));
    EXPECT_EQ(status(untouched), QStringLiteral("done/done"));
    EXPECT_EQ(value(QStringLiteral("SELECT COUNT(*) FROM documents WHERE error IS NOT NULL")), QStringLiteral("1"));
}

TEST_F(ScanStoreWrites, resetExtraction_onlyTouchesScansWithText)
{
    const auto manual = filed(QStringLiteral("manual.pdf"), QStringLiteral("manual"));
    const auto failed = filed(QStringLiteral("failed.pdf"), QStringLiteral("failed"));
    const auto waiting = add({ .path = QStringLiteral("waiting.pdf"), .extractStatus = QStringLiteral("failed") });
    store->resetExtraction({ manual, failed, waiting });
    EXPECT_EQ(status(manual), QStringLiteral("done/pending"));
    EXPECT_EQ(status(failed), QStringLiteral("done/pending"));
    EXPECT_EQ(status(waiting), QStringLiteral("pending/failed"));
}

TEST_F(ScanStoreWrites, setDateAndKind_markScansHandSetAndReindexThem)
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
        EXPECT_EQ(doc.date, QStringLiteral("2023-11-30"));
        EXPECT_EQ(doc.kind, QStringLiteral("Tax notice"));
    }
    EXPECT_EQ(search(QStringLiteral("date:\"2023-11-30\"")), ids);
    EXPECT_EQ(search(QStringLiteral("kind:notice")), ids);
    EXPECT_EQ(status(other), QStringLiteral("done/done"));

    store->setKind({ ids[0] }, std::nullopt);
    EXPECT_FALSE(store->documents({ ids[0] }).at(0).kind);
    EXPECT_EQ(search(QStringLiteral("kind:notice")), (Ids { ids[1], ids[2] }));
}

TEST_F(ScanStoreWrites, markOCRFailed_onlyForTheFileTheJobRead)
{
    const auto job = pendingJob(QStringLiteral("a.pdf"));
    const auto changed = pendingJob(QStringLiteral("b.pdf"));
    db.run(QStringLiteral("UPDATE documents SET file_size = 1 WHERE id = ?"), { changed.id });
    store->markOCRFailed(job, QStringLiteral("PDF is locked"));
    store->markOCRFailed(changed, QStringLiteral("PDF is locked"));
    EXPECT_EQ(status(job.id), QStringLiteral("failed/pending"));
    EXPECT_EQ(store->documents({ job.id }).at(0).error, QStringLiteral("PDF is locked"));
    EXPECT_EQ(status(changed.id), QStringLiteral("pending/pending"));
}

TEST_F(ScanStoreWrites, markExtractionFailed_onlyForPendingScans)
{
    const auto pending = filed(QStringLiteral("p.pdf"), QStringLiteral("pending"));
    const auto manual = filed(QStringLiteral("m.pdf"), QStringLiteral("manual"));
    for (const auto id : { pending, manual })
        store->markExtractionFailed(
            id, QStringLiteral("Gave up"), QStringLiteral("log"), QStringLiteral("{}"), std::nullopt);
    EXPECT_EQ(status(pending), QStringLiteral("done/failed"));
    EXPECT_EQ(store->trace(pending), QStringLiteral("{}"));
    EXPECT_EQ(store->documents({ pending }).at(0).error, QStringLiteral("Gave up"));
    EXPECT_EQ(status(manual), QStringLiteral("done/manual"));
    EXPECT_FALSE(store->trace(manual));
}

TEST_F(ScanStoreWrites, reextract_resetsModelFiledScansOrOnlyIncompleteOnes)
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

    EXPECT_EQ(store->reextractIncomplete(), 2);
    EXPECT_EQ(status(complete), QStringLiteral("done/done"));
    EXPECT_EQ(status(undated), QStringLiteral("done/pending"));
    EXPECT_EQ(status(failed), QStringLiteral("done/pending"));

    EXPECT_EQ(store->reextractModelFiled(), 1);
    EXPECT_EQ(status(complete), QStringLiteral("done/pending"));
    EXPECT_EQ(status(manual), QStringLiteral("done/manual"));
}

} // namespace
