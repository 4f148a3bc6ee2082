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

std::vector<PageAnswer> answers(std::initializer_list<Page> pages)
{
    std::vector<PageAnswer> list;
    for (const Page &p : pages)
        list.push_back(PageAnswer {
            p.page, text(p.organization), text(p.kind), text(p.date), text(p.dateLabel), p.firstPage, p.dateInText });
    return list;
}

struct Case {
    const char *name;
    std::vector<PageAnswer> answers;
    std::optional<QString> organization;
    std::optional<QString> kind;
    std::optional<QString> date;
    QString notes; // not checked when empty
};
} // namespace

TEST(Consensus, decide_factsAndExplanation)
{
    const Case cases[] = {
        { "no answers", {}, std::nullopt, std::nullopt, std::nullopt,
            QStringLiteral("No page named an organization. No date.") },
        { "first page outweighs the others on every fact",
            answers({
                { 0, u"Acme Bank", u"Bank statement", u"2024-09-05", true, true, u"Statement date" },
                { 1, u"Acme Bank", u"Bank statement", u"2024-08-01", false, true },
                { 2, u"Acme Insurance", u"Insurance policy or notice", u"2024-07-01", false, true },
            }),
            text(u"Acme Bank"), text(u"Bank statement"), text(u"2024-09-05"), {} },
        { "equal weights: the lower first page wins, in whatever order pages were read",
            answers({ { 1, u"Bolt", u"Invoice" }, { 0, u"Acme", u"Bill" } }), text(u"Acme"), text(u"Bill"),
            std::nullopt, {} },
        { "one first page outweighs two agreeing pages",
            answers({
                { 0, u"Zed", u"Invoice", u"2024-01-10", true, true },
                { 1, nullptr, u"Bill", u"2024-02-10", false, true },
                { 2, u"Acme", u"Bill", u"2024-02-10", false, true },
                { 3, u"Acme", u"Bill", u"2024-02-10", false, true },
                { 4, nullptr, u"Bill", u"2024-02-10", false, true },
            }),
            text(u"Zed"), text(u"Invoice"), text(u"2024-01-10"), {} },
        { "spellings of one name form one group named by its first page",
            answers({
                { 0, u"Acme Bank", u"Bank statement", u"2024-09-05", false, true },
                { 1, u"ACME BANK, N.A.", u"Bank statement" },
                { 2, u"The Acme Bank", u"Bank statement", u"2024-09-05", true, true, u"Statement date" },
                { 3, u"Acme" },
            }),
            text(u"The Acme Bank"), text(u"Bank statement"), text(u"2024-09-05"), {} },
        { "a short name shared by two groups opens its own",
            answers({ { 0, u"Acme Bank" }, { 1, u"Acme Insurance" }, { 2, u"Acme" }, { 3, u"ACME, INC." } }),
            text(u"Acme"), std::nullopt, std::nullopt, {} },
        { "pages naming another organization don't vote; pages naming none do",
            answers({
                { 0, u"Acme", nullptr, nullptr, true },
                { 1, u"Bolt", u"Invoice", u"2024-05-05", false, true },
                { 2, u"Bolt", u"Invoice", u"2024-05-05", false, true },
                { 3, u"N/A", u"Bill", u"2024-06-06" },
                { 4, u" unknown ", nullptr, u"2024-04-04" },
            }),
            text(u"Acme"), text(u"Bill"), text(u"2024-06-06"),
            QString::fromUtf16(
                u"Organization \u201CAcme\u201D from page 1*; also said: \u201CBolt\u201D (pages 2, 3). Type "
                u"\u201CBill\u201D from page 4. Date 2024-06-06 from page 4, not found in the text as "
                u"written. Other dates: 2024-04-04. * = the model thought this was the first page.") },
        { "dates not in the text neither vote nor show when others are",
            answers({
                { 0, nullptr, nullptr, u"2024-01-01", true, false, u"Printed" },
                { 1, nullptr, nullptr, u"2024-03-03", false, true },
                { 2, nullptr, nullptr, u"2024-02-02", false, true, u"Due" },
                { 3, nullptr, nullptr, u"2024-02-02", false, true, u"Closing date" },
            }),
            std::nullopt, std::nullopt, text(u"2024-02-02"),
            QString::fromUtf16(
                u"No page named an organization. Date 2024-02-02 (\u201CDue\u201D) from pages 3, 4. Other "
                u"dates: 2024-03-03. * = the model thought this was the first page.") },
        { "equal votes on a value: the one on the lower page",
            answers({ { 5, nullptr, u"Invoice", u"2024-03-03" }, { 2, nullptr, u"Bill", u"2024-01-01" } }),
            std::nullopt, text(u"Bill"), text(u"2024-01-01"), {} },
    };
    for (const Case &c : cases) {
        const Consensus::Result result = Consensus::decide(c.answers);
        EXPECT_EQ(result.organization, c.organization) << c.name;
        EXPECT_EQ(result.kind, c.kind) << c.name;
        EXPECT_EQ(result.date, c.date) << c.name;
        if (!c.notes.isEmpty())
            EXPECT_EQ(result.notes, c.notes) << c.name;
    }
}
