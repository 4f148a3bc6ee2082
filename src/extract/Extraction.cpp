#include "extract/Extraction.h"

#include "core/Cancellation.h"
#include "core/DocDate.h"
#include "core/OrgMatching.h"
#include "extract/Consensus.h"
#include "extract/Failure.h"

#include <QDateTime>

using namespace Extractor;

namespace {
// True when `candidate` names the same organization as `anchor`, the way the catalogue matches names.
bool sameOrganization(const QString &anchor, const std::optional<QString> &candidate)
{
    if (!candidate)
        return false;
    static const OrgMatching::Aliases noAliases;
    return OrgMatching::match(*candidate, { Organization { 1, anchor, 0 } }, noAliases).has_value();
}

// Reading can stop once a first page that names the organization, the type and a date written on it is
// confirmed by another page naming the same organization, or is the only page there is to read.
bool pagesAgree(const std::vector<PageAnswer> &answers, std::size_t pagesToRead)
{
    const auto anchor = std::find_if(answers.begin(), answers.end(), [](const PageAnswer &answer) {
        return answer.firstPage && answer.organization && answer.kind && answer.dateInText;
    });
    if (anchor == answers.end())
        return false;
    if (pagesToRead == 1)
        return true;
    return std::any_of(answers.begin(), answers.end(), [&](const PageAnswer &answer) {
        return &answer != &*anchor && sameOrganization(*anchor->organization, answer.organization);
    });
}
} // namespace

QString Extractor::hintNote(const Similar &similar)
{
    return u"looks like " + similar.path + u", filed under \u201C" + similar.organization + u'\u201D';
}

Output Extractor::extract(
    LanguageModel &model, const ExtractionInput &input, const std::stop_token &stop, const AttemptObserver &observer)
{
    throwIfCancelled(stop);
    ScanState state;
    state.trace.date = QDateTime::currentDateTimeUtc();
    state.trace.system = model.systemDescription();
    state.trace.customInstructions = input.customInstructions && !input.customInstructions->trimmed().isEmpty();
    if (input.similar)
        state.trace.hint = hintNote(*input.similar);

    const std::vector<int> reading = pagesToRead(input.pages);
    if (reading.empty()) {
        state.trace.consensus = QStringLiteral("No page has enough text to read.");
        return Output { std::nullopt, std::nullopt, std::nullopt, std::move(state.trace) };
    }

    state.organizations = input.organizations;
    const ScanContext scan { model, input.pages.size(), input.similar, input.customInstructions,
        input.today.isEmpty() ? DocDate::today() : input.today, stop, observer };
    std::optional<QString> stopNote;
    for (std::size_t i = 0; i < reading.size(); ++i) {
        throwIfCancelled(stop);
        const int index = reading[i];
        if (std::optional<PageAnswer> answer = readPage(index, input.pages.at(index), scan, state))
            state.trace.pages.push_back(std::move(*answer));
        if (pagesAgree(state.trace.pages, reading.size())) {
            if (i + 1 < reading.size())
                stopNote = u"Stopped after page " + QString::number(index + 1) + u": pages agree.";
            break;
        }
    }

    if (state.trace.pages.empty())
        throw Failure::failed(QStringLiteral("The local model wouldn\u2019t answer for any page of this document."),
            std::move(state.trace));

    const Consensus::Result result = Consensus::decide(state.trace.pages);
    state.trace.consensus = stopNote ? *stopNote + u' ' + result.notes : result.notes;
    return Output { result.organization, result.kind, result.date, std::move(state.trace) };
}
