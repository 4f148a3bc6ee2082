#include "store/Database.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <unistd.h>

// Readable QString values in failure messages.
static void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

// A fresh catalogue file in its own temporary folder.
struct Scratch {
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("scratch.sqlite"));
    Database db { path };
};

// The message SQLite itself gives when it compiles `sql` on `db`, read straight from the C API.
QString sqlitePrepareMessage(sqlite3 *db, const QString &sql)
{
    sqlite3_stmt *stmt = nullptr;
    const int rc = sqlite3_prepare_v2(db, sql.toUtf8().constData(), -1, &stmt, nullptr);
    sqlite3_finalize(stmt);
    if (rc == SQLITE_OK)
        return QString();
    return QString::fromUtf8(sqlite3_errmsg(db));
}

// Runs a query expected to give exactly one row and hands the statement to `read`.
template <typename Read> void readOneRow(Database &db, const QString &sql, const SQLParams &params, Read read)
{
    Statement statement = db.prepare(sql);
    statement.bind(params);
    ASSERT_TRUE(statement.step());
    read(statement);
    EXPECT_FALSE(statement.step());
}

// The statements still open on a connection; a Statement that is not finalized keeps the file busy.
int openStatements(Database &db)
{
    int open = 0;
    for (sqlite3_stmt *stmt = sqlite3_next_stmt(db.handle(), nullptr); stmt != nullptr;
         stmt = sqlite3_next_stmt(db.handle(), stmt))
        ++open;
    return open;
}

// ---- Opening ----

TEST(Database, openNewPath_createsFileThatLaterConnectionsShare)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("Vellumark.sqlite"));
    {
        Database db(path);
        EXPECT_TRUE(QFile::exists(path));
        db.execute(QStringLiteral("CREATE TABLE t (x); INSERT INTO t VALUES (42);"));
    }
    Database again(path);
    readOneRow(again, QStringLiteral("SELECT x FROM t"), {}, [](Statement &row) { EXPECT_EQ(row.int64(0), 42); });
}

TEST(Database, open_connectionIsWritableSerializedWithFiveSecondBusyTimeout)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    EXPECT_EQ(sqlite3_db_readonly(scratch.db.handle(), "main"), 0);
    // A serialized (FULLMUTEX) connection has a mutex of its own; a NOMUTEX one has none.
    EXPECT_NE(sqlite3_db_mutex(scratch.db.handle()), nullptr);
    readOneRow(
        scratch.db, QStringLiteral("PRAGMA busy_timeout"), {}, [](Statement &row) { EXPECT_EQ(row.int64(0), 5000); });
}

TEST(Database, openInMissingFolder_throwsSqliteMessageAndCreatesNothing)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString folder = dir.filePath(QStringLiteral("absent"));
    try {
        Database db(QDir(folder).filePath(QStringLiteral("Vellumark.sqlite")));
        FAIL() << "opened a file in a folder that does not exist";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("unable to open database file"));
    }
    EXPECT_FALSE(QFileInfo::exists(folder));
}

TEST(Database, openInReadOnlyFolder_throws)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "folder permissions do not stop root";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    ASSERT_TRUE(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner));
    EXPECT_THROW({ Database db(dir.filePath(QStringLiteral("Vellumark.sqlite"))); }, Database::Error);
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// ---- Errors ----

// ---- Scripts ----

TEST(Database, executeFailingScript_throwsSqliteMessage)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    try {
        scratch.db.execute(QStringLiteral("SELECT * FROM missing"));
        FAIL() << "no error";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("no such table: missing"));
    }
}

TEST(Database, prepareMisspeltSql_messageIsSqliteTextThenSqlAsPassed)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    const QString sql = QStringLiteral("  SELEC name\n  FROM \u00e9t\u00e9  ");
    const QString expected = sqlitePrepareMessage(scratch.db.handle(), sql);
    ASSERT_FALSE(expected.isEmpty());
    try {
        scratch.db.prepare(sql);
        FAIL() << "no error";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), expected + QStringLiteral(" in: ") + sql);
    }
    EXPECT_EQ(openStatements(scratch.db), 0);
}

