#include "extract/ActivityLog.h"

#include <algorithm>

namespace {
const QString running = QStringLiteral("Running");

// The locale's own time of day with seconds, without the time zone its long form adds.
QString timeOfDay(const QTime &time, const QLocale &locale)
{
    QString format = locale.timeFormat(QLocale::LongFormat);
    format.remove(QLatin1Char('t'));
    return locale.toString(time, format.trimmed());
}
} // namespace

QString rawValue(ActivityEntry::Kind kind)
{
    switch (kind) {
    case ActivityEntry::Kind::model:
        return QStringLiteral("Model");
    case ActivityEntry::Kind::ocr:
        return QStringLiteral("Text");
    case ActivityEntry::Kind::queue:
        break;
    }
    return QStringLiteral("Queue");
}

bool ActivityEntry::failed() const
{
    return outcome != running && outcome != QLatin1String("OK") && kind != Kind::queue;
}

QString ActivityEntry::line(const QLocale &locale) const
{
    const QString separator = QStringLiteral("  ");
    QString text = timeOfDay(date.time(), locale) + separator + rawValue(kind) + separator
        + file.value_or(QStringLiteral("-")) + separator + title;
    if (!outcome.isEmpty())
        text += QStringLiteral(": ") + outcome;
    if (seconds) {
        text += QStringLiteral(" (") + QString::number(*seconds, 'f', 1) + QLatin1Char('s');
        if (tokens)
            text += QStringLiteral(", ") + QString::number(*tokens) + QStringLiteral(" tokens");
        text += QLatin1Char(')');
    }
    if (attempt && attempt->refusalExplanation)
        text += QStringLiteral(" “") + *attempt->refusalExplanation + QStringLiteral("”");
    return text;
}

void ActivityLog::append(ActivityEntry entry)
{
    entries_.push_back(std::move(entry));
    if (entries_.size() > capacity)
        entries_.erase(entries_.begin(), entries_.end() - capacity);
    Q_EMIT appended(entries_.back());
    Q_EMIT changed();
}

void ActivityLog::model(const Extractor::Trace::Attempt &attempt, const std::optional<QString> &file)
{
    ActivityEntry entry;
    entry.id = attempt.id;
    entry.kind = ActivityEntry::Kind::model;
    entry.file = file;
    entry.title = attempt.label;
    entry.outcome = attempt.outcome;
    if (attempt.outcome != running)
        entry.seconds = attempt.seconds;
    entry.tokens = attempt.tokens;
    entry.attempt = attempt;
    const auto existing = std::find_if(
        entries_.rbegin(), entries_.rend(), [&](const ActivityEntry &old) { return old.id == attempt.id; });
    if (existing == entries_.rend()) {
        append(std::move(entry));
        return;
    }
    entry.date = existing->date;
    *existing = std::move(entry);
    Q_EMIT changed();
}

void ActivityLog::clear()
{
    std::erase_if(entries_, [](const ActivityEntry &entry) { return entry.outcome != running; });
    Q_EMIT changed();
}
