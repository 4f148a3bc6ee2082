#include "store/ScanStore.h"

namespace {
const QString documentSelect = QStringLiteral(
    "SELECT d.id, d.path, d.file_size, d.file_modified, d.page_count, d.missing, d.ocr_status,\n"
    "d.extract_status, d.error, d.organization_id, o.name, d.doc_date, d.model_organization, d.added_at,\n"
    "d.extract_log, d.similar_document_id, s.path, d.doc_kind, d.page_rotations FROM documents d LEFT JOIN "
    "organizations o ON o.id = d.organization_id\n"
    "LEFT JOIN documents s ON s.id = d.similar_document_id");

ScanDocument readDocument(const Statement &row)
{
    ScanDocument doc;
    doc.id = row.int64(0);
    doc.path = row.text(1);
    doc.fileSize = row.int64(2);
    doc.fileModified = dateFromSeconds(row.real(3));
    if (const auto count = row.optionalInt64(4))
        doc.pageCount = int(*count);
    doc.missing = row.boolean(5);
    doc.ocrStatus = ocrStatusFromRaw(row.text(6)).value_or(OCRStatus::pending);
    doc.extractStatus = extractStatusFromRaw(row.text(7)).value_or(ExtractStatus::pending);
    doc.error = row.optionalText(8);
    doc.organizationID = row.optionalInt64(9);
    doc.organizationName = row.optionalText(10);
    doc.date = row.optionalText(11);
    doc.modelOrganization = row.optionalText(12);
    doc.addedAt = dateFromSeconds(row.real(13));
    doc.extractLog = row.optionalText(14);
    doc.similarID = row.optionalInt64(15);
    doc.similarPath = row.optionalText(16);
    doc.kind = row.optionalText(17);
    doc.pageRotations = parsePageRotations(row.optionalText(18));
    return doc;
}

std::vector<ScanDocument> readDocuments(Database &db, const QString &sql)
{
    Statement statement = db.prepare(sql);
    statement.bind({});
    std::vector<ScanDocument> documents;
    while (statement.step())
        documents.push_back(readDocument(statement));
    return documents;
}

QString amongCondition(const std::optional<DocumentIDs> &among)
{
    return among ? QStringLiteral(" AND id IN (") + idList(*among) + QLatin1Char(')') : QString();
}
} // namespace

std::vector<ScanDocument> ScanStore::documents()
{
    return readDocuments(*db_, documentSelect);
}

std::vector<ScanDocument> ScanStore::documents(const DocumentIDs &ids)
{
    if (ids.empty())
        return {};
    return readDocuments(*db_, documentSelect + QStringLiteral(" WHERE d.id IN (") + idList(ids) + QLatin1Char(')'));
}

std::vector<Organization> ScanStore::organizations()
{
    Statement statement
        = db_->prepare(QStringLiteral("SELECT o.id, o.name, COUNT(d.id) FROM organizations o\n"
                                      "LEFT JOIN documents d ON d.organization_id = o.id AND d.missing = 0\n"
                                      "GROUP BY o.id ORDER BY o.name COLLATE NOCASE"));
    statement.bind({});
    std::vector<Organization> organizations;
    while (statement.step())
        organizations.push_back({ statement.int64(0), statement.text(1), int(statement.int64(2)) });
    return organizations;
}

std::vector<Organization> ScanStore::uncountedOrganizations()
{
    Statement statement
        = db_->prepare(QStringLiteral("SELECT id, name FROM organizations ORDER BY name COLLATE NOCASE"));
    statement.bind({});
    std::vector<Organization> organizations;
    while (statement.step())
        organizations.push_back({ statement.int64(0), statement.text(1), 0 });
    return organizations;
}

QStringList ScanStore::pages(std::int64_t documentID)
{
    Statement statement
        = db_->prepare(QStringLiteral("SELECT text FROM pages WHERE document_id = ? ORDER BY page_index"));
    statement.bind({ documentID });
    QStringList pages;
    while (statement.step())
        pages.append(statement.text(0));
    return pages;
}

ScanStore::PendingCounts ScanStore::pendingCounts()
{
    Statement statement = db_->prepare(
        QStringLiteral("SELECT SUM(ocr_status = 'pending'), SUM(ocr_status = 'done' AND extract_status = 'pending')\n"
                       "FROM documents WHERE missing = 0"));
    statement.bind({});
    PendingCounts counts;
    // An aggregate gives exactly one row; its NULL sums read as 0.
    if (statement.step())
        counts = { int(statement.int64(0)), int(statement.int64(1)) };
    return counts;
}

std::optional<ScanStore::OCRJob> ScanStore::nextOCRJob(
    const std::optional<DocumentIDs> &among, const DocumentIDs &excluding)
{
    const QString notExcluded
        = excluding.empty() ? QString() : QStringLiteral(" AND id NOT IN (") + idList(excluding) + QLatin1Char(')');
    Statement statement = db_->prepare(
        QStringLiteral("SELECT id, path, file_size, file_modified FROM documents WHERE ocr_status = 'pending' AND "
                       "missing = 0")
        + amongCondition(among) + notExcluded + QStringLiteral(" ORDER BY added_at DESC, id DESC LIMIT 1"));
    statement.bind({});
    std::optional<OCRJob> job;
    while (statement.step())
        job = OCRJob { statement.int64(0), statement.text(1), statement.int64(2), statement.real(3) };
    return job;
}

std::optional<ScanStore::ExtractionJob> ScanStore::nextExtractionJob(const std::optional<DocumentIDs> &among)
{
    Statement statement = db_->prepare(
        QStringLiteral("SELECT id, path FROM documents WHERE ocr_status = 'done' AND extract_status = 'pending' AND "
                       "missing = 0")
        + amongCondition(among) + QStringLiteral("\nORDER BY added_at DESC, id DESC LIMIT 1"));
    statement.bind({});
    std::optional<ExtractionJob> job;
    while (statement.step())
        job = ExtractionJob { statement.int64(0), statement.text(1), {} };
    if (job)
        job->pages = pages(job->id);
    return job;
}

std::optional<QString> ScanStore::trace(std::int64_t documentID)
{
    Statement statement = db_->prepare(QStringLiteral("SELECT extract_trace FROM documents WHERE id = ?"));
    statement.bind({ documentID });
    std::optional<QString> trace;
    while (statement.step())
        trace = statement.optionalText(0);
    return trace;
}

std::optional<QString> ScanStore::setting(const QString &key)
{
    Statement statement = db_->prepare(QStringLiteral("SELECT value FROM settings WHERE key = ?"));
    statement.bind({ key });
    std::optional<QString> value;
    while (statement.step())
        value = statement.text(0);
    return value;
}

int ScanStore::modelExtractionCount()
{
    Statement statement = db_->prepare(QStringLiteral("SELECT COUNT(*) FROM documents WHERE ocr_status = 'done' AND "
                                                      "missing = 0 AND extract_status IN ('done', 'failed')"));
    statement.bind({});
    int count = 0;
    while (statement.step())
        count = int(statement.int64(0));
    return count;
}

QHash<std::int64_t, QStringList> ScanStore::pageSamples(int length)
{
    Statement statement = db_->prepare(
        QStringLiteral("SELECT p.document_id, substr(p.text, 1, ?) FROM pages p JOIN documents d ON d.id = "
                       "p.document_id\n"
                       "WHERE d.ocr_status = 'done' AND d.missing = 0 ORDER BY p.document_id, p.page_index"));
    statement.bind({ length });
    QHash<std::int64_t, QStringList> samples;
    while (statement.step())
        samples[statement.int64(0)].append(statement.text(1));
    return samples;
}
