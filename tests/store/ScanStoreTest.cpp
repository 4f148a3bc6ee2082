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

// Reading, filing and editing are tested through the Library; these are the store's own edges and the
// guards that keep late results from overwriting newer ones.

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

    // Read again, a scan's pages and search entry are those of the new reading; upright pages store no
    // rotations.
    store->resetOCR({ current.id });
    store->saveOCR(current, { u"alpha"_s, u"beta"_s, u"gamma"_s }, { 90, 0, 0 }, u"h1"_s);
    store->resetOCR({ current.id });
    store->saveOCR(current, { u"Kündigung bestätigt"_s }, { 0 }, u"h2"_s);
    EXPECT_EQ(store->pages(current.id), QStringList { u"Kündigung bestätigt"_s });
    EXPECT_EQ(search(u"kundigung"_s), Ids { current.id });
    EXPECT_TRUE(search(u"beta"_s).empty());
    EXPECT_FALSE(column(current.id, u"page_rotations"_s));
}

// A late answer for a scan edited by hand, filed already or deleted meanwhile is dropped; so is a late
// failure.
TEST_F(ScanStoreTest, saveExtractionAndMarkExtractionFailed_forAScanNoLongerPendingWriteNothing)
{
    const auto manual = row(u"manual.pdf"_s, u"done/manual"_s);
    const auto done = row(u"done.pdf"_s, u"done/done"_s, true, organization(u"Of a missing scan"_s));
    organization(u"Orphan"_s);
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
    EXPECT_EQ(store->organizations().size(), 2u);

    const auto pending = row(u"p.pdf"_s, u"done/pending"_s);
    store->markExtractionFailed(pending, u"Gave up"_s, u"log"_s, u"{}"_s, {});
    EXPECT_EQ(status(pending), u"done/failed"_s);
    EXPECT_EQ(store->trace(pending), u"{}"_s);
    // Filing drops organizations left without scans, but not those of scans that are only missing.
    store->saveExtraction(row(u"new.pdf"_s, u"done/pending"_s), std::nullopt, std::nullopt, std::nullopt, std::nullopt,
        std::nullopt, std::nullopt);
    ASSERT_EQ(store->organizations().size(), 1u);
    EXPECT_EQ(store->organizations().at(0).name, u"Of a missing scan"_s);
}

// Reading or asking the model again never undoes what a person set by hand.
TEST_F(ScanStoreTest, resetsKeepHandSetFactsAndClearErrors)
{
    const auto org = organization(u"Org"_s);
    const auto complete = row(u"1.pdf"_s, u"done/done"_s, false, org);
    db.run(u"UPDATE documents SET doc_date = '2024-01-01' WHERE id = ?"_s, { complete });
    const auto undated = row(u"2.pdf"_s, u"done/done"_s, false, org);
    const auto manual = row(u"3.pdf"_s, u"done/manual"_s);
    EXPECT_EQ(store->reextractIncomplete(), 1);
    EXPECT_EQ(status(undated), u"done/pending"_s);
    EXPECT_EQ(store->reextractModelFiled(), 1);
    EXPECT_EQ(status(complete), u"done/pending"_s);
    EXPECT_EQ(status(manual), u"done/manual"_s);

    const auto waiting = row(u"4.pdf"_s, u"pending/failed"_s);
    db.run(u"UPDATE documents SET error = 'x'"_s);
    store->resetExtraction({ manual, waiting });
    EXPECT_EQ(status(manual), u"done/pending"_s);
    EXPECT_EQ(status(waiting), u"pending/failed"_s);
    store->setKind({ complete }, u"Tax notice"_s);
    store->resetOCR({ complete, manual });
    EXPECT_EQ(status(complete), u"pending/manual"_s);
    EXPECT_EQ(status(manual), u"pending/pending"_s);
    EXPECT_EQ(count(u"error IS NOT NULL"_s), u"2"_s);
    EXPECT_EQ(search(u"kind:notice"_s), Ids { complete });
}

} // namespace
