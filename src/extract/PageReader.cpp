#include "extract/PageReader.h"

#include "core/Cancellation.h"
#include "core/DocumentKind.h"
#include "core/OrgMatching.h"
#include "extract/DateEvidence.h"
#include "extract/Failure.h"
#include "extract/ModelErrors.h"
#include "extract/PlainText.h"

#include <QElapsedTimer>
#include <QUuid>

using namespace Extractor;

namespace {
using Kind = GenerationError::Kind;

// Below this many characters of page text an overflowing page goes to plain text instead of being cut
// further: 3500 halves to 1750, 875 and then 437.
constexpr qsizetype shortestStructuredText = 600;
// Lists longer than this are halved with the page text on an overflow.
constexpr qsizetype fewestHalvedOrganizations = 40;

// Trimmed; absent when empty or "none".
std::optional<QString> clean(const std::optional<QString> &value)
{
    if (!value)
        return std::nullopt;
    QString trimmed = value->trimmed();
    if (trimmed.isEmpty() || trimmed.compare(u"none", Qt::CaseInsensitive) == 0)
        return std::nullopt;
    return trimmed;
}

// The page's answer from the raw fields of a reply.
PageAnswer answer(int index, const QString &pageText, bool firstPage, const std::optional<QString> &kind,
    const std::optional<QString> &organization, const std::optional<QString> &dateLabel,
    const std::optional<QString> &date)
{
    PageAnswer answer;
    answer.page = index;
    if (const std::optional<QString> named = clean(organization))
        if (const std::optional<QString> cleaned = OrgMatching::clean(*named))
            answer.organization = clean(cleaned);
    answer.kind = DocumentKind::match(kind);
    answer.dateLabel = clean(dateLabel);
    if (date)
        answer.date = normalizeDate(*date);
    answer.firstPage = firstPage;
    // The whole text, not the part cut for the prompt.
    answer.dateInText = answer.date && DateEvidence::appears(*answer.date, pageText);
    return answer;
}

std::optional<QString> present(const QString &field)
{
    return field.isEmpty() ? std::nullopt : std::optional<QString>(field);
}

// The structured reply as the transcript shows it: the raw fields, one line each.
QString render(const PageFacts &facts)
{
    return u"firstPage: " + QString::fromLatin1(facts.firstPage ? "true" : "false") + u"\nkind: " + facts.kind
        + u"\norganization: " + facts.organization + u"\ndateLabel: " + facts.dateLabel + u"\ndate: " + facts.date;
}

// Token counting never fails a request.
std::optional<qint64> countTokens(LanguageModel &model, const QString &instructions, const QString &prompt, bool schema)
{
    try {
        return tokens(&model, instructions, prompt, schema);
    } catch (const GenerationError &) {
        return std::nullopt;
    }
}

Trace::Attempt newAttempt(
    int index, bool structured, const QString &instructions, const QString &prompt, const ScanContext &scan)
{
    Trace::Attempt attempt;
    attempt.id = QUuid::createUuid();
    attempt.label = u"Page " + QString::number(index + 1) + (structured ? u", structured" : u", plain text");
    attempt.mode = structured ? structuredMode : plainMode;
    attempt.instructions = instructions;
    attempt.prompt = prompt;
    attempt.tokens = countTokens(scan.model, instructions, prompt, structured);
    return attempt;
}

double secondsSince(const QElapsedTimer &clock)
{
    return double(clock.nsecsElapsed()) / 1e9;
}

// One structured request. Gives the page's answer, or nothing with `limit` and the state changed for
// what comes next: `fallBack` set when the page goes to plain text.
std::optional<PageAnswer> askStructured(
    int index, const QString &text, const ScanContext &scan, ScanState &state, qsizetype &limit, bool &fallBack)
{
    throwIfCancelled(scan.stop);
    Trace::Attempt attempt = newAttempt(index, true, instructions(scan.customInstructions, state.organizations),
        pagePrompt(scan.today, scan.similar, index, scan.pageCount, text, limit), scan);
    announce(attempt, scan.observer);
    QElapsedTimer clock;
    clock.start();
    try {
        const PageFacts facts = scan.model.respondStructured(
            ModelRequest { attempt.instructions, attempt.prompt, structuredResponseTokens }, scan.stop);
        attempt.seconds = secondsSince(clock);
        attempt.response = render(facts);
        attempt.outcome = QStringLiteral("OK");
        record(attempt, state.trace, scan.observer);
        return answer(index, text, facts.firstPage, present(facts.kind), present(facts.organization),
            present(facts.dateLabel), present(facts.date));
    } catch (const GenerationError &error) {
        attempt.seconds = secondsSince(clock);
        attempt.outcome = describe(error);
        if (error.kind == Kind::refusal)
            attempt.refusalExplanation = explanation(error);
        record(attempt, state.trace, scan.observer);
        if (meansRetryLater(error))
            throw Failure::retryLater(retryMessage(error));
        if (error.kind == Kind::refusal || error.kind == Kind::guardrailViolation) {
            state.structured = false;
            fallBack = true;
        } else if (error.kind == Kind::exceededContextWindowSize && limit > shortestStructuredText) {
            if (state.organizations.size() > fewestHalvedOrganizations)
                state.organizations = state.organizations.first(state.organizations.size() / 2);
            limit /= 2;
        } else {
            fallBack = true;
        }
        return std::nullopt;
    }
}

std::optional<PageAnswer> askPlain(
    int index, const QString &text, const ScanContext &scan, ScanState &state, qsizetype limit)
{
    throwIfCancelled(scan.stop);
    Trace::Attempt attempt = newAttempt(index, false,
        instructions(scan.customInstructions, state.organizations) + u"\n\n" + plainTextFormat(),
        pagePrompt(scan.today, scan.similar, index, scan.pageCount, text, limit), scan);
    announce(attempt, scan.observer);
    QElapsedTimer clock;
    clock.start();
    try {
        const QString reply = scan.model.respondText(
            ModelRequest { attempt.instructions, attempt.prompt, plainResponseTokens }, scan.stop);
        attempt.seconds = secondsSince(clock);
        attempt.response = reply;
        const std::optional<PlainAnswer> parsed = parsePlainText(reply);
        attempt.outcome = parsed ? QStringLiteral("OK") : QStringLiteral("Not in the asked-for form");
        record(attempt, state.trace, scan.observer);
        if (!parsed)
            return std::nullopt;
        return answer(
            index, text, parsed->firstPage, parsed->kind, parsed->organization, parsed->dateLabel, parsed->date);
    } catch (const GenerationError &error) {
        attempt.seconds = secondsSince(clock);
        attempt.outcome = describe(error);
        if (error.kind == Kind::refusal)
            attempt.refusalExplanation = explanation(error);
        record(attempt, state.trace, scan.observer);
        if (meansRetryLater(error))
            throw Failure::retryLater(retryMessage(error));
        return std::nullopt;
    }
}
} // namespace

std::optional<PageAnswer> Extractor::readPage(int index, const QString &text, const ScanContext &scan, ScanState &state)
{
    qsizetype limit = pageTextLimit;
    bool fallBack = false;
    while (state.structured && !fallBack) {
        if (std::optional<PageAnswer> answer = askStructured(index, text, scan, state, limit, fallBack))
            return answer;
    }
    return askPlain(index, text, scan, state, limit);
}

void Extractor::announce(const Trace::Attempt &attempt, const AttemptObserver &observer)
{
    if (!observer)
        return;
    Trace::Attempt running = attempt;
    running.outcome = QStringLiteral("Running");
    observer(running);
}

void Extractor::record(const Trace::Attempt &attempt, Trace &trace, const AttemptObserver &observer)
{
    trace.attempts.push_back(attempt);
    if (observer)
        observer(attempt);
}
