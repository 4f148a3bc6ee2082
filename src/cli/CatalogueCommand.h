#pragma once

#include "library/Library.h"

#include <QString>
#include <QStringList>

#include <optional>

// What the commands that look at or change one folder's catalogue share. They work through a Library
// opened without work (no sync, no reading), so that they run the same code as the desktop app.
namespace CatalogueCommand {

// Opens the folder's catalogue and reads its lists; on failure prints why and gives the exit status.
std::optional<int> open(Library &library, const QString &folder);

// The scans named by catalogue id or by path (relative to the folder, or a file inside it); prints
// which one isn't in the catalogue and gives nothing when one isn't.
std::optional<DocumentIDSet> findScans(const Library &library, const QStringList &references);

// The organization of that name (exactly, else ignoring case); prints that there is none otherwise.
std::optional<Organization> findOrganization(const Library &library, const QString &name);

// The canonical type the text names; prints the valid types otherwise.
std::optional<QString> parseType(const QString &text);

// A YYYY-MM-DD date that exists; prints what is wrong otherwise.
std::optional<QDate> parseDate(const QString &text);

// A name the catalogue can file under (cleaned); prints that it can't otherwise.
std::optional<QString> parseOrganizationName(const QString &text);

// Starts an edit and runs it to its end; prints the catalogue's error and gives false when it failed.
bool runEdit(Library &library, const std::function<QCoro::Task<>()> &edit);

// "1 scan", "3 scans".
QString scans(int count);

} // namespace CatalogueCommand
