#include "core/OrgMatching.h"

#include "support/Printing.h"

#include <QString>

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

TEST(OrgMatching, keyFoldsPunctuationCaseAccentsWidthLeadingTheAndTrailingLegalForms)
{
    const struct {
        QString name;
        QString key;
    } cases[] = {
        { u"The Acme Company, Inc."_s, u"acme"_s },
        { u"AT&T"_s, u"at and t"_s },
        { u"U.S. Bank N.A."_s, u"us bank"_s },
        // Only a leading "the" with something after it; legal forms one after another, but never the last word.
        { u"The The"_s, u"the"_s },
        { u"Inc. Co."_s, u"inc"_s },
        { u"Socie\u0301te\u0301 Générale"_s, u"societe generale"_s },
        { u"\uFF21\uFF23\uFF2D\uFF25 \uFF29\uFF4E\uFF43"_s, u"acme"_s },
        { u"ΤΡΑΠΕΖΑ Πειραιώς"_s, u"τραπεζα πειραιωσ"_s },
        { u"Acme 🏦"_s + QChar(0xD800) + u"Widgets"_s, u"acme widgets"_s },
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::key(c.name), c.key) << c.name.toStdString();
}

TEST(OrgMatching, cleanTrimsDropsNonAnswersAndLegalFormsAndCalmsLongShoutedNames)
{
    const struct {
        QString answer;
        std::optional<QString> name;
    } cases[] = {
        { u"  \"Acme, Inc.\"  "_s, u"Acme"_s },
        { u"U.S. Bank N.A."_s, u"U.S. Bank"_s },
        // Forms the expression does not know stay, and so does a form standing alone.
        { u"Acme GmbH"_s, u"Acme GmbH"_s },
        { u"Inc."_s, u"Inc"_s },
        { u"No organization"_s, std::nullopt },
        { u"\"\"...;"_s, std::nullopt },
        // Only shouted names of at least six characters, legal form cut, are calmed.
        { u"ÉLECTRICITÉ DE FRANCE"_s, u"Électricité De France"_s },
        { u"ACME CORP"_s, u"ACME"_s },
        { u"IBM Deutschland"_s, u"IBM Deutschland"_s },
        // 80 user-perceived characters: an accent written as a combining mark belongs to its letter.
        { u"e\u0301"_s.repeated(100), u"e\u0301"_s.repeated(80) },
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::clean(c.answer), c.name) << c.answer.toStdString();
}

// Model replies are untrusted: long runs of blanks or legal forms and invalid text stay cheap and bounded.
TEST(OrgMatching, hugeAndHostileAnswersStayBounded)
{
    const QString blanks = u", "_s.repeated(200'000);
    EXPECT_EQ(OrgMatching::clean(u"Acme"_s + blanks + u"Inc"_s), u"Acme"_s);
    EXPECT_EQ(OrgMatching::clean(u"Acme"_s + blanks + u"Widgets"_s), u"Acme"_s + blanks.left(76));
    EXPECT_EQ(OrgMatching::clean(u"Acme"_s + u" co"_s.repeated(100'000)), u"Acme"_s);

    const QString invalid = QString::fromUtf8("\xff\xfe\xc3(Acme\x00\x1b[31m", 14);
    EXPECT_EQ(OrgMatching::clean(invalid), invalid);
    EXPECT_EQ(OrgMatching::key(invalid), u"acme 31m"_s);
}

Organization org(std::int64_t id, const char *name)
{
    return { id, QString::fromUtf8(name), 0 };
}

TEST(OrgMatching, matchDecidesByAliasThenKeyThenSpacingThenAUniqueRunOfWholeWords)
{
    const std::vector<Organization> banks { org(1, "First National Bank"), org(2, "Acme Widgets") };
    const struct {
        const char *what;
        std::vector<Organization> organizations;
        OrgMatching::Aliases aliases;
        QString name;
        std::optional<std::int64_t> id;
    } cases[] = {
        { "alias before any name", { org(3, "ACME") }, { { u"acme"_s, 7 } }, u"ACME Inc."_s, 7 },
        { "alias that does not apply", { org(3, "Acme Widgets East") }, { { u"acme bank"_s, 7 } }, u"Acme"_s, 3 },
        { "same key", { org(1, "Acme Widgets"), org(2, "The ACME Company") }, {}, u"acme inc"_s, 2 },
        { "spacing", { org(4, "PayPal") }, {}, u"Pay Pal"_s, 4 },
        { "word run", { org(6, "First Bank of Acme County") }, {}, u"Bank of Acme"_s, 6 },
        { "only generic words", banks, {}, u"First National"_s, std::nullopt },
        { "two candidates", { org(1, "Acme Widgets"), org(2, "Acme Tools") }, {}, u"Acme"_s, std::nullopt },
        { "three letters", { org(1, "Abc Corp Holdings") }, {}, u"Abc"_s, std::nullopt },
        { "words not in a run", { org(1, "Acme East Widgets") }, {}, u"Acme Widgets"_s, std::nullopt },
        { "part of a word", { org(1, "Acmeville Widgets") }, {}, u"Acme"_s, std::nullopt },
        { "name without a key", { org(1, "Acme") }, { { QString(), 9 } }, u"..."_s, std::nullopt },
        { "organization without a key", { org(1, "???"), org(2, "Acme Bank") }, {}, u"Acme"_s, 2 },
    };
    for (const auto &c : cases)
        EXPECT_EQ(OrgMatching::match(c.name, c.organizations, c.aliases), c.id) << c.what;
}

} // namespace
