#include "support/CatalogueFixtures.h"

#include "store/Migrations.h"
#include "store/ScanStore.h"
#include "store/Transaction.h"

#include <QDir>

namespace CatalogueFixtures {

void createCatalogue(const QString &folder, int version)
{
    Database db(QDir(folder).filePath(ScanStore::fileName));
    for (int step = 0; step < version; ++step)
        inImmediateTransaction(db, [&] { db.execute(Migrations::steps().at(step)); });
}

std::int64_t insertDocument(Database &db, const Row &row)
{
    db.run(QStringLiteral("INSERT INTO documents (path, file_size, file_modified, added_at, ocr_status, "
                          "extract_status, missing, doc_date, organization_id) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
        { row.path, row.fileSize, row.fileModified, row.addedAt, row.ocrStatus, row.extractStatus, row.missing,
            row.date, row.organizationID ? std::optional<SQLValue>(*row.organizationID) : std::nullopt });
    return db.lastInsertID();
}

std::int64_t insertOrganization(Database &db, const QString &name)
{
    db.run(QStringLiteral("INSERT INTO organizations (name, created_at) VALUES (?, 0)"), { name });
    return db.lastInsertID();
}

void insertPage(Database &db, std::int64_t documentID, int pageIndex, const QString &text)
{
    db.run(QStringLiteral("INSERT INTO pages (document_id, page_index, text) VALUES (?, ?, ?)"),
        { documentID, pageIndex, text });
}

std::vector<std::int64_t> ftsMatches(Database &db, const QString &match)
{
    Statement statement
        = db.prepare(QStringLiteral("SELECT rowid FROM documents_fts WHERE documents_fts MATCH ? ORDER BY rowid"));
    statement.bind({ match });
    std::vector<std::int64_t> ids;
    while (statement.step())
        ids.push_back(statement.int64(0));
    return ids;
}

std::optional<QString> scalar(Database &db, const QString &sql)
{
    Statement statement = db.prepare(sql);
    statement.bind({});
    if (!statement.step())
        return std::nullopt;
    return statement.optionalText(0);
}

} // namespace CatalogueFixtures
