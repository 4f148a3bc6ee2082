#pragma once

#include "store/Database.h"

// Runs `work` between "BEGIN IMMEDIATE" and "COMMIT". A failing BEGIN is thrown at once; any later
// failure rolls back (ignoring the rollback's own error) and rethrows the first error.
template <typename Work> void inImmediateTransaction(Database &db, Work &&work)
{
    db.execute(QStringLiteral("BEGIN IMMEDIATE"));
    try {
        work();
        db.execute(QStringLiteral("COMMIT"));
    } catch (...) {
        try {
            db.execute(QStringLiteral("ROLLBACK"));
        } catch (const Database::Error &) {
        }
        throw;
    }
}
