#pragma once

#include "extract/Trace.h"

#include <QDateTime>
#include <QLocale>
#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>
#include <vector>

// One line of the session's record of background work.
struct ActivityEntry {
    enum class Kind { model, ocr, queue };

    QUuid id = QUuid::createUuid();
    QDateTime date = QDateTime::currentDateTime();
    Kind kind = Kind::queue;
    std::optional<QString> file;
    QString title;
    QString outcome;
    std::optional<double> seconds;
    std::optional<qint64> tokens;
    std::optional<Extractor::Trace::Attempt> attempt;

    bool operator==(const ActivityEntry &) const = default;

    // A request or a reading that didn't end well; queue events never count as failures.
    bool failed() const;
    // The entry as one line of text, for copying.
    QString line(const QLocale &locale = QLocale()) const;
    // When the entry was first added, as a time of day with seconds.
    QString timeOfDay(const QLocale &locale = QLocale()) const;
};

QString rawValue(ActivityEntry::Kind kind);

// The running record of what the background work did this session: every model request (shown while
// it runs, replaced in place when it ends), every scan read, and queue events. Memory only, at most
// 2000 entries.
class ActivityLog : public QObject {
    Q_OBJECT
public:
    static constexpr std::size_t capacity = 2000;

    using QObject::QObject;

    const std::vector<ActivityEntry> &entries() const { return entries_; }

    void append(ActivityEntry entry);
    // Records a model request: a finished request replaces its running entry, keeping its time.
    void model(const Extractor::Trace::Attempt &attempt, const std::optional<QString> &file);
    // Empties the log but for requests still running.
    void clear();

Q_SIGNALS:
    void changed();
    // A new entry at the end (not a running request turning into its finished form).
    void appended(const ActivityEntry &entry);

    // Row by row, for views that follow the log without starting over; each is sent once the entries
    // already hold the change, so that rows numbered in a signal match the entries at that moment.
    // The new entry at `row`, the last one.
    void entryAppended(int row);
    // `count` entries from `first` on are gone (the oldest, past the cap, or cleared ones).
    void entriesRemoved(int first, int count);
    // The entry at `row` was replaced: a running request in its finished form.
    void entryChanged(int row);

private:
    std::vector<ActivityEntry> entries_;
};
