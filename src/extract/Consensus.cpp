#include "extract/Consensus.h"

#include "core/OrgMatching.h"

#include <QStringList>

#include <algorithm>

namespace {
int weight(const PageAnswer &answer)
{
    return answer.firstPage ? 3 : 1;
}

using Answers = std::vector<const PageAnswer *>;

struct Group {
    QString name;
    Answers answers;

    int weight() const
    {
        int total = 0;
        for (const PageAnswer *answer : answers)
            total += ::weight(*answer);
        return total;
    }
};

// The value with the most weight; between equals, the one seen on the lowest page.
std::optional<QString> vote(const std::vector<std::pair<QString, const PageAnswer *>> &votes)
{
    struct Tally {
        QString value;
        int weight = 0;
        std::int64_t lowestPage = 0;
    };
    std::vector<Tally> tallies;
    for (const auto &[value, answer] : votes) {
        const QString &text = value; // a lambda can't capture a structured binding in C++20
        auto tally = std::find_if(tallies.begin(), tallies.end(), [&](const Tally &t) { return t.value == text; });
        if (tally == tallies.end())
            tallies.push_back({ value, weight(*answer), answer->page });
        else {
            tally->weight += weight(*answer);
            tally->lowestPage = std::min(tally->lowestPage, answer->page);
        }
    }
    const Tally *winner = nullptr;
    for (const Tally &tally : tallies)
        if (!winner || tally.weight > winner->weight
            || (tally.weight == winner->weight && tally.lowestPage < winner->lowestPage))
            winner = &tally;
    if (!winner)
        return std::nullopt;
    return winner->value;
}

// "page 1*" or "pages 1*, 2, 4": shown from 1, first pages starred.
QString pageList(const Answers &answers)
{
    QStringList entries;
    for (const PageAnswer *answer : answers)
        entries.append(QString::number(answer->page + 1) + (answer->firstPage ? u"*" : u""));
    return (entries.size() == 1 ? u"page " : u"pages ") + entries.join(u", ");
}

QString quoted(const QString &text)
{
    return u'\u201C' + text + u'\u201D';
}

// Each answer's organization as OrgMatching cleans it; absent for a non-answer.
std::vector<std::optional<QString>> cleanedNames(const std::vector<PageAnswer> &answers)
{
    std::vector<std::optional<QString>> names;
    names.reserve(answers.size());
    for (const PageAnswer &answer : answers)
        names.push_back(answer.organization ? OrgMatching::clean(*answer.organization) : std::nullopt);
    return names;
}

std::vector<Group> organizationGroups(
    const std::vector<PageAnswer> &answers, const std::vector<std::optional<QString>> &names)
{
    std::vector<Group> groups;
    std::vector<Organization> named;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const PageAnswer &answer = answers[i];
        const std::optional<QString> &cleaned = names[i];
        if (!cleaned)
            continue;
        if (const std::optional<std::int64_t> group = OrgMatching::match(*cleaned, named, {})) {
            groups[std::size_t(*group)].answers.push_back(&answer);
        } else {
            named.push_back(Organization { std::int64_t(groups.size()), *cleaned, 0 });
            groups.push_back(Group { *cleaned, { &answer } });
        }
    }
    return groups;
}
} // namespace

Consensus::Result Consensus::decide(const std::vector<PageAnswer> &answers)
{
    Result result;
    QStringList lines;

    const std::vector<std::optional<QString>> names = cleanedNames(answers);
    const std::vector<Group> groups = organizationGroups(answers, names);
    const Group *winner = nullptr;
    for (const Group &group : groups)
        if (!winner || group.weight() > winner->weight()
            || (group.weight() == winner->weight() && group.answers.front()->page < winner->answers.front()->page))
            winner = &group;

    if (winner) {
        const PageAnswer *chosen = winner->answers.front();
        for (const PageAnswer *answer : winner->answers)
            if ((answer->firstPage && !chosen->firstPage)
                || (answer->firstPage == chosen->firstPage && answer->page < chosen->page))
                chosen = answer;
        result.organization = names[std::size_t(chosen - answers.data())].value_or(winner->name);

        QString line = u"Organization " + quoted(*result.organization) + u" from " + pageList(winner->answers);
        if (groups.size() >= 2) {
            QStringList others;
            for (const Group &group : groups)
                if (&group != winner)
                    others.append(quoted(group.name) + u" (" + pageList(group.answers) + u')');
            line += u"; also said: " + others.join(u", ");
        }
        lines.append(line);
    } else {
        lines.append(QStringLiteral("No page named an organization"));
    }

    // Pages that named another organization speak for another document.
    Answers pool;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const PageAnswer &answer = answers[i];
        const bool elsewhere = winner && names[i]
            && std::none_of(winner->answers.begin(), winner->answers.end(),
                [&](const PageAnswer *member) { return member->page == answer.page; });
        if (!elsewhere)
            pool.push_back(&answer);
    }

    std::vector<std::pair<QString, const PageAnswer *>> kinds;
    for (const PageAnswer *answer : pool)
        if (answer->kind)
            kinds.emplace_back(*answer->kind, answer);
    result.kind = vote(kinds);
    if (result.kind) {
        Answers agreeing;
        for (const PageAnswer *answer : pool)
            if (answer->kind == result.kind)
                agreeing.push_back(answer);
        lines.append(u"Type " + quoted(*result.kind) + u" from " + pageList(agreeing));
    }

    // Dates written on the page beat those that weren't; only without any do the others count.
    Answers datePool;
    for (const PageAnswer *answer : pool)
        if (answer->date && answer->dateInText)
            datePool.push_back(answer);
    const bool notInText = datePool.empty();
    if (notInText)
        datePool = pool;
    std::vector<std::pair<QString, const PageAnswer *>> dates;
    for (const PageAnswer *answer : datePool)
        if (answer->date)
            dates.emplace_back(*answer->date, answer);
    result.date = vote(dates);
    if (result.date) {
        Answers agreeing;
        std::optional<QString> label;
        QStringList otherDates;
        for (const PageAnswer *answer : datePool) {
            if (answer->date == result.date) {
                agreeing.push_back(answer);
                if (!label && answer->dateLabel)
                    label = answer->dateLabel;
            } else if (answer->date && !otherDates.contains(*answer->date)) {
                otherDates.append(*answer->date);
            }
        }
        QString line = u"Date " + *result.date;
        if (label)
            line += u" (" + quoted(*label) + u')';
        line += u" from " + pageList(agreeing);
        if (notInText)
            line += u", not found in the text as written";
        lines.append(line);
        if (!otherDates.isEmpty()) {
            otherDates.sort();
            lines.append(u"Other dates: " + otherDates.join(u", "));
        }
    } else {
        lines.append(QStringLiteral("No date"));
    }

    if (std::any_of(answers.begin(), answers.end(), [](const PageAnswer &answer) { return answer.firstPage; }))
        lines.append(QStringLiteral("* = the model thought this was the first page"));

    result.notes = lines.join(u". ") + u'.';
    return result;
}
