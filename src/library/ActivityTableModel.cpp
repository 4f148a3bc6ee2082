#include "library/ActivityTableModel.h"

#include <algorithm>

namespace {
const QString runningOutcome = QStringLiteral("Running");
} // namespace

ActivityTableModel::ActivityTableModel(ActivityLog &log, QObject *parent)
    : QAbstractTableModel(parent)
    , log_(log)
{
    const auto &entries = log_.entries();
    for (std::size_t at = 0; at < entries.size(); ++at)
        rows_.push_back({ int(at), entries[at] });
    connect(&log_, &ActivityLog::entryAppended, this, &ActivityTableModel::appended);
    connect(&log_, &ActivityLog::entriesRemoved, this, &ActivityTableModel::removed);
    connect(&log_, &ActivityLog::entryChanged, this, &ActivityTableModel::changed);
}

int ActivityTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(rows_.size());
}

int ActivityTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : columnTotal;
}

QVariant ActivityTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const ActivityEntry &shown = entry(index.row());
    switch (role) {
    case IdRole:
        return shown.id;
    case RunningRole:
        return shown.outcome == runningOutcome;
    case FailedRole:
        return shown.failed();
    case Qt::TextAlignmentRole:
        if (index.column() == seconds || index.column() == tokens)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        return QVariant::fromValue(Qt::AlignLeft | Qt::AlignVCenter);
    case Qt::ToolTipRole:
        // The texts that may be cut off in a narrow column.
        if (index.column() == file || index.column() == request || index.column() == outcome) {
            const QString text = data(index, Qt::DisplayRole).toString();
            if (index.column() == outcome && shown.attempt && shown.attempt->refusalExplanation)
                return QString(text + QStringLiteral(" “") + *shown.attempt->refusalExplanation + QStringLiteral("”"));
            return text.isEmpty() ? QVariant() : QVariant(text);
        }
        return {};
    case Qt::DisplayRole:
        break;
    default:
        return {};
    }
    switch (Column(index.column())) {
    case time:
        return shown.timeOfDay();
    case kind:
        return rawValue(shown.kind);
    case file:
        return shown.file.value_or(QString());
    case request:
        return shown.title;
    case outcome:
        return shown.outcome;
    case seconds:
        return shown.seconds ? QString::number(*shown.seconds, 'f', 1) : QString();
    case tokens:
        return shown.tokens ? QString::number(*shown.tokens) : QString();
    case columnTotal:
        break;
    }
    return {};
}

QVariant ActivityTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::TextAlignmentRole) {
        if (section == seconds || section == tokens)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        return QVariant::fromValue(Qt::AlignLeft | Qt::AlignVCenter);
    }
    if (role != Qt::DisplayRole)
        return {};
    switch (Column(section)) {
    case time:
        return QStringLiteral("Time");
    case kind:
        return QString();
    case file:
        return QStringLiteral("File");
    case request:
        return QStringLiteral("Request");
    case outcome:
        return QStringLiteral("Outcome");
    case seconds:
        return QStringLiteral("Seconds");
    case tokens:
        return QStringLiteral("Tokens");
    case columnTotal:
        break;
    }
    return {};
}

void ActivityTableModel::setShowModel(bool show)
{
    setFilter(showModel_, show);
}

void ActivityTableModel::setShowOCR(bool show)
{
    setFilter(showOCR_, show);
}

void ActivityTableModel::setShowQueue(bool show)
{
    setFilter(showQueue_, show);
}

void ActivityTableModel::setFailuresOnly(bool only)
{
    setFilter(failuresOnly_, only);
}

std::optional<int> ActivityTableModel::rowOf(const QUuid &id) const
{
    const auto found = std::find_if(rows_.begin(), rows_.end(), [&](const Row &row) { return row.entry.id == id; });
    if (found == rows_.end())
        return std::nullopt;
    return int(found - rows_.begin());
}

QStringList ActivityTableModel::shownLines() const
{
    QStringList lines;
    lines.reserve(qsizetype(rows_.size()));
    for (const Row &row : rows_)
        lines << row.entry.line();
    return lines;
}

