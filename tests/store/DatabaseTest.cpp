#include "store/Database.h"
#include "support/Printing.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <optional>
#include <ostream>

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

// The statements still open on a connection; a Statement that is not finalized keeps the file busy.
int openStatements(Database &db)
{
    int open = 0;
    for (sqlite3_stmt *stmt = sqlite3_next_stmt(db.handle(), nullptr); stmt != nullptr;
         stmt = sqlite3_next_stmt(db.handle(), stmt))
        ++open;
    return open;
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

TEST(Database, errors_carrySqliteMessageAndLeaveNoStatementOpen)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    try {
        scratch.db.execute(QStringLiteral("SELECT * FROM missing"));
        FAIL() << "no error";
    } catch (const Database::Error &error) {
        EXPECT_EQ(error.message(), QStringLiteral("no such table: missing"));
    }

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

TEST(Statement, bindAndRead_utf8TextNullsAndRebinding)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    const QString text = QStringLiteral("Z\u00fcrich \u2013 \u65e5\u672c \U0001F4C4");
    scratch.db.execute(QStringLiteral("CREATE TABLE t (s)"));
    scratch.db.run(QStringLiteral("INSERT INTO t VALUES (?)"), { text });
    // Through a stored row, so the bound bytes must outlive the bind call; SQLite counts the emoji as one.
    Statement stored = scratch.db.prepare(QStringLiteral("SELECT s, length(s) FROM t"));
    stored.bind({});
    ASSERT_TRUE(stored.step());
    EXPECT_EQ(stored.text(0), text);
    EXPECT_EQ(stored.int64(1), 13);

    Statement statement = scratch.db.prepare(QStringLiteral("SELECT ?, ?, ?"));
    statement.bind({ std::nullopt, 3, QStringLiteral("seven") });
    ASSERT_TRUE(statement.step());
    EXPECT_TRUE(statement.isNull(0));
    EXPECT_FALSE(statement.optionalText(0));
    EXPECT_FALSE(statement.optionalInt64(0));
    EXPECT_EQ(statement.optionalInt64(1), 3);
    EXPECT_EQ(statement.text(2), QStringLiteral("seven"));

    // Binding nothing clears the values bound before.
    statement.bind({});
    ASSERT_TRUE(statement.step());
    EXPECT_TRUE(statement.isNull(1));
    EXPECT_TRUE(statement.text(2).isEmpty());
    EXPECT_EQ(statement.int64(1), 0);
}

TEST(Database, run_returnsRowsChangedByThatStatement)
{
    Scratch scratch;
    ASSERT_TRUE(scratch.dir.isValid());
    scratch.db.execute(QStringLiteral("CREATE TABLE t (x, y)"));
    EXPECT_EQ(scratch.db.run(QStringLiteral("INSERT INTO t (x) VALUES (?), (?), (?)"), { 1, 2, 3 }), 3);
    // An UPDATE matching nothing reports 0, not the count of the statement before it.
    EXPECT_EQ(scratch.db.run(QStringLiteral("UPDATE t SET y = 'none' WHERE x > 100")), 0);
    EXPECT_EQ(scratch.db.run(QStringLiteral("DELETE FROM t WHERE x >= ?"), { 2 }), 2);
}

} // namespace
