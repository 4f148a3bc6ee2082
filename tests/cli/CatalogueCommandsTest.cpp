#include "cli/Cli.h"
#include "store/Migrations.h"
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using namespace Qt::StringLiterals;

// A catalogue arranged with SQL, and vellumark-cli run on it.
class CatalogueCommands : public ::testing::Test {
protected:
    CatalogueCommands()
    {
        ScanStore schema(folder.path());
        db = std::make_unique<Database>(folder.filePath(ScanStore::fileName));
        acme = CatalogueFixtures::insertOrganization(*db, u"Acme Bank"_s);
        const std::int64_t bigco = CatalogueFixtures::insertOrganization(*db, u"Bigco"_s);
        add(u"2024/statement.pdf"_s, u"2024-05-01"_s, acme, u"Bank statement"_s, u"Your monthly statement"_s);
        add(u"invoice.pdf"_s, u"2023-01-15"_s, bigco, u"Invoice"_s, u"Invoice 42 \"urgent\""_s);
        unfiled = add(u"letter.pdf"_s, std::nullopt, std::nullopt, std::nullopt, u"Dear neighbour"_s);
        CatalogueFixtures::insertDocument(*db, { .path = u"gone.pdf"_s, .missing = true });
    }

    // A scan read and filed.
    std::int64_t add(const QString &path, const std::optional<QString> &date,
        const std::optional<std::int64_t> &organization, const std::optional<QString> &kind, const QString &text)
    {
        const std::int64_t id
            = CatalogueFixtures::insertDocument(*db, { .path = path, .date = date, .organizationID = organization });
        db->run(u"UPDATE documents SET doc_kind = ?, page_count = 1, ocr_status = 'done', extract_status = 'done' "
                "WHERE id = ?"_s,
            { kind, id });
        CatalogueFixtures::insertPage(*db, id, 0, text);
        db->run(Migrations::fullTextFill() + u"d.id = ?"_s, { id });
        return id;
    }

    // The command, then the folder, then the rest.
    CliRun cli(QStringList arguments) const
    {
        arguments.insert(1, folder.path());
        return runner.run(arguments);
    }

    // The paths a listing printed, in its order.
    QStringList paths(const QStringList &arguments) const
    {
        QStringList paths;
        for (const QString &line : cli(arguments).out.split(u'\n', Qt::SkipEmptyParts))
            paths << line.section(u'\t', 3, 3);
        return paths;
    }

    QString organizations() const { return cli({ u"organizations"_s }).out; }

    std::optional<QString> value(const QString &sql) { return CatalogueFixtures::scalar(*db, sql); }
    // Every fact of every scan and organization, to see that nothing changed.
    std::optional<QString> facts()
    {
        return value(u"SELECT (SELECT group_concat(id || ifnull(organization_id, '-') || ifnull(doc_date, '-') || "
                     "ifnull(doc_kind, '-') || ocr_status || extract_status) FROM documents) || "
                     "(SELECT group_concat(id || name) FROM organizations)"_s);
    }

    QTemporaryDir folder;
    Cli runner;
    std::unique_ptr<Database> db;
    std::int64_t acme = 0, unfiled = 0;
};

TEST_F(CatalogueCommands, listAndSearchShowWhatTheTableWould)
{
    const QString list = u"list"_s, statementPdf = u"2024/statement.pdf"_s, invoicePdf = u"invoice.pdf"_s;
    for (const auto &[arguments, expected] :
        std::vector<std::pair<QStringList, QStringList>> { { { list }, { statementPdf, invoicePdf, u"letter.pdf"_s } },
            { { list, u"--view"_s, u"problems"_s }, { u"gone.pdf"_s } },
            { { list, u"--organization=acme bank"_s }, { statementPdf } },
            { { list, u"--year=2023"_s, u"--type=invoice"_s }, { invoicePdf } },
            { { u"search"_s, u"\"urgent\""_s, u"42"_s }, { invoicePdf } } })
        EXPECT_EQ(paths(arguments), expected) << arguments.join(u' ').toStdString();

    const QJsonArray json = QJsonDocument::fromJson(cli({ list, u"--json"_s, u"--year=2024"_s }).out.toUtf8()).array();
    ASSERT_EQ(json.size(), 1);
    EXPECT_EQ(json[0][u"organizationName"_s], u"Acme Bank"_s);
}

