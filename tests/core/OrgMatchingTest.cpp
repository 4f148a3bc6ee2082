#include "core/OrgMatching.h"
#include "support/Printing.h"

#include <QString>

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <vector>

namespace {

struct KeyCase {
    QString name;
    QString key;
};

TEST(OrgMatchingKey, foldsPunctuationLeadingTheAndTrailingLegalForms)
{
    const std::vector<KeyCase> cases {
        { QStringLiteral("The Acme Company, Inc."), QStringLiteral("acme") },
        { QStringLiteral("AT&T"), QStringLiteral("at and t") },
        { QStringLiteral("U.S. Bank N.A."), QStringLiteral("us bank") },
        { QStringLiteral("O'Neil & Sons"), QStringLiteral("oneil and sons") },
        { QStringLiteral("  Acme\t--  Widgets\n"), QStringLiteral("acme widgets") },
        // Only a leading "the" with something after it, and only one of them.
        { QStringLiteral("The Bank"), QStringLiteral("bank") },
        { QStringLiteral("The The"), QStringLiteral("the") },
        { QStringLiteral("Bank of the West"), QStringLiteral("bank of the west") },
        // Trailing legal forms go one after another, but never the last word.
        { QStringLiteral("Acme Inc Ltd"), QStringLiteral("acme") },
        { QStringLiteral("Inc. Co."), QStringLiteral("inc") },
        { QStringLiteral("Müller GmbH & Co. KG"), QStringLiteral("muller gmbh and co kg") },
        { QStringLiteral("Acme Incorporated Company"), QStringLiteral("acme") },
        // Nothing but punctuation, or nothing at all.
        { QString(), QString() },
        { QStringLiteral(" . ' \u2019 "), QString() },
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::key(c.name), c.key) << c.name.toStdString();
}

TEST(OrgMatchingKey, foldsCaseDiacriticsAndWidthInAnyScript)
{
    const std::vector<KeyCase> cases {
        { QStringLiteral("Société Générale"), QStringLiteral("societe generale") },
        // The same name with its accents as separate combining marks.
        { QStringLiteral("Socie\u0301te\u0301 Ge\u0301ne\u0301rale"), QStringLiteral("societe generale") },
        { QStringLiteral("\uFF21\uFF23\uFF2D\uFF25 \uFF29\uFF4E\uFF43"), QStringLiteral("acme") }, // full-width
        { QStringLiteral("ΤΡΑΠΕΖΑ Πειραιώς"), QStringLiteral("τραπεζα πειραιωσ") },
        { QStringLiteral("三菱UFJ銀行"), QStringLiteral("三菱ufj銀行") },
        { QStringLiteral("Acme 🏦 Bank"), QStringLiteral("acme bank") },
        { QStringLiteral("Acme") + QChar(0xD800) + QStringLiteral("Widgets"), QStringLiteral("acme widgets") },
        { QStringLiteral("Acme 𝐁𝐚𝐧𝐤"), QStringLiteral("acme bank") }, // mathematical bold letters
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::key(c.name), c.key) << c.name.toStdString();
}

struct CleanCase {
    QString answer;
    std::optional<QString> name;
};

TEST(OrgMatchingClean, trimsAnswersAndDropsNonAnswersAndLegalForms)
{
    const std::vector<CleanCase> cases {
        { QStringLiteral("  \"Acme, Inc.\"  "), QStringLiteral("Acme") },
        { QStringLiteral("*Acme Widgets*;"), QStringLiteral("Acme Widgets") },
        { QStringLiteral("Acme Co., Inc"), QStringLiteral("Acme") },
        { QStringLiteral("U.S. Bank N.A."), QStringLiteral("U.S. Bank") },
        { QStringLiteral("Acme L.L.C."), QStringLiteral("Acme") },
        // Forms the expression does not know stay, and so does a form glued to the name.
        { QStringLiteral("Acme Company"), QStringLiteral("Acme Company") },
        { QStringLiteral("Acme GmbH"), QStringLiteral("Acme GmbH") },
        { QStringLiteral("Acmeinc"), QStringLiteral("Acmeinc") },
        // Nothing but a legal form is a name, not a form to cut.
        { QStringLiteral("Inc."), QStringLiteral("Inc") },
        // Non-answers, in any case, and answers without a single letter or digit.
        { QString(), std::nullopt },
        { QStringLiteral("N/A"), std::nullopt },
        { QStringLiteral("NOT SPECIFIED"), std::nullopt },
        { QStringLiteral("No organization"), std::nullopt },
        { QStringLiteral("\"\"...;"), std::nullopt },
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::clean(c.answer), c.name) << c.answer.toStdString();
}

TEST(OrgMatchingClean, calmsOnlyLongShoutedNames)
{
    const std::vector<CleanCase> cases {
        { QStringLiteral("BANK OF AMERICA"), QStringLiteral("Bank Of America") },
        { QStringLiteral("ACME BANK, LLC"), QStringLiteral("Acme Bank") }, // 9 characters once the form is cut
        { QStringLiteral("AB CDE"), QStringLiteral("Ab Cde") }, // 6 characters with a space
        { QStringLiteral("ÉLECTRICITÉ DE FRANCE"), QStringLiteral("Électricité De France") },
        { QStringLiteral("ACME"), QStringLiteral("ACME") }, { QStringLiteral("ACME CORP"), QStringLiteral("ACME") },
        { QStringLiteral("ABCDEFGH"), QStringLiteral("ABCDEFGH") },
        { QStringLiteral("AB CD"), QStringLiteral("AB CD") },
        { QStringLiteral("IBM Deutschland"), QStringLiteral("IBM Deutschland") },
        { QStringLiteral("123 456 789"), QStringLiteral("123 456 789") }, // no letters to change
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::clean(c.answer), c.name) << c.answer.toStdString();
}

TEST(OrgMatchingClean, keepsTheFirst80UserPerceivedCharacters)
{
    const QString hundred = QStringLiteral("Acme ").repeated(20);
    EXPECT_EQ(OrgMatching::clean(hundred), hundred.left(80));

    // An accent written as a combining mark belongs to its letter: 80 letters, 160 code units.
    const QString accented = QStringLiteral("e\u0301").repeated(100);
    EXPECT_EQ(OrgMatching::clean(accented), accented.left(160));

    const QString flags = QStringLiteral("Acme ") + QStringLiteral("\U0001F1E9\U0001F1EA").repeated(90);
    const auto cleaned = OrgMatching::clean(flags);
    ASSERT_TRUE(cleaned);
    EXPECT_EQ(*cleaned, flags.left(5 + 75 * 4));
}

TEST(OrgMatchingClean, hugeAndHostileAnswersStayBounded)
{
    // A long run of blanks and commas before a legal form, with and without a name before it.
    const QString blanks = QStringLiteral(", ").repeated(200'000);
    EXPECT_EQ(OrgMatching::clean(QStringLiteral("Acme") + blanks + QStringLiteral("Inc")), QStringLiteral("Acme"));
    EXPECT_EQ(OrgMatching::clean(QStringLiteral("Acme") + blanks + QStringLiteral("Widgets")),
        QStringLiteral("Acme") + blanks.left(76));
    EXPECT_EQ(
        OrgMatching::clean(QStringLiteral("Acme") + QStringLiteral(" co").repeated(100'000)), QStringLiteral("Acme"));

    const QString invalid = QString::fromUtf8("\xff\xfe\xc3(Acme\x00\x1b[31m", 14);
    EXPECT_EQ(OrgMatching::clean(invalid), invalid);
    EXPECT_EQ(OrgMatching::key(invalid), QStringLiteral("acme 31m"));
}

struct MatchCase {
    const char *what;
    std::vector<Organization> organizations;
    OrgMatching::Aliases aliases;
    QString name;
    std::optional<std::int64_t> id;
};

Organization org(std::int64_t id, const char *name)
{
    return { id, QString::fromUtf8(name), 0 };
}

TEST(OrgMatchingMatch, decidesByAliasThenKeyThenSpacingThenOneWordRun)
{
    const std::vector<Organization> banks { org(1, "First National Bank"), org(2, "Acme Widgets") };
    const std::vector<MatchCase> cases {
        { "alias before any name", { org(3, "Acme Widgets East"), org(4, "ACME") }, { { QStringLiteral("acme"), 7 } },
            QStringLiteral("ACME Inc."), 7 },
        { "alias that does not apply", { org(3, "Acme Widgets East") }, { { QStringLiteral("acme bank"), 7 } },
            QStringLiteral("Acme"), 3 },
        { "same key", { org(1, "Acme Widgets"), org(2, "The ACME Company") }, {}, QStringLiteral("acme inc"), 2 },
        { "same key before any word run", { org(1, "Acme Widgets"), org(2, "Acme") }, {}, QStringLiteral("Acme"), 2 },
        { "spacing", { org(4, "PayPal") }, {}, QStringLiteral("Pay Pal"), 4 },
        { "word run in the organization", banks, {}, QStringLiteral("Acme"), 2 },
        { "word run in the name", { org(5, "Acme") }, {}, QStringLiteral("Acme Widgets Online"), 5 },
        { "word run in the middle", { org(6, "First Bank of Acme County") }, {}, QStringLiteral("Bank of Acme"), 6 },
        { "only generic words", banks, {}, QStringLiteral("First National"), std::nullopt },
        { "two candidates", { org(1, "Acme Widgets"), org(2, "Acme Tools") }, {}, QStringLiteral("Acme"),
            std::nullopt },
        { "three letters", { org(1, "Abc Corp Holdings") }, {}, QStringLiteral("Abc"), std::nullopt },
        { "four letters", { org(1, "Abcd Corp Holdings") }, {}, QStringLiteral("Abcd"), 1 },
        { "four letters over two words", { org(1, "Ab Cd Holdings") }, {}, QStringLiteral("Ab Cd"), 1 },
        { "as many words", { org(1, "Acme Tools") }, {}, QStringLiteral("Acme Widgets"), std::nullopt },
        { "words not in a run", { org(1, "Acme East Widgets") }, {}, QStringLiteral("Acme Widgets"), std::nullopt },
        { "part of a word", { org(1, "Acmeville Widgets") }, {}, QStringLiteral("Acme"), std::nullopt },
        { "name without a key", { org(1, "Acme") }, { { QString(), 9 } }, QStringLiteral("..."), std::nullopt },
        { "organization without a key", { org(1, "???"), org(2, "Acme Bank") }, {}, QStringLiteral("Acme"), 2 },
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::match(c.name, c.organizations, c.aliases), c.id) << c.what;
}

} // namespace