TEST(Database, statementsGoneOutOfScope_leaveNoneOpenEvenAfterMoveOrError)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    scratch.db.execute(QStringLiteral("CREATE TABLE t (x UNIQUE)"));
    {
        Statement first = scratch.db.prepare(QStringLiteral("SELECT 1"));
        Statement moved(std::move(first));
        moved.bind({});
        EXPECT_TRUE(moved.step());
        EXPECT_EQ(openStatements(scratch.db), 1);
    }
    EXPECT_EQ(openStatements(scratch.db), 0);

    scratch.db.run(QStringLiteral("INSERT INTO t VALUES (1)"));
    EXPECT_THROW(scratch.db.run(QStringLiteral("INSERT INTO t VALUES (1)")), Database::Error);
    EXPECT_EQ(openStatements(scratch.db), 0);
}

// ---- Binding and reading ----

TEST(Statement, bindEmptyListAfterValues_leavesEveryParameterNull)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    Statement statement = scratch.db.prepare(QStringLiteral("SELECT ?, ?"));
    statement.bind({ 7, QStringLiteral("seven") });
    ASSERT_TRUE(statement.step());
    EXPECT_EQ(statement.int64(0), 7);
    EXPECT_EQ(statement.text(1), QStringLiteral("seven"));

    statement.bind({});
    ASSERT_TRUE(statement.step());
    EXPECT_TRUE(statement.isNull(0));
    EXPECT_TRUE(statement.isNull(1));
}

TEST(Statement, bindNonAsciiText_storesUtf8AndReadsBackUnchanged)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    const QString text = QStringLiteral("Z\u00fcrich \u2013 \u65e5\u672c \U0001F4C4");
    scratch.db.execute(QStringLiteral("CREATE TABLE t (s)"));
    scratch.db.run(QStringLiteral("INSERT INTO t VALUES (?)"), { text });
    // Through a stored row, so the bound bytes must outlive the bind call.
    readOneRow(scratch.db, QStringLiteral("SELECT s, typeof(s), hex(s), length(s) FROM t"), {}, [&](Statement &row) {
        EXPECT_EQ(row.text(0), text);
        EXPECT_EQ(row.optionalText(0), text);
        EXPECT_EQ(row.text(1), QStringLiteral("text"));
        EXPECT_EQ(row.text(2).toLatin1(), text.toUtf8().toHex().toUpper());
        // SQLite counts characters, so the emoji is one.
        EXPECT_EQ(row.int64(3), 13);
    });
}

TEST(Statement, bindAbsentOptional_bindsNullAndKeepsLaterPositions)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    readOneRow(scratch.db, QStringLiteral("SELECT ?, ?, ?"), { std::nullopt, 3, std::nullopt }, [](Statement &row) {
        EXPECT_TRUE(row.isNull(0));
        EXPECT_EQ(row.optionalInt64(1), 3);
        EXPECT_TRUE(row.isNull(2));
    });
}

TEST(Statement, readNull_givesAbsentOrZeroOrEmpty)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    readOneRow(scratch.db, QStringLiteral("SELECT NULL"), {}, [](Statement &row) {
        EXPECT_TRUE(row.isNull(0));
        EXPECT_FALSE(row.optionalText(0).has_value());
        EXPECT_FALSE(row.optionalInt64(0).has_value());
        EXPECT_TRUE(row.text(0).isEmpty());
        EXPECT_EQ(row.int64(0), 0);
        EXPECT_EQ(row.real(0), 0.0);
        EXPECT_FALSE(row.boolean(0));
    });
}

// ---- Running ----

TEST(Database, run_returnsRowsChangedByThatStatement)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    scratch.db.execute(QStringLiteral("CREATE TABLE t (x, y)"));
    EXPECT_EQ(scratch.db.run(QStringLiteral("INSERT INTO t (x) VALUES (?), (?), (?)"), { 1, 2, 3 }), 3);
    EXPECT_EQ(scratch.db.run(QStringLiteral("UPDATE t SET y = ? WHERE x >= ?"), { QStringLiteral("big"), 2 }), 2);
    // An UPDATE matching nothing reports 0, not the count of the statement before it.
    EXPECT_EQ(scratch.db.run(QStringLiteral("UPDATE t SET y = 'none' WHERE x > 100")), 0);
    EXPECT_EQ(scratch.db.run(QStringLiteral("DELETE FROM t WHERE y IS NULL")), 1);
    readOneRow(scratch.db, QStringLiteral("SELECT group_concat(x || ':' || y, ',') FROM t"), {},
        [](Statement &row) { EXPECT_EQ(row.text(0), QStringLiteral("2:big,3:big")); });
}

} // namespace
