#include "core/OrgMatching.h"
#include "store/Migrations.h"
#include "store/ScanStore.h"
#include "store/Transaction.h"

#include <algorithm>

namespace {
double now()
{
    return secondsSince1970(QDateTime::currentDateTimeUtc());
}

// NULL when every page is upright, else every rotation, such as "0,180".
std::optional<QString> rotationsText(const std::vector<int> &rotations)
{
    if (std::all_of(rotations.begin(), rotations.end(), [](int r) { return r == 0; }))
        return std::nullopt;
    QStringList pieces;
    for (const int rotation : rotations)
        pieces.append(QString::number(rotation));
    return pieces.join(QLatin1Char(','));
}

std::optional<SQLValue> optionalID(std::optional<std::int64_t> id)
{
    return id ? std::optional<SQLValue>(*id) : std::nullopt;
}
} // namespace

bool ScanStore::isCurrent(const OCRJob &job)
{
    Statement statement = db_->prepare(QStringLiteral(
        "SELECT 1 FROM documents WHERE id = ? AND file_size = ? AND file_modified = ? AND ocr_status = 'pending'"));
    statement.bind({ job.id, job.size, job.modified });
    return statement.step();
}

void ScanStore::reindex(const DocumentIDs &ids)
{
    if (ids.empty())
        return;
    const QString list = idList(ids);
    db_->run(QStringLiteral("DELETE FROM documents_fts WHERE rowid IN (") + list + QLatin1Char(')'));
    db_->run(Migrations::fullTextFill() + QStringLiteral("d.id IN (") + list + QLatin1Char(')'));
}

void ScanStore::saveOCR(
    const OCRJob &job, const QStringList &pages, const std::vector<int> &rotations, const QString &sha256)
{
    const std::optional<QString> rotationsColumn = rotationsText(rotations);
    bool saved = false;
    inImmediateTransaction(*db_, [&] {
        if (!isCurrent(job))
            return;
        db_->run(QStringLiteral("DELETE FROM pages WHERE document_id = ?"), { job.id });
        Statement insert
            = db_->prepare(QStringLiteral("INSERT INTO pages (document_id, page_index, text) VALUES (?, ?, ?)"));
        for (int index = 0; index < pages.size(); ++index) {
            insert.bind({ job.id, index, pages[index] });
            while (insert.step()) { }
        }
        db_->run(QStringLiteral("UPDATE documents SET ocr_status = 'done', ocr_at = ?, page_count = ?, sha256 = ?, "
                                "page_rotations = ?, error = NULL WHERE id = ?"),
            { now(), int(pages.size()), sha256, rotationsColumn, job.id });
        reindex({ job.id });
        saved = true;
    });
    // Only what was committed goes into the similar-scan fingerprints.
    if (saved && fingerprints_)
        fingerprints_->replace(job.id, Similarity::fingerprint(pages.value(0)));
}

void ScanStore::saveExtraction(std::int64_t id, const std::optional<QString> &organization,
    const std::optional<QString> &date, const std::optional<QString> &kind, const std::optional<QString> &log,
    const std::optional<QString> &trace, std::optional<std::int64_t> similarTo)
{
    inImmediateTransaction(*db_, [&] {
        Statement status = db_->prepare(QStringLiteral("SELECT extract_status FROM documents WHERE id = ?"));
        status.bind({ id });
        if (!status.step() || status.text(0) != rawValue(ExtractStatus::pending))
            return;
        std::optional<std::int64_t> organizationID;
        if (organization)
            if (const auto cleaned = OrgMatching::clean(*organization))
                organizationID = resolveOrganization(*cleaned, true, false);
        // The answer itself is kept as the model gave it: it is what a later correction learns from.
        db_->run(
            QStringLiteral("UPDATE documents SET extract_status = 'done', extracted_at = ?, organization_id = ?, "
                           "doc_date = ?,\nmodel_organization = ?, error = NULL, extract_log = ?, extract_trace = ?, "
                           "similar_document_id = ?, doc_kind = ? WHERE id = ?"),
            { now(), optionalID(organizationID), date, organization, log, trace, optionalID(similarTo), kind, id });
        reindex({ id });
        removeUnusedOrganizations();
    });
}

void ScanStore::resetOCR(const DocumentIDs &ids)
{
    db_->run(QStringLiteral("UPDATE documents SET ocr_status = 'pending', error = NULL,\n"
                            "extract_status = CASE extract_status WHEN 'manual' THEN 'manual' ELSE 'pending' END\n"
                            "WHERE id IN (")
        + idList(ids) + QLatin1Char(')'));
}

void ScanStore::resetExtraction(const DocumentIDs &ids)
{
    db_->run(QStringLiteral("UPDATE documents SET extract_status = 'pending', error = NULL WHERE id IN (") + idList(ids)
        + QStringLiteral(") AND ocr_status = 'done'"));
}

void ScanStore::setKind(const DocumentIDs &ids, const std::optional<QString> &kind)
{
    setByHand(ids, QStringLiteral("doc_kind"), kind);
}

void ScanStore::setDate(const DocumentIDs &ids, const std::optional<QString> &date)
{
    setByHand(ids, QStringLiteral("doc_date"), date);
}

void ScanStore::setByHand(const DocumentIDs &ids, const QString &column, const std::optional<QString> &value)
{
    inImmediateTransaction(*db_, [&] {
        db_->run(QStringLiteral("UPDATE documents SET ") + column
                + QStringLiteral(" = ?, extract_status = 'manual', error = NULL WHERE id IN (") + idList(ids)
                + QLatin1Char(')'),
            { value });
        reindex(ids);
    });
}

void ScanStore::setSetting(const QString &key, const std::optional<QString> &value)
{
    if (value)
        db_->run(QStringLiteral("INSERT INTO settings (key, value) VALUES (?, ?) ON CONFLICT(key) DO UPDATE SET "
                                "value = excluded.value"),
            { key, *value });
    else
        db_->run(QStringLiteral("DELETE FROM settings WHERE key = ?"), { key });
}

void ScanStore::markOCRFailed(const OCRJob &job, const QString &error)
{
    db_->run(QStringLiteral("UPDATE documents SET ocr_status = 'failed', ocr_at = ?, error = ? WHERE id = ? AND "
                            "file_size = ? AND file_modified = ? AND ocr_status = 'pending'"),
        { now(), error, job.id, job.size, job.modified });
}

void ScanStore::markExtractionFailed(std::int64_t id, const QString &error, const std::optional<QString> &log,
    const std::optional<QString> &trace, std::optional<std::int64_t> similarTo)
{
    db_->run(QStringLiteral("UPDATE documents SET extract_status = 'failed', extracted_at = ?, error = ?, "
                            "extract_log = ?, extract_trace = ?,\n"
                            "similar_document_id = ? WHERE id = ? AND extract_status = 'pending'"),
        { now(), error, log, trace, optionalID(similarTo), id });
}

int ScanStore::reextractModelFiled()
{
    return db_->run(QStringLiteral("UPDATE documents SET extract_status = 'pending', error = NULL WHERE ocr_status = "
                                   "'done' AND extract_status IN ('done', 'failed')"));
}

int ScanStore::reextractIncomplete()
{
    return db_->run(
        QStringLiteral("UPDATE documents SET extract_status = 'pending', error = NULL\n"
                       "WHERE ocr_status = 'done' AND extract_status IN ('done', 'failed') AND (organization_id IS "
                       "NULL OR doc_date IS NULL)"));
}
