#include "extract/Consensus.h"

#include "support/Printing.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {
struct Page {
    std::int64_t page;
    const char16_t *organization = nullptr;
    const char16_t *kind = nullptr;
    const char16_t *date = nullptr;
    bool firstPage = false;
    bool dateInText = false;
    const char16_t *dateLabel = nullptr;
};

std::optional<QString> text(const char16_t *value)
{
    return value ? std::optional<QString>(QString::fromUtf16(value)) : std::nullopt;
}

Consensus::Result decide(std::initializer_list<Page> pages)
{
    std::vector<PageAnswer> list;
    for (const Page &p : pages)
        list.push_back(PageAnswer {
            p.page, text(p.organization), text(p.kind), text(p.date), text(p.dateLabel), p.firstPage, p.dateInText });
    return Consensus::decide(list);
}

// "organization | type | date", "-" for each not decided.
QString facts(std::initializer_list<Page> pages)
{
    const Consensus::Result result = decide(pages);
    return QStringList { result.organization.value_or(u"-"_s), result.kind.value_or(u"-"_s),
        result.date.value_or(u"-"_s) }
        .join(u" | ");
}
} // namespace

TEST(Consensus, firstPagesWeighMoreTiesGoToTheLowerPageAndSpellingsOfANameAgree)
{
    EXPECT_EQ(facts({
                  { 0, u"Zed", u"Invoice", u"2024-01-10", true, true },
                  { 1, nullptr, u"Bill", u"2024-02-10", false, true },
                  { 2, u"Acme", u"Bill", u"2024-02-10", false, true },
                  { 3, u"Acme", u"Bill", u"2024-02-10", false, true },
              }),
        u"Zed | Invoice | 2024-01-10");
    // In whatever order the pages were read.
    EXPECT_EQ(facts({ { 5, u"Bolt", u"Invoice", u"2024-03-03" }, { 2, u"Acme", u"Bill", u"2024-01-01" } }),
        u"Acme | Bill | 2024-01-01");
    // Spellings of one name form one group, named by its first page.
    EXPECT_EQ(facts({ { 0, u"Acme Bank", u"Bank statement" }, { 1, u"ACME BANK, N.A." },
                  { 2, u"The Acme Bank", nullptr, nullptr, true }, { 3, u"Acme" } }),
        u"The Acme Bank | Bank statement | -");
    // A short name shared by two groups opens its own.
    EXPECT_EQ(facts({ { 0, u"Acme Bank" }, { 1, u"Acme Insurance" }, { 2, u"Acme" }, { 3, u"ACME, INC." } }),
        u"Acme | - | -");
}

TEST(Consensus, pagesOfAnotherOrganizationAndDatesNotInTheTextDontVote)
{
    const Consensus::Result result = decide({
        { 0, u"Acme", nullptr, nullptr, true },
        { 1, u"Bolt", u"Invoice", u"2024-05-05", false, true },
        { 2, u"Bolt", u"Invoice", u"2024-05-05", false, true },
        { 3, u"N/A", u"Bill", u"2024-02-02", false, true, u"Due" },
        { 4, u" unknown ", nullptr, u"2024-01-01", true, false },
    });
    EXPECT_EQ(result.notes,
        QString::fromUtf16(u"Organization \u201CAcme\u201D from page 1*; also said: \u201CBolt\u201D (pages 2, 3). "
                           u"Type \u201CBill\u201D from page 4. Date 2024-02-02 (\u201CDue\u201D) from page 4. "
                           u"* = the model thought this was the first page."));
}
