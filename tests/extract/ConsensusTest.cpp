#include "extract/Consensus.h"

#include "support/Printing.h"

#include <gtest/gtest.h>

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

void expectFacts(
    const Consensus::Result &result, const char16_t *organization, const char16_t *kind, const char16_t *date)
{
    EXPECT_EQ(result.organization, text(organization));
    EXPECT_EQ(result.kind, text(kind));
    EXPECT_EQ(result.date, text(date));
}
} // namespace

TEST(Consensus, firstPagesWeighMoreTiesGoToTheLowerPageAndSpellingsOfANameAgree)
{
    expectFacts(decide({}), nullptr, nullptr, nullptr);
    expectFacts(decide({
                    { 0, u"Zed", u"Invoice", u"2024-01-10", true, true },
                    { 1, nullptr, u"Bill", u"2024-02-10", false, true },
                    { 2, u"Acme", u"Bill", u"2024-02-10", false, true },
                    { 3, u"Acme", u"Bill", u"2024-02-10", false, true },
                }),
        u"Zed", u"Invoice", u"2024-01-10");
    // In whatever order the pages were read.
    expectFacts(decide({ { 5, u"Bolt", u"Invoice", u"2024-03-03" }, { 2, u"Acme", u"Bill", u"2024-01-01" } }), u"Acme",
        u"Bill", u"2024-01-01");
    // Spellings of one name form one group, named by its first page.
    expectFacts(decide({
                    { 0, u"Acme Bank", u"Bank statement" },
                    { 1, u"ACME BANK, N.A." },
                    { 2, u"The Acme Bank", nullptr, nullptr, true },
                    { 3, u"Acme" },
                }),
        u"The Acme Bank", u"Bank statement", nullptr);
    // A short name shared by two groups opens its own.
    expectFacts(decide({ { 0, u"Acme Bank" }, { 1, u"Acme Insurance" }, { 2, u"Acme" }, { 3, u"ACME, INC." } }),
        u"Acme", nullptr, nullptr);
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
    expectFacts(result, u"Acme", u"Bill", u"2024-02-02");
    EXPECT_EQ(result.notes,
        QString::fromUtf16(u"Organization \u201CAcme\u201D from page 1*; also said: \u201CBolt\u201D (pages 2, 3). "
                           u"Type \u201CBill\u201D from page 4. Date 2024-02-02 (\u201CDue\u201D) from page 4. "
                           u"* = the model thought this was the first page."));
}
