#include "store/Migrations.h"
#include "support/StoreFixture.h"

#include <set>

namespace {

using IdSet = std::set<std::int64_t>;

class Search : public StoreFixture {
protected:
    std::int64_t scan(const QString &path, const QString &text, std::optional<std::int64_t> organization = {},
        std::optional<QString> date = {})
    {
        const std::int64_t id = add({ .path = path,
            .ocrStatus = QStringLiteral("done"),
            .extractStatus = QStringLiteral("done"),
            .date = date,
            .organizationID = organization });
        CatalogueFixtures::insertPage(db, id, 0, text);
        db.run(Migrations::fullTextFill() + QStringLiteral("d.id = ?"), { id });
        return id;
    }
};

TEST_F(Search, queryQuotesEachWordAsAPrefixTermAndDoublesItsQuotes)
{
    EXPECT_EQ(ScanStore::searchQuery(QStringLiteral("tax")), QStringLiteral("\"tax\"*"));
    EXPECT_EQ(ScanStore::searchQuery(QStringLiteral(" acme\tbank\n\u00A0say\"hi\" ")),
        QStringLiteral("\"acme\"* \"bank\"* \"say\"\"hi\"\"\"*"));
    EXPECT_EQ(ScanStore::searchQuery(QStringLiteral(" \u2003\n ")), QString());
}

TEST_F(Search, everyWordMustStartAWordOfSomeColumn)
{
    const auto acme = CatalogueFixtures::insertOrganization(db, QStringLiteral("Acme Corporation"));
    const auto both = scan(QStringLiteral("2024/statement.pdf"), QStringLiteral("Your Banking summary"), acme,
        QStringLiteral("2024-05-01"));
    const auto textOnly = scan(QStringLiteral("letters/acme.pdf"), QStringLiteral("Dear customer"));
    const auto accent = scan(QStringLiteral("café.pdf"), QStringLiteral("Résumé of the Société Générale account"));
    db.run(QStringLiteral("UPDATE documents SET doc_kind = 'Bank Statement' WHERE id = ?"), { textOnly });
    db.run(QStringLiteral("DELETE FROM documents_fts WHERE rowid = ?"), { textOnly });
    db.run(Migrations::fullTextFill() + QStringLiteral("d.id = ?"), { textOnly });

    // Organization and text; path and type; the word must start a word, not sit inside one.
    EXPECT_EQ(store->search(QStringLiteral("acme bank")), (IdSet { both, textOnly }));
    EXPECT_EQ(store->search(QStringLiteral("ACME   dear")), (IdSet { textOnly }));
    EXPECT_EQ(store->search(QStringLiteral("anking")), IdSet {});
    EXPECT_EQ(store->search(QStringLiteral("2024")), (IdSet { both }));
    // Diacritics are ignored on both sides.
    EXPECT_EQ(store->search(QStringLiteral("societe generale")), (IdSet { accent }));
    EXPECT_EQ(store->search(QStringLiteral("résu cafe")), (IdSet { accent }));
    // Blanks only: no query and no scans.
    EXPECT_EQ(store->search(QStringLiteral("   ")), IdSet {});
}

TEST_F(Search, quotesAndQuerySyntaxInTheWordsAreSearchedAsText)
{
    const auto quoted = scan(QStringLiteral("a.pdf"), QStringLiteral("He said \"hello\" NOT there OR here"));
    scan(QStringLiteral("b.pdf"), QStringLiteral("Nothing to see"));
    EXPECT_EQ(store->search(QStringLiteral("\"hello\"")), (IdSet { quoted }));
    EXPECT_EQ(store->search(QStringLiteral("said\" NOT")), (IdSet { quoted }));
    EXPECT_EQ(store->search(QStringLiteral("OR")), (IdSet { quoted }));
    EXPECT_EQ(store->search(QStringLiteral("* ( ) : ^")), IdSet {});
    EXPECT_EQ(store->search(QStringLiteral("name:nothing")), IdSet {});
}

} // namespace
