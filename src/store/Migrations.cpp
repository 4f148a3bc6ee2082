#include "store/Migrations.h"

#include "store/Database.h"
#include "store/Transaction.h"

QString Migrations::fullTextFill()
{
    return QStringLiteral(
        "INSERT INTO documents_fts (rowid, name, organization, date, kind, text)\n"
        "SELECT d.id, d.path, COALESCE(o.name, ''), COALESCE(d.doc_date, ''), COALESCE(d.doc_kind, ''),\n"
        "    COALESCE((SELECT group_concat(text, char(10)) FROM (SELECT text FROM pages WHERE document_id = d.id "
        "ORDER BY page_index)), '')\n"
        "FROM documents d LEFT JOIN organizations o ON o.id = d.organization_id WHERE ");
}

const QStringList &Migrations::steps()
{
    static const QStringList scripts = {
        QStringLiteral("CREATE TABLE organizations (\n"
                       "    id INTEGER PRIMARY KEY,\n"
                       "    name TEXT NOT NULL UNIQUE COLLATE NOCASE,\n"
                       "    named_by_user INTEGER NOT NULL DEFAULT 0,  -- else auto-named by the model\n"
                       "    created_at REAL NOT NULL\n"
                       ");\n"
                       "-- Names (OrgMatching.key) that were merged away, so the model's\n"
                       "-- future answers land on the surviving organization.\n"
                       "CREATE TABLE organization_aliases (\n"
                       "    alias_key TEXT PRIMARY KEY,\n"
                       "    organization_id INTEGER NOT NULL REFERENCES organizations(id) ON DELETE CASCADE\n"
                       ");\n"
                       "CREATE TABLE documents (\n"
                       "    id INTEGER PRIMARY KEY,\n"
                       "    path TEXT NOT NULL UNIQUE,            -- relative to the folder\n"
                       "    file_size INTEGER NOT NULL,\n"
                       "    file_modified REAL NOT NULL,          -- seconds since 1970\n"
                       "    sha256 TEXT,\n"
                       "    page_count INTEGER,\n"
                       "    missing INTEGER NOT NULL DEFAULT 0,   -- file no longer in the folder\n"
                       "    ocr_status TEXT NOT NULL DEFAULT 'pending',      -- pending|done|failed\n"
                       "    ocr_at REAL,\n"
                       "    extract_status TEXT NOT NULL DEFAULT 'pending',  -- pending|done|failed|manual\n"
                       "    extracted_at REAL,\n"
                       "    error TEXT,\n"
                       "    organization_id INTEGER REFERENCES organizations(id) ON DELETE SET NULL,\n"
                       "    doc_date TEXT,                        -- YYYY-MM-DD\n"
                       "    model_organization TEXT,              -- the model's raw answer\n"
                       "    added_at REAL NOT NULL\n"
                       ");\n"
                       "CREATE INDEX documents_org ON documents(organization_id);\n"
                       "CREATE TABLE pages (\n"
                       "    document_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,\n"
                       "    page_index INTEGER NOT NULL,          -- 0-based\n"
                       "    text TEXT NOT NULL,\n"
                       "    PRIMARY KEY (document_id, page_index)\n"
                       ");\n"
                       "-- Full-text search; rowid = documents.id.\n"
                       "CREATE VIRTUAL TABLE documents_fts USING fts5(\n"
                       "    name, organization, date, text,\n"
                       "    tokenize = 'unicode61 remove_diacritics 2'\n"
                       ");\n"
                       "PRAGMA user_version = 1;"),
        QStringLiteral(
            "-- What the extractor tried and what the model said, for the inspector.\n"
            "ALTER TABLE documents ADD COLUMN extract_log TEXT;\n"
            "-- The filed scan this one looked like, offered to the model as a hint.\n"
            "ALTER TABLE documents ADD COLUMN similar_document_id INTEGER REFERENCES documents(id) ON DELETE SET "
            "NULL;\n"
            "PRAGMA user_version = 2;"),
        QStringLiteral("-- Extractor.Trace as JSON: every request to the model and its answer.\n"
                       "ALTER TABLE documents ADD COLUMN extract_trace TEXT;\n"
                       "-- Per-folder preferences, e.g. custom model instructions.\n"
                       "CREATE TABLE settings (key TEXT PRIMARY KEY, value TEXT NOT NULL);\n"
                       "-- The type of document, one of DocumentKind.all.\n"
                       "ALTER TABLE documents ADD COLUMN doc_kind TEXT;\n"
                       "-- Search covers the type too.\n"
                       "DROP TABLE documents_fts;\n"
                       "CREATE VIRTUAL TABLE documents_fts USING fts5(\n"
                       "    name, organization, date, kind, text,\n"
                       "    tokenize = 'unicode61 remove_diacritics 2'\n"
                       ");\n")
            + fullTextFill() + QStringLiteral("1") + QStringLiteral(";\nPRAGMA user_version = 3;"),
        QStringLiteral("-- Degrees clockwise that turn each page upright, as text recognition found\n"
                       "-- them; NULL when all pages are upright. Only the preview and thumbnails\n"
                       "-- turn; the PDFs aren't touched.\n"
                       "ALTER TABLE documents ADD COLUMN page_rotations TEXT;\n"
                       "PRAGMA user_version = 4;"),
    };
    return scripts;
}

int Migrations::storedVersion(Database &db)
{
    Statement statement = db.prepare(QStringLiteral("PRAGMA user_version"));
    statement.bind({});
    std::optional<std::int64_t> version;
    while (statement.step())
        if (!version)
            version = statement.int64(0);
    return version && *version >= 1 ? int(std::min<std::int64_t>(*version, 1 << 30)) : 0;
}

void Migrations::migrate(Database &db)
{
    const QStringList &scripts = steps();
    for (int step = storedVersion(db); step < scripts.size(); ++step) {
        inImmediateTransaction(db, [&] {
            // Another process opening the same folder may have taken this step while we waited for
            // the lock; the version read inside the transaction is the one that counts.
            if (storedVersion(db) <= step)
                db.execute(scripts[step]);
        });
    }
}
