#include "store/Migrations.h"
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using CatalogueFixtures::Row;

const QString done = QStringLiteral("done");

struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

// A catalogue arranged with SQL, and vellumark-cli run on it with settings of its own.
class CatalogueCommands : public ::testing::Test {
protected:
    CatalogueCommands()
    {
        ScanStore schema(folder.path());
        db = std::make_unique<Database>(QDir(folder.path()).filePath(ScanStore::fileName));
        acme = CatalogueFixtures::insertOrganization(*db, QStringLiteral("Acme Bank"));
        bigco = CatalogueFixtures::insertOrganization(*db, QStringLiteral("Bigco"));
        statement = add({ .path = QStringLiteral("2024/statement.pdf"),
                            .ocrStatus = done,
                            .extractStatus = done,
                            .date = QStringLiteral("2024-05-01"),
                            .organizationID = acme },
            QStringLiteral("Bank statement"), QStringLiteral("Your monthly statement"),
            QStringLiteral("ACME Bank N.A."));
        invoice = add({ .path = QStringLiteral("invoice.pdf"),
                          .ocrStatus = done,
                          .extractStatus = done,
                          .date = QStringLiteral("2023-01-15"),
                          .organizationID = bigco },
            QStringLiteral("Invoice"), QStringLiteral("Invoice 42 \"urgent\""), QStringLiteral("Bigco Ltd"));
        unfiled = add({ .path = QStringLiteral("letter.pdf"), .ocrStatus = done, .extractStatus = done }, std::nullopt,
            QStringLiteral("Dear neighbour"), std::nullopt);
        gone = add({ .path = QStringLiteral("gone.pdf"), .missing = true }, std::nullopt, QString(), std::nullopt);
    }

    std::int64_t add(const Row &row, const std::optional<QString> &kind, const QString &text,
        const std::optional<QString> &modelOrganization)
    {
        const std::int64_t id = CatalogueFixtures::insertDocument(*db, row);
        db->run(
            QStringLiteral("UPDATE documents SET doc_kind = ?, model_organization = ?, page_count = 1 WHERE id = ?"),
            { kind, modelOrganization, id });
        CatalogueFixtures::insertPage(*db, id, 0, text);
        db->run(Migrations::fullTextFill() + QStringLiteral("d.id = ?"), { id });
        return id;
    }

    Result cli(const QStringList &arguments)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(VELLUMARK_CLI), arguments);
        process.waitForFinished(60'000);
        return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError()) };
    }
    Result cli(const QString &command, const QStringList &arguments)
    {
        return cli(QStringList { command, folder.path() } + arguments);
    }

    // The paths a listing printed, in its order.
    static QStringList paths(const Result &result)
    {
        QStringList paths;
        for (const QString &line : result.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            paths << line.section(QLatin1Char('\t'), 3, 3);
        return paths;
    }

    std::optional<QString> value(const QString &sql) { return CatalogueFixtures::scalar(*db, sql); }
    // Every fact of every scan, to see that nothing changed.
    QString facts()
    {
        return value(QStringLiteral("SELECT group_concat(id || ':' || ifnull(organization_id, '') || ':' || "
                                    "ifnull(doc_date, '') || ':' || ifnull(doc_kind, '') || ':' || extract_status, "
                                    "' ') FROM documents"))
                   .value_or(QString())
            + QStringLiteral(" | ")
            + value(QStringLiteral("SELECT group_concat(id || name, ' ') FROM organizations")).value_or(QString());
    }

    QTemporaryDir folder;
    QTemporaryDir config;
    std::unique_ptr<Database> db;
    std::int64_t acme = 0, bigco = 0, statement = 0, invoice = 0, unfiled = 0, gone = 0;
};