QString ActivityTableModel::footer() const
{
    int requests = 0;
    int failures = 0;
    double total = 0;
    for (const ActivityEntry &logged : log_.entries()) {
        if (logged.kind != ActivityEntry::Kind::model || logged.outcome == runningOutcome)
            continue;
        ++requests;
        failures += logged.failed();
        total += logged.seconds.value_or(0);
    }
    return QString::number(requests) + QStringLiteral(" model requests, ") + QString::number(failures)
        + QStringLiteral(" failed, ") + QString::number(total, 'f', 0)
        + QStringLiteral(" s total. This session only; each scan's last transcript is under Model details.");
}

bool ActivityTableModel::shows(const ActivityEntry &shown) const
{
    switch (shown.kind) {
    case ActivityEntry::Kind::model:
        if (!showModel_)
            return false;
        break;
    case ActivityEntry::Kind::ocr:
        if (!showOCR_)
            return false;
        break;
    case ActivityEntry::Kind::queue:
        if (!showQueue_)
            return false;
        break;
    }
    return !failuresOnly_ || shown.failed();
}

void ActivityTableModel::setFilter(bool &flag, bool value)
{
    if (flag == value)
        return;
    flag = value;
    refilter();
}

void ActivityTableModel::refilter()
{
    // Rows no longer shown go, run by run from the end.
    for (int last = int(rows_.size()) - 1; last >= 0;) {
        if (shows(rows_[std::size_t(last)].entry)) {
            --last;
            continue;
        }
        int first = last;
        while (first > 0 && !shows(rows_[std::size_t(first - 1)].entry))
            --first;
        beginRemoveRows({}, first, last);
        rows_.erase(rows_.begin() + first, rows_.begin() + last + 1);
        endRemoveRows();
        last = first - 1;
    }
    // Entries now shown come in where they belong, every run between two rows that stay at once.
    const auto &entries = log_.entries();
    const int total = int(entries.size());
    std::size_t at = 0;
    for (int logRow = 0; logRow < total;) {
        if (at < rows_.size() && rows_[at].logRow == logRow) {
            ++at;
            ++logRow;
            continue;
        }
        const int next = at < rows_.size() ? rows_[at].logRow : total;
        std::vector<Row> run;
        for (; logRow < next; ++logRow) {
            if (shows(entries[std::size_t(logRow)]))
                run.push_back({ logRow, entries[std::size_t(logRow)] });
        }
        if (run.empty())
            continue;
        beginInsertRows({}, int(at), int(at + run.size()) - 1);
        rows_.insert(
            rows_.begin() + qsizetype(at), std::make_move_iterator(run.begin()), std::make_move_iterator(run.end()));
        endInsertRows();
        at += run.size();
    }
}

void ActivityTableModel::appended(int logRow)
{
    const ActivityEntry &added = log_.entries().at(std::size_t(logRow));
    if (!shows(added))
        return;
    const int row = int(rows_.size());
    beginInsertRows({}, row, row);
    rows_.push_back({ logRow, added });
    endInsertRows();
}

void ActivityTableModel::removed(int first, int count)
{
    const int from = lowerBound(first);
    const int to = lowerBound(first + count);
    if (to > from) {
        beginRemoveRows({}, from, to - 1);
        rows_.erase(rows_.begin() + from, rows_.begin() + to);
        endRemoveRows();
    }
    for (std::size_t at = std::size_t(from); at < rows_.size(); ++at)
        rows_[at].logRow -= count;
}

void ActivityTableModel::changed(int logRow)
{
    const ActivityEntry &now = log_.entries().at(std::size_t(logRow));
    const int row = lowerBound(logRow);
    const bool wasShown = row < rowCount() && rows_[std::size_t(row)].logRow == logRow;
    if (wasShown && shows(now)) {
        rows_[std::size_t(row)].entry = now;
        Q_EMIT dataChanged(index(row, 0), index(row, columnTotal - 1));
    } else if (wasShown) {
        beginRemoveRows({}, row, row);
        rows_.erase(rows_.begin() + row);
        endRemoveRows();
    } else if (shows(now)) {
        beginInsertRows({}, row, row);
        rows_.insert(rows_.begin() + row, { logRow, now });
        endInsertRows();
    }
}

int ActivityTableModel::lowerBound(int logRow) const
{
    const auto found
        = std::lower_bound(rows_.begin(), rows_.end(), logRow, [](const Row &row, int at) { return row.logRow < at; });
    return int(found - rows_.begin());
}