// Among them edits of several scans that fail for one, and an unknown type given with a new organization.
TEST_F(CatalogueCommands, badInputIsRefusedWithAReasonAndChangesNothing)
{
    const std::optional<QString> before = facts();
    const QString list = u"list"_s, set = u"set"_s, letter = u"letter.pdf"_s;
    for (const QStringList &arguments : std::vector<QStringList> { { list, u"--year=24"_s },
             { list, u"--view=recent"_s }, { list, u"--organization=Nobody"_s },
             { set, letter, u"--date=2024-02-30"_s }, { set, letter, u"--organization=Acme"_s, u"--type=Memo"_s },
             { set, letter, u"missing.pdf"_s, u"--no-type"_s }, { set, letter, u"--type=Bill"_s, u"--no-type"_s },
             { set, letter }, { u"reread"_s, u"12345"_s }, { u"rename-organization"_s, u"bigco"_s, u"  "_s },
             { u"merge-organization"_s, u"Bigco"_s, u"bigco"_s }, { u"delete-organization"_s, u"Nobody"_s } }) {
        const CliRun refused = cli(arguments);
        EXPECT_TRUE(refused.exitCode == 1 && !refused.err.isEmpty() && refused.out.isEmpty())
            << arguments.join(u' ').toStdString();
    }
    EXPECT_EQ(facts(), before);
}

TEST_F(CatalogueCommands, editsApplyToScansNamedByPathOrIdAndOrganizationsAreRenamedMergedAndDeleted)
{
    const CliRun set = cli({ u"set"_s, folder.filePath(u"invoice.pdf"_s), QString::number(unfiled),
        u"--organization=ACME BANK"_s, u"--type=receipt"_s, u"--date=2022-12-31"_s });
    ASSERT_EQ(set.exitCode, 0) << set.err.toStdString();
    EXPECT_EQ(value(u"SELECT group_concat(organization_id || doc_kind || doc_date || extract_status) FROM documents "
                    "WHERE path IN ('invoice.pdf', 'letter.pdf')"_s),
        u"%1Receipt2022-12-31manual,%1Receipt2022-12-31manual"_s.arg(acme));
    EXPECT_EQ(organizations(), u"Acme Bank\t3\n"_s);
    ASSERT_EQ(cli({ u"set"_s, u"letter.pdf"_s, u"--no-organization"_s, u"--no-date"_s }).exitCode, 0);
    EXPECT_EQ(value(u"SELECT ifnull(organization_id, 'none') || ifnull(doc_date, 'none') || doc_kind "
                    "FROM documents WHERE id = %1"_s.arg(unfiled)),
        u"nonenoneReceipt"_s);

    // Reading and filing again; what a person filed stays filed.
    ASSERT_EQ(cli({ u"reextract"_s, u"2024/statement.pdf"_s }).exitCode, 0);
    ASSERT_EQ(cli({ u"reread"_s, QString::number(unfiled) }).exitCode, 0);
    EXPECT_EQ(value(u"SELECT group_concat(ocr_status || extract_status) FROM documents WHERE path IN "
                    "('2024/statement.pdf', 'letter.pdf') ORDER BY id"_s),
        u"donepending,pendingmanual"_s);

    const std::int64_t zeta = CatalogueFixtures::insertOrganization(*db, u"Zeta"_s);
    db->run(u"UPDATE documents SET organization_id = ? WHERE id = ?"_s, { zeta, unfiled });
    ASSERT_EQ(cli({ u"rename-organization"_s, u"acme bank"_s, u"Acme Holdings"_s }).exitCode, 0);
    ASSERT_EQ(cli({ u"merge-organization"_s, u"Acme Holdings"_s, u"zeta"_s }).exitCode, 0);
    EXPECT_EQ(organizations(), u"Zeta\t3\n"_s);
    ASSERT_EQ(cli({ u"delete-organization"_s, u"Zeta"_s }).exitCode, 0);
    EXPECT_EQ(organizations(), QString());
    EXPECT_EQ(value(u"SELECT COUNT(*) FROM documents WHERE organization_id IS NULL"_s), u"4"_s);
}

} // namespace