TEST_F(CatalogueCommands, listAndSearchShowWhatTheTableWould)
{
    const Result all = cli(QStringLiteral("list"), {});
    ASSERT_EQ(all.exitCode, 0) << all.err.toStdString();
    EXPECT_EQ(all.out.split(QLatin1Char('\n')).first(),
        QStringLiteral("2024-05-01\tAcme Bank\tBank statement\t2024/statement.pdf\t1\tDone"));
    EXPECT_EQ(paths(all),
        (QStringList {
            QStringLiteral("2024/statement.pdf"), QStringLiteral("invoice.pdf"), QStringLiteral("letter.pdf") }));
    EXPECT_EQ(paths(cli(QStringLiteral("list"), { QStringLiteral("--view"), QStringLiteral("problems") })),
        QStringList { QStringLiteral("gone.pdf") });
    EXPECT_EQ(paths(cli(QStringLiteral("list"), { QStringLiteral("--view=needs-review") })),
        QStringList { QStringLiteral("letter.pdf") });
    EXPECT_EQ(paths(cli(QStringLiteral("list"), { QStringLiteral("--organization=acme bank") })),
        QStringList { QStringLiteral("2024/statement.pdf") });
    EXPECT_EQ(paths(cli(QStringLiteral("list"), { QStringLiteral("--year=2023"), QStringLiteral("--type=invoice") })),
        QStringList { QStringLiteral("invoice.pdf") });
    EXPECT_EQ(paths(cli(QStringLiteral("list"), { QStringLiteral("--search"), QStringLiteral("bank month") })),
        QStringList { QStringLiteral("2024/statement.pdf") });
    EXPECT_EQ(paths(cli(QStringLiteral("search"), { QStringLiteral("\"urgent\""), QStringLiteral("42") })),
        QStringList { QStringLiteral("invoice.pdf") });
    const Result none = cli(QStringLiteral("search"), { QStringLiteral("nothing-like-this") });
    EXPECT_EQ(none.exitCode, 0);
    EXPECT_EQ(none.out, QString());

    const Result json = cli(QStringLiteral("list"), { QStringLiteral("--json"), QStringLiteral("--year=2024") });
    const QJsonArray array = QJsonDocument::fromJson(json.out.toUtf8()).array();
    ASSERT_EQ(array.size(), 1);
    const QJsonObject first = array.first().toObject();
    EXPECT_EQ(first.value(QStringLiteral("id")).toInteger(), statement);
    EXPECT_EQ(first.value(QStringLiteral("organizationName")).toString(), QStringLiteral("Acme Bank"));
    EXPECT_EQ(first.value(QStringLiteral("extractStatus")).toString(), QStringLiteral("done"));
    EXPECT_TRUE(first.value(QStringLiteral("error")).isNull());

    // Filters that name nothing valid are refused with a reason.
    for (const QStringList &bad : { QStringList { QStringLiteral("--year=24") },
             QStringList { QStringLiteral("--type=Bil") }, QStringList { QStringLiteral("--view=recent") },
             QStringList { QStringLiteral("--organization=Nobody") } }) {
        const Result refused = cli(QStringLiteral("list"), bad);
        EXPECT_EQ(refused.exitCode, 1) << bad.join(QLatin1Char(' ')).toStdString();
        EXPECT_FALSE(refused.err.isEmpty());
        EXPECT_TRUE(refused.out.isEmpty());
    }
}

TEST_F(CatalogueCommands, setFilesScansByPathOrIdAndRefusesInvalidFactsWithoutChangingAnything)
{
    const QString before = facts();
    for (const QStringList &bad : {
             QStringList { QStringLiteral("letter.pdf"), QStringLiteral("--date=2024-02-30") },
             QStringList {
                 QStringLiteral("letter.pdf"), QStringLiteral("--organization=Acme"), QStringLiteral("--type=Memo") },
             QStringList { QStringLiteral("letter.pdf"), QStringLiteral("--organization= n/a ") },
             QStringList { QStringLiteral("letter.pdf"), QStringLiteral("missing.pdf"), QStringLiteral("--no-type") },
             QStringList { QStringLiteral("letter.pdf"), QStringLiteral("--type=Bill"), QStringLiteral("--no-type") },
             QStringList { QStringLiteral("letter.pdf") },
         }) {
        const Result refused = cli(QStringLiteral("set"), bad);
        EXPECT_EQ(refused.exitCode, 1) << bad.join(QLatin1Char(' ')).toStdString();
        EXPECT_FALSE(refused.err.isEmpty());
    }
    EXPECT_EQ(facts(), before);

    // Overruling the model teaches the registry its answer.
    const Result set = cli(QStringLiteral("set"),
        { QDir(folder.path()).filePath(QStringLiteral("invoice.pdf")), QString::number(unfiled),
            QStringLiteral("--organization=ACME BANK"), QStringLiteral("--type=receipt"),
            QStringLiteral("--date=2022-12-31") });
    ASSERT_EQ(set.exitCode, 0) << set.err.toStdString();
    EXPECT_EQ(value(QStringLiteral("SELECT group_concat(organization_id || doc_kind || doc_date || extract_status) "
                                   "FROM documents WHERE id IN (%1, %2)")
                        .arg(invoice)
                        .arg(unfiled)),
        QStringLiteral("%1Receipt2022-12-31manual,%1Receipt2022-12-31manual").arg(acme));
    EXPECT_EQ(value(QStringLiteral("SELECT organization_id FROM organization_aliases WHERE alias_key = 'bigco'")),
        QString::number(acme));
    EXPECT_EQ(
        value(QStringLiteral("SELECT COUNT(*) FROM organizations WHERE id = %1").arg(bigco)), QStringLiteral("0"));

    ASSERT_EQ(cli(QStringLiteral("set"),
                  { QStringLiteral("letter.pdf"), QStringLiteral("--no-organization"), QStringLiteral("--no-date") })
                  .exitCode,
        0);
    EXPECT_EQ(value(QStringLiteral("SELECT ifnull(organization_id, 'none') || ifnull(doc_date, 'none') || doc_kind "
                                   "FROM documents WHERE id = %1")
                        .arg(unfiled)),
        QStringLiteral("nonenoneReceipt"));
}

