#include "store/Database.h"

#include <QFile>

#include <sqlite3.h>

Database::Database(const QString &path)
{
    const QByteArray file = QFile::encodeName(path);
    sqlite3 *db = nullptr;
    const int rc = sqlite3_open_v2(
        file.constData(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (rc != SQLITE_OK || db == nullptr) {
        const QString message = db != nullptr && rc != SQLITE_OK ? QString::fromUtf8(sqlite3_errmsg(db))
                                                                 : QStringLiteral("cannot open ") + path;
        sqlite3_close(db);
        throw Error(message);
    }
    sqlite3_busy_timeout(db, 5000);
    db_ = db;
}

Database::~Database()
{
    sqlite3_close(db_);
}

QString Database::lastErrorMessage() const
{
    return QString::fromUtf8(sqlite3_errmsg(db_));
}

void Database::execute(const QString &sql)
{
    char *error = nullptr;
    const int rc = sqlite3_exec(db_, sql.toUtf8().constData(), nullptr, nullptr, &error);
    if (rc != SQLITE_OK) {
        const QString message = error != nullptr ? QString::fromUtf8(error) : QStringLiteral("error");
        sqlite3_free(error);
        throw Error(message);
    }
}

Statement Database::prepare(const QString &sql)
{
    sqlite3_stmt *stmt = nullptr;
    const int rc = sqlite3_prepare_v2(db_, sql.toUtf8().constData(), -1, &stmt, nullptr);
    if (rc != SQLITE_OK || stmt == nullptr) {
        sqlite3_finalize(stmt);
        throw Error(lastErrorMessage() + QStringLiteral(" in: ") + sql);
    }
    return Statement(stmt, db_);
}

int Database::run(const QString &sql, const SQLParams &params)
{
    Statement statement = prepare(sql);
    statement.bind(params);
    while (statement.step()) { }
    return sqlite3_changes(db_);
}

std::int64_t Database::lastInsertID() const
{
    return sqlite3_last_insert_rowid(db_);
}

Statement::~Statement()
{
    sqlite3_finalize(stmt_);
}

Statement::Statement(Statement &&other) noexcept
    : stmt_(other.stmt_)
    , db_(other.db_)
{
    other.stmt_ = nullptr;
}

void Statement::bind(const SQLParams &params)
{
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
    int index = 1;
    for (const auto &param : params) {
        int rc = SQLITE_OK;
        if (!param) {
            rc = sqlite3_bind_null(stmt_, index);
        } else {
            rc = std::visit(
                [&](const auto &v) {
                    using V = std::decay_t<decltype(v)>;
                    if constexpr (std::is_same_v<V, QString>) {
                        return sqlite3_bind_text(stmt_, index, v.toUtf8().constData(), -1, transient());
                    } else if constexpr (std::is_same_v<V, double>) {
                        return sqlite3_bind_double(stmt_, index, v);
                    } else if constexpr (std::is_same_v<V, bool>) {
                        return sqlite3_bind_int64(stmt_, index, v ? 1 : 0);
                    } else {
                        return sqlite3_bind_int64(stmt_, index, sqlite3_int64(v));
                    }
                },
                param->value());
        }
        if (rc != SQLITE_OK)
            throw Database::Error(QString::fromUtf8(sqlite3_errmsg(db_)));
        ++index;
    }
}

bool Statement::step()
{
    const int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    throw Database::Error(QString::fromUtf8(sqlite3_errmsg(db_)));
}

std::int64_t Statement::int64(int column) const
{
    return sqlite3_column_int64(stmt_, column);
}

double Statement::real(int column) const
{
    return sqlite3_column_double(stmt_, column);
}

QString Statement::text(int column) const
{
    const auto *bytes = reinterpret_cast<const char *>(sqlite3_column_text(stmt_, column));
    if (bytes == nullptr)
        return QString();
    return QString::fromUtf8(bytes, sqlite3_column_bytes(stmt_, column));
}

bool Statement::isNull(int column) const
{
    return sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

std::optional<std::int64_t> Statement::optionalInt64(int column) const
{
    if (isNull(column))
        return std::nullopt;
    return int64(column);
}

std::optional<QString> Statement::optionalText(int column) const
{
    if (isNull(column))
        return std::nullopt;
    return text(column);
}
