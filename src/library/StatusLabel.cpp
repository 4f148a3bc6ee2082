#include "library/StatusLabel.h"

#include "library/Library.h"

namespace {

using Tone = StatusLabel::Tone;

// The last path component, without copying it.
QStringView fileName(const QString &path)
{
    return QStringView(path).mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

bool isCurrent(const std::optional<QString> &current, const ScanDocument &document)
{
    return current && *current == fileName(document.path);
}

StatusLabel reading()
{
    return { QStringLiteral("Reading…"), QStringLiteral("text.viewfinder"), Tone::secondary };
}
StatusLabel extracting()
{
    return { QStringLiteral("Extracting…"), QStringLiteral("sparkles"), Tone::secondary };
}
StatusLabel nextUp()
{
    return { QStringLiteral("Next up"), QStringLiteral("arrow.up.circle"), Tone::secondary };
}
StatusLabel paused()
{
    return { QStringLiteral("Paused"), QStringLiteral("pause.circle"), Tone::secondary };
}

} // namespace

WorkState WorkState::of(const Library &library)
{
    DocumentIDSet reading;
    for (const WorkScheduler::ReadingScan &scan : library.readingNow())
        reading.insert(scan.id);
    return { .reading = std::move(reading),
        .currentExtraction = library.currentExtraction(),
        .paused = library.paused(),
        .requested = library.requested(),
        .modelUnavailable = library.modelProblem().has_value() };
}

StatusLabel statusLabel(const ScanDocument &document, const WorkState &work)
{
    if (document.missing)
        return { QStringLiteral("File missing"), QStringLiteral("questionmark.folder"), Tone::red };
    switch (document.ocrStatus) {
    case OCRStatus::failed:
        return { QStringLiteral("Unreadable"), QStringLiteral("exclamationmark.triangle"), Tone::red };
    case OCRStatus::pending:
        if (work.reading.contains(document.id))
            return reading();
        if (work.requested.contains(document.id))
            return nextUp();
        if (work.paused)
            return paused();
        return reading();
    case OCRStatus::done:
        break;
    }
    switch (document.extractStatus) {
    case ExtractStatus::manual:
        return { QStringLiteral("Edited"), QStringLiteral("pencil"), Tone::secondary };
    case ExtractStatus::failed:
        return { QStringLiteral("Model failed"), QStringLiteral("exclamationmark.triangle"), Tone::orange };
    case ExtractStatus::done:
        if (document.needsReview())
            return { QStringLiteral("Needs review"), QStringLiteral("questionmark.circle"), Tone::orange };
        return { QStringLiteral("Done"), QStringLiteral("checkmark.circle"), Tone::secondary };
    case ExtractStatus::pending:
        break;
    }
    if (isCurrent(work.currentExtraction, document))
        return extracting();
    if (work.requested.contains(document.id))
        return nextUp();
    if (work.paused)
        return paused();
    if (work.modelUnavailable)
        return { QStringLiteral("Waiting"), QStringLiteral("sparkles"), Tone::orange };
    return extracting();
}
