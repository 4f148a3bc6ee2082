#include "extract/ActivityLog.h"

#include <algorithm>

namespace {
const QString running = QStringLiteral("Running");

// The locale's own time of day with seconds, without the time zone its long form adds.
QString clockTime(const QTime &time, const QLocale &locale)
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

QString ActivityEntry::timeOfDay(const QLocale &locale) const
{
    return clockTime(date.time(), locale);
}

QString ActivityEntry::line(const QLocale &locale) const
{
    const QString separator = QStringLiteral("  ");
    QString text = timeOfDay(locale) + separator + rawValue(kind) + separator + file.value_or(QStringLiteral("-"))
        + separator + title;
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
    // The oldest make room first, so that the log never holds more than its cap, not even in between.
    if (entries_.size() >= capacity) {
        const auto excess = entries_.size() + 1 - capacity;
        entries_.erase(entries_.begin(), entries_.begin() + excess);
        Q_EMIT entriesRemoved(0, int(excess));
    }
    entries_.push_back(std::move(entry));
    Q_EMIT entryAppended(int(entries_.size()) - 1);
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
    Q_EMIT entryChanged(int(entries_.rend() - existing) - 1);
    Q_EMIT changed();
}

void ActivityLog::clear()
{
    // Run by run from the end, so that the rows each signal names are those of the entries left.
    const auto finished = [](const ActivityEntry &entry) { return entry.outcome != running; };
    auto end = entries_.end();
    while (end != entries_.begin()) {
        const auto last = std::find_if(std::make_reverse_iterator(end), entries_.rend(), finished);
        if (last == entries_.rend())
            break;
        const auto runEnd = last.base();
        const auto runBegin = std::find_if_not(std::make_reverse_iterator(runEnd), entries_.rend(), finished).base();
        const int first = int(runBegin - entries_.begin());
        const int count = int(runEnd - runBegin);
        end = entries_.erase(runBegin, runEnd);
        Q_EMIT entriesRemoved(first, count);
    }
    Q_EMIT changed();
}
