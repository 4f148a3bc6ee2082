#include "core/OrgMatching.h"

#include "support/Printing.h"

#include <QString>

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace {

struct KeyCase {
    QString name;
    QString key;
};

TEST(OrgMatchingKey, foldsPunctuationCaseDiacriticsWidthLeadingTheAndTrailingLegalForms)
{
    const std::vector<KeyCase> cases {
        { QStringLiteral("The Acme Company, Inc."), QStringLiteral("acme") },
        { QStringLiteral("AT&T"), QStringLiteral("at and t") },
        { QStringLiteral("U.S. Bank N.A."), QStringLiteral("us bank") },
        { QStringLiteral("O'Neil & Sons"), QStringLiteral("oneil and sons") },
        { QStringLiteral("  Acme\t--  Widgets\n"), QStringLiteral("acme widgets") },
        // Only a leading "the" with something after it; legal forms one after another, but never the last word.
        { QStringLiteral("The The"), QStringLiteral("the") },
        { QStringLiteral("Bank of the West"), QStringLiteral("bank of the west") },
        { QStringLiteral("Acme Incorporated Co Ltd"), QStringLiteral("acme") },
        { QStringLiteral("Inc. Co."), QStringLiteral("inc") },
        { QStringLiteral(" . ' \u2019 "), QString() },
        // Accents as letters or as combining marks, full-width and mathematical letters, any script.
        { QStringLiteral("Société Générale"), QStringLiteral("societe generale") },
        { QStringLiteral("Socie\u0301te\u0301 Ge\u0301ne\u0301rale"), QStringLiteral("societe generale") },
        { QStringLiteral("\uFF21\uFF23\uFF2D\uFF25 \uFF29\uFF4E\uFF43"), QStringLiteral("acme") },
        { QStringLiteral("Acme 𝐁𝐚𝐧𝐤"), QStringLiteral("acme bank") },
        { QStringLiteral("ΤΡΑΠΕΖΑ Πειραιώς"), QStringLiteral("τραπεζα πειραιωσ") },
        { QStringLiteral("三菱UFJ銀行"), QStringLiteral("三菱ufj銀行") },
        { QStringLiteral("Acme 🏦") + QChar(0xD800) + QStringLiteral("Widgets"), QStringLiteral("acme widgets") },
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::key(c.name), c.key) << c.name.toStdString();
}

TEST(OrgMatchingClean, trimsDropsNonAnswersAndLegalFormsAndCalmsLongShoutedNames)
{
    const struct {
        QString answer;
        std::optional<QString> name;
    } cases[] = {
        { QStringLiteral("  \"Acme, Inc.\"  "), QStringLiteral("Acme") },
        { QStringLiteral("*Acme Widgets*;"), QStringLiteral("Acme Widgets") },
        { QStringLiteral("U.S. Bank N.A."), QStringLiteral("U.S. Bank") },
        { QStringLiteral("Acme L.L.C."), QStringLiteral("Acme") },
        // Forms the expression does not know stay, and so does a form glued to the name or standing alone.
        { QStringLiteral("Acme GmbH"), QStringLiteral("Acme GmbH") },
        { QStringLiteral("Acmeinc"), QStringLiteral("Acmeinc") },
        { QStringLiteral("Inc."), QStringLiteral("Inc") },
        // Non-answers, in any case, and answers without a single letter or digit.
        { QString(), std::nullopt },
        { QStringLiteral("N/A"), std::nullopt },
        { QStringLiteral("No organization"), std::nullopt },
        { QStringLiteral("\"\"...;"), std::nullopt },
        // Only shouted names of at least six characters, legal form cut, are calmed.
        { QStringLiteral("ACME BANK, LLC"), QStringLiteral("Acme Bank") },
        { QStringLiteral("ÉLECTRICITÉ DE FRANCE"), QStringLiteral("Électricité De France") },
        { QStringLiteral("ACME CORP"), QStringLiteral("ACME") },
        { QStringLiteral("AB CDE"), QStringLiteral("Ab Cde") },
        { QStringLiteral("AB CD"), QStringLiteral("AB CD") },
        { QStringLiteral("ABCDEFGH"), QStringLiteral("ABCDEFGH") },
        { QStringLiteral("IBM Deutschland"), QStringLiteral("IBM Deutschland") },
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
        { "spacing", { org(4, "PayPal") }, {}, QStringLiteral("Pay Pal"), 4 },
        { "word run in the organization", banks, {}, QStringLiteral("Acme"), 2 },
        { "word run in the middle", { org(6, "First Bank of Acme County") }, {}, QStringLiteral("Bank of Acme"), 6 },
        { "only generic words", banks, {}, QStringLiteral("First National"), std::nullopt },
        { "two candidates", { org(1, "Acme Widgets"), org(2, "Acme Tools") }, {}, QStringLiteral("Acme"),
            std::nullopt },
        { "three letters", { org(1, "Abc Corp Holdings") }, {}, QStringLiteral("Abc"), std::nullopt },
        { "four letters", { org(1, "Abcd Corp Holdings") }, {}, QStringLiteral("Abcd"), 1 },
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
