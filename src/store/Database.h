#pragma once

#include "core/Error.h"

#include <QString>

#include <cstdint>
#include <exception>
#include <initializer_list>
#include <optional>
#include <string>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

// A value that may be bound to a statement parameter: every integer binds as a 64-bit integer;
// Bool binds as 1 or 0; Text binds as UTF-8 that SQLite copies.
class SQLValue {
public:
    SQLValue(long value)
        : value_(std::int64_t(value))
    {
    }
    SQLValue(long long value)
        : value_(std::int64_t(value))
    {
    }
    SQLValue(int value)
        : value_(value)
    {
    }
    SQLValue(bool value)
        : value_(value)
    {
    }
    SQLValue(double value)
        : value_(value)
    {
    }
    SQLValue(QString value)
        : value_(std::move(value))
    {
    }

    const auto &value() const { return value_; }

private:
    std::variant<std::int64_t, int, bool, double, QString> value_;
};

// An ordered parameter list; an absent value binds SQL NULL.
using SQLParams = std::vector<std::optional<SQLValue>>;

class Statement;

// One connection to a catalogue file. Every failure is a Database::Error carrying SQLite's own message.
class Database {
public:
    class Error : public ::Error {
    public:
        using ::Error::Error;
    };

    // Opens or creates the file at `path`.
    explicit Database(const QString &path);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    // Runs a script of one or more statements.
    void execute(const QString &sql);
    Statement prepare(const QString &sql);
    // Prepares, binds and steps to the end; returns the number of rows changed.
    int run(const QString &sql, const SQLParams &params = {});
    // The row id of the last successful INSERT on this connection.
    std::int64_t lastInsertID() const;

    sqlite3 *handle() const { return db_; }
    QString lastErrorMessage() const;

private:
    sqlite3 *db_ = nullptr;
};

// A prepared statement. Rows are read straight from it: step() until it returns false, reading columns
// in between. NULL reads as 0, 0.0 or the empty text; the optional readers give absent for NULL.
class Statement {
public:
    Statement(sqlite3_stmt *stmt, sqlite3 *db)
        : stmt_(stmt)
        , db_(db)
    {
    }
    ~Statement();
    Statement(Statement &&other) noexcept;
    Statement &operator=(Statement &&) = delete;
    Statement(const Statement &) = delete;

    // Resets, clears old bindings, then binds parameters 1, 2, 3 ... in list order.
    void bind(const SQLParams &params);
    // True when a row is ready; false when done; throws on any other result.
    bool step();

    std::int64_t int64(int column) const;
    double real(int column) const;
    QString text(int column) const;
    bool boolean(int column) const { return int64(column) != 0; }
    std::optional<std::int64_t> optionalInt64(int column) const;
    std::optional<QString> optionalText(int column) const;
    bool isNull(int column) const;

    // SQLite's SQLITE_TRANSIENT: makes SQLite copy bound text.
    static auto transient() { return reinterpret_cast<void (*)(void *)>(-1); }

private:
    sqlite3_stmt *stmt_;
    sqlite3 *db_;
};