TEST_F(CatalogueCommands, reextractAndRereadQueueTheScansAgain)
{
    ASSERT_EQ(cli(QStringLiteral("reextract"), { QStringLiteral("2024/statement.pdf") }).exitCode, 0);
    ASSERT_EQ(cli(QStringLiteral("reread"), { QString::number(unfiled) }).exitCode, 0);
    EXPECT_EQ(value(QStringLiteral("SELECT ocr_status || extract_status FROM documents WHERE id = %1").arg(statement)),
        QStringLiteral("donepending"));
    EXPECT_EQ(value(QStringLiteral("SELECT ocr_status FROM documents WHERE id = %1").arg(unfiled)),
        QStringLiteral("pending"));
    EXPECT_EQ(cli(QStringLiteral("reread"), { QStringLiteral("12345") }).exitCode, 1);
}

TEST_F(CatalogueCommands, organizationsAreListedRenamedMergedAndDeleted)
{
    const Result list = cli(QStringLiteral("organizations"), { QStringLiteral("--json") });
    ASSERT_EQ(list.exitCode, 0);
    const QJsonArray organizations = QJsonDocument::fromJson(list.out.toUtf8()).array();
    ASSERT_EQ(organizations.size(), 2);
    EXPECT_EQ(organizations[0].toObject().value(QStringLiteral("name")).toString(), QStringLiteral("Acme Bank"));
    EXPECT_EQ(organizations[0].toObject().value(QStringLiteral("documentCount")).toInt(), 1);

    EXPECT_EQ(
        cli(QStringLiteral("rename-organization"), { QStringLiteral("Nobody"), QStringLiteral("X") }).exitCode, 1);
    EXPECT_EQ(
        cli(QStringLiteral("rename-organization"), { QStringLiteral("bigco"), QStringLiteral("  ") }).exitCode, 1);
    EXPECT_EQ(
        cli(QStringLiteral("merge-organization"), { QStringLiteral("Bigco"), QStringLiteral("bigco") }).exitCode, 1);

    ASSERT_EQ(cli(QStringLiteral("rename-organization"), { QStringLiteral("bigco"), QStringLiteral("Bigco Holdings") })
                  .exitCode,
        0);
    EXPECT_EQ(cli(QStringLiteral("organizations"), {}).out, QStringLiteral("Acme Bank\t1\nBigco Holdings\t1\n"));
    // Renaming to another organization's name merges: the old name stays as an alias.
    const Result merged
        = cli(QStringLiteral("rename-organization"), { QStringLiteral("Bigco Holdings"), QStringLiteral("acme bank") });
    ASSERT_EQ(merged.exitCode, 0);
    EXPECT_EQ(merged.out, QStringLiteral("Merged “Bigco Holdings” into “Acme Bank”.\n"));
    EXPECT_EQ(cli(QStringLiteral("organizations"), {}).out, QStringLiteral("Acme Bank\t2\n"));
    EXPECT_EQ(
        value(QStringLiteral("SELECT organization_id FROM organization_aliases WHERE alias_key = 'bigco holdings'")),
        QString::number(acme));

    const QString other = QString::number(CatalogueFixtures::insertOrganization(*db, QStringLiteral("Zeta")));
    db->run(QStringLiteral("UPDATE documents SET organization_id = ? WHERE id = ?"), { other.toLongLong(), unfiled });
    ASSERT_EQ(
        cli(QStringLiteral("merge-organization"), { QStringLiteral("Acme Bank"), QStringLiteral("Zeta") }).exitCode, 0);
    EXPECT_EQ(cli(QStringLiteral("organizations"), {}).out, QStringLiteral("Zeta\t3\n"));
    ASSERT_EQ(cli(QStringLiteral("delete-organization"), { QStringLiteral("zeta") }).exitCode, 0);
    EXPECT_EQ(cli(QStringLiteral("organizations"), {}).out, QString());
    EXPECT_EQ(
        value(QStringLiteral("SELECT COUNT(*) FROM documents WHERE organization_id IS NULL")), QStringLiteral("4"));
}

} // namespace
