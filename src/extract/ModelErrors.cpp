#include "extract/ModelErrors.h"

#include "core/Graphemes.h"

namespace {
using Kind = Extractor::GenerationError::Kind;

// Long enough for any server's message, short enough for one line of the activity log.
constexpr qsizetype longestText = 500;

QString title(Kind kind)
{
    switch (kind) {
    case Kind::exceededContextWindowSize:
        return QStringLiteral("Too long for the context window");
    case Kind::assetsUnavailable:
        return QStringLiteral("Model unavailable");
    case Kind::guardrailViolation:
        return QStringLiteral("Blocked by safety guardrails");
    case Kind::unsupportedGuide:
        return QStringLiteral("Unsupported guide");
    case Kind::unsupportedLanguageOrLocale:
        return QStringLiteral("Unsupported language");
    case Kind::decodingFailure:
        return QStringLiteral("Couldn\u2019t decode the answer");
    case Kind::rateLimited:
        return QStringLiteral("Rate limited");
    case Kind::concurrentRequests:
        return QStringLiteral("Busy");
    case Kind::refusal:
        return QStringLiteral("Refused");
    case Kind::other:
        break;
    }
    return QStringLiteral("Error");
}

// The text on one line: every run of white space and control characters becomes one space, and a text
// longer than `longestText` characters is cut, ending in "…".
QString oneLine(const QString &text)
{
    QString line;
    line.reserve(std::min(text.size(), longestText * 2));
    bool space = false;
    for (const QChar c : text) {
        if (c.isSpace() || c.category() == QChar::Other_Control) {
            space = true;
            continue;
        }
        if (space && !line.isEmpty())
            line += u' ';
        space = false;
        line += c;
        // Grapheme clusters can be long, so the exact cut is made below; this only bounds the work.
        if (line.size() > longestText * 8)
            break;
    }
    if (Graphemes::count(line, longestText + 1) > longestText)
        return Graphemes::left(line, longestText) + u'\u2026';
    return line;
}
QString described(Kind kind, const QString &text)
{
    const QString description = oneLine(text);
    if (description.isEmpty())
        return title(kind);
    return title(kind) + u". " + description;
}
} // namespace

Extractor::GenerationError::GenerationError(Kind kind, QString description, std::optional<QString> refusalExplanation)
    : Error(described(kind, description))
    , kind(kind)
    , description(std::move(description))
    , refusalExplanation(std::move(refusalExplanation))
{
}

QString Extractor::describe(const GenerationError &error)
{
    return error.message();
}

QString Extractor::explanation(const GenerationError &refusal)
{
    if (refusal.refusalExplanation)
        return *refusal.refusalExplanation;
    return u"(no explanation: " + oneLine(refusal.description) + u')';
}

QString Extractor::retryMessage(const GenerationError &error)
{
    const QString description = oneLine(error.description);
    return description.isEmpty() ? title(error.kind) : description;
}

bool Extractor::meansRetryLater(const GenerationError &error)
{
    return error.kind == Kind::assetsUnavailable || error.kind == Kind::rateLimited
        || error.kind == Kind::concurrentRequests;
}
