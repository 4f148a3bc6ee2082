#pragma once

#include "store/Database.h"

#include <QString>
#include <QTemporaryDir>

#include <cstdint>
#include <optional>

// Fixture makers for catalogue tests: real SQLite files in temporary folders.
namespace CatalogueFixtures {

// Creates Vellumark.sqlite in `folder` at schema `version` (0 to 4) by running the first `version`
// migration steps, as an older release of the app would have left it.
void createCatalogue(const QString &folder, int version);

// A documents row as tests want it; only the columns every schema version has.
struct Row {
    QString path;
    std::int64_t fileSize = 1000;
    double fileModified = 1'700'000'000.0;
    double addedAt = 1'700'000'000.0;
    QString ocrStatus = QStringLiteral("pending");
    QString extractStatus = QStringLiteral("pending");
    bool missing = false;
    std::optional<QString> date = std::nullopt;
    std::optional<std::int64_t> organizationID = std::nullopt;
};

// Rows inserted with SQL, behind the store's back; the new row's id.
std::int64_t insertDocument(Database &db, const Row &row);
std::int64_t insertOrganization(Database &db, const QString &name);
void insertPage(Database &db, std::int64_t documentID, int pageIndex, const QString &text);

// The rowids that a full-text MATCH query finds, sorted.
std::vector<std::int64_t> ftsMatches(Database &db, const QString &match);

// Reads one value of a single-row query as text (absent for NULL or no row).
std::optional<QString> scalar(Database &db, const QString &sql);

} // namespace CatalogueFixtures
