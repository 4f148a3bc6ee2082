#include "library/Facts.h"

#include "support/Printing.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

ScanDocument scan(std::int64_t id, std::optional<QString> organization, std::optional<QString> kind = std::nullopt,
    std::optional<QString> date = std::nullopt)
{
    return { .id = id, .organizationName = organization, .date = date, .kind = kind };
}

std::vector<Organization> organizations(const QStringList &names)
{
    std::vector<Organization> list;
    for (const QString &name : names)
        list.push_back({ .id = std::int64_t(list.size() + 1), .name = name });
    return list;
}

} // namespace

TEST(Facts, aFactMissingFromOneScanDiffersFromTheOthersWhileOneMissingFromAllIsShared)
{
    const Facts mixed({ scan(1, u"Acme"_s, u"Letter"_s, u"2024-03-05"_s), scan(2, u"Acme"_s, u"Letter"_s),
        scan(3, std::nullopt, u"Letter"_s, u"2024-03-05"_s) });
    EXPECT_EQ(mixed.ids, (DocumentIDSet { 1, 2, 3 }));
    EXPECT_TRUE(mixed.organizationsDiffer());
    EXPECT_EQ(mixed.commonKind, u"Letter"_s);
    EXPECT_TRUE(mixed.datesDiffer());

    const Facts bare({ scan(1, std::nullopt), scan(2, std::nullopt) });
    EXPECT_EQ(bare.commonOrg, QString());
    EXPECT_EQ(bare.commonKind, QString());
    EXPECT_EQ(bare.commonDate, QString());
    EXPECT_FALSE(bare.organizationsDiffer() || bare.kindsDiffer() || bare.datesDiffer());

    const Facts kinds(
        { scan(1, u"Acme"_s, u"Letter"_s, u"2024-03-05"_s), scan(2, u"Acme"_s, std::nullopt, u"2024-03-05"_s) });
    EXPECT_EQ(kinds.commonOrg, u"Acme"_s);
    EXPECT_TRUE(kinds.kindsDiffer());
    EXPECT_EQ(kinds.commonDate, u"2024-03-05"_s);
}

TEST(Facts, suggestionsContainTheTypedTextIgnoringCaseAndAccentsButNeverRepeatIt)
{
    const auto list = organizations({ u"Café Müller"_s, u"Acme"_s, u"Muller Bros"_s, u"ACME Holdings"_s });
    EXPECT_EQ(organizationSuggestions(u"  muller "_s, std::nullopt, list),
        (QStringList { u"Café Müller"_s, u"Muller Bros"_s }));
    EXPECT_EQ(organizationSuggestions(u"CAFE"_s, std::nullopt, list), QStringList { u"Café Müller"_s });
    // The exact name is left out; a differently written one still offers the right spelling.
    EXPECT_EQ(organizationSuggestions(u"Acme"_s, std::nullopt, list), QStringList { u"ACME Holdings"_s });
    EXPECT_EQ(organizationSuggestions(u"acme"_s, std::nullopt, list), (QStringList { u"Acme"_s, u"ACME Holdings"_s }));
    // Nothing while the field is blank or holds the scans' own organization.
    EXPECT_TRUE(organizationSuggestions(u"   "_s, std::nullopt, list).isEmpty());
    EXPECT_TRUE(organizationSuggestions(u"Acme "_s, u"Acme"_s, list).isEmpty());

    // The first eight, in the Library's order.
    QStringList banks;
    for (int n = 12; n > 0; --n)
        banks << u"Bank %1"_s.arg(n);
    EXPECT_EQ(organizationSuggestions(u"bank"_s, std::nullopt, organizations(banks)), banks.first(8));
}

TEST(Facts, committingTheFieldFilesUnderTheTrimmedNameOrNoneButLeavesDifferingScansAloneWhenEmpty)
{
    const Facts filed({ scan(1, u"Acme"_s) });
    EXPECT_EQ(organizationCommit(u" Acme\n"_s, filed), std::nullopt);
    EXPECT_EQ(organizationCommit(u"  Bigco \t"_s, filed), OrganizationChange { u"Bigco"_s });
    EXPECT_EQ(organizationCommit(u"  "_s, filed), OrganizationChange {});

    const Facts differing({ scan(1, u"Acme"_s), scan(2, u"Acme"_s), scan(3, std::nullopt) });
    EXPECT_EQ(organizationCommit(QString(), differing), std::nullopt);
    EXPECT_EQ(organizationCommit(u"Acme"_s, differing), OrganizationChange { u"Acme"_s });
    EXPECT_EQ(organizationCommit(u" "_s, Facts({ scan(1, std::nullopt) })), std::nullopt);
}
