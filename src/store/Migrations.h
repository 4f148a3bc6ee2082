#pragma once

#include <QString>
#include <QStringList>

class Database;

namespace Migrations {
// The schema version this build writes.
constexpr int currentVersion = 4;

// The scripts that bring a catalogue from version N to N + 1, in order (index 0 makes version 1). Each
// ends by recording its own version.
const QStringList &steps();

// The full-text fill statement up to and including "WHERE "; a condition completes it.
QString fullTextFill();

// The stored version: the first value of PRAGMA user_version, 0 when absent or below 1.
int storedVersion(Database &db);

// Runs the steps after the stored version, each in its own immediate transaction. A catalogue at the
// current version or a newer one is left untouched.
void migrate(Database &db);
} // namespace Migrations
