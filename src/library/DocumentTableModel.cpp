#include "library/DocumentTableModel.h"

#include "core/DocDate.h"
#include "library/DragItem.h"
#include "library/Library.h"

#include <QMimeData>

#include <algorithm>
#include <array>
#include <unordered_set>

namespace {

// Beyond this many runs of rows removed or inserted, announcing them one by one costs the view more
// than showing everything afresh (a filter switch, say). Each run costs the view a pass over its rows,
// so a long table allows fewer: runs times rows stays within `maxRunRows`.
constexpr std::size_t maxRuns = 300;
constexpr std::size_t maxRunRows = 1'000'000;

constexpr std::array<std::optional<SortComparator::Key>, DocumentTableModel::columnTotal> sortKeys {
    std::nullopt,
    SortComparator::Key::date,
    SortComparator::Key::organization,
    SortComparator::Key::kind,
    SortComparator::Key::file,
    SortComparator::Key::pages,
    SortComparator::Key::status,
};

QString fileName(const QString &path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

// Runs of consecutive positions in [0, count) for which `pick` holds, as (first, last).
template <typename Pick> std::vector<std::pair<int, int>> runs(std::size_t count, Pick pick)
{
    std::vector<std::pair<int, int>> found;
    for (std::size_t i = 0; i < count; ++i) {
        if (!pick(i))
            continue;
        if (!found.empty() && found.back().second == int(i) - 1)
            found.back().second = int(i);
        else
            found.emplace_back(int(i), int(i));
    }
    return found;
}

} // namespace

DocumentTableModel::DocumentTableModel(Library &library, QObject *parent)
    : QAbstractTableModel(parent)
    , library_(library)
    , work_(WorkState::of(library))
{
    connect(&library_, &Library::documentsChanged, this, [this] { refresh(true); });
    for (const auto signal : { &Library::sortOrderChanged, &Library::sidebarChanged, &Library::yearChanged,
             &Library::kindChanged, &Library::searchMatchesChanged })
        connect(&library_, signal, this, [this] { refresh(false); });
    for (const auto signal : { &Library::currentOCRChanged, &Library::currentExtractionChanged, &Library::pausedChanged,
             &Library::requestedChanged, &Library::modelProblemChanged })
        connect(&library_, signal, this, &DocumentTableModel::refreshStatus);
    reset(library_.visible());
}

int DocumentTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(ids_.size());
}

int DocumentTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : columnTotal;
}

const ScanDocument *DocumentTableModel::documentAt(int row) const
{
    if (row < 0 || std::size_t(row) >= ids_.size())
        return nullptr;
    const auto found = entries_.find(ids_[std::size_t(row)]);
    return found == entries_.end() ? nullptr : &found->second.document;
}

QVariant DocumentTableModel::data(const QModelIndex &index, int role) const
{
    const ScanDocument *found = index.isValid() ? documentAt(index.row()) : nullptr;
    if (!found)
        return {};
    const ScanDocument &document = *found;
    switch (role) {
    case Qt::DisplayRole:
        switch (index.column()) {
        case date:
            return DocDate::display(document.date);
        case organization:
            return document.organizationName.value_or(QString());
        case type:
            return document.kind.value_or(QString());
        case file:
            return fileName(document.path);
        case pages:
            return document.pageCount ? QVariant(*document.pageCount) : QVariant();
        case status:
            return statusLabel(document, work_).text;
        default:
            return {};
        }
    case Qt::ToolTipRole:
        // The file's folder within the scans folder, and why a scan failed.
        if (index.column() == file)
            return document.path;
        if (index.column() == status && document.error)
            return *document.error;
        return {};
    case Qt::TextAlignmentRole:
        if (index.column() == pages)
            return QVariant::fromValue(Qt::Alignment(Qt::AlignRight | Qt::AlignVCenter));
        return {};
    case IdRole:
        return qint64(document.id);
    case PathRole:
        return document.missing ? QString() : library_.url(document).value_or(QString());
    case ModifiedRole:
        return document.fileModified;
    case RotationRole:
        return document.pageRotations.empty() ? 0 : document.pageRotations.front();
    case StatusIconRole:
        return statusLabel(document, work_).icon;
    case StatusToneRole:
        return int(statusLabel(document, work_).tone);
    case MissingRole:
        return document.missing;
    default:
        return {};
    }
}

QVariant DocumentTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case date:
        return QStringLiteral("Date");
    case organization:
        return QStringLiteral("Organization");
    case type:
        return QStringLiteral("Type");
    case file:
        return QStringLiteral("File");
    case pages:
        return QStringLiteral("Pages");
    case status:
        return QStringLiteral("Status");
    case thumbnail:
        return QString();
    default:
        return {};
    }
}

Qt::ItemFlags DocumentTableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
}

std::int64_t DocumentTableModel::idAt(int row) const
{
    return row >= 0 && std::size_t(row) < ids_.size() ? ids_[std::size_t(row)] : 0;
}

std::optional<int> DocumentTableModel::rowOf(std::int64_t id) const
{
    const auto found = entries_.find(id);
    if (found == entries_.end())
        return std::nullopt;
    const int row = found->second.row;
    if (std::size_t(row) < ids_.size() && ids_[std::size_t(row)] == id)
        return row;
    // Asked in the middle of a change, before the rows are numbered again.
    const auto at = std::find(ids_.begin(), ids_.end(), id);
    return at == ids_.end() ? std::nullopt : std::optional<int>(int(at - ids_.begin()));
}

void DocumentTableModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= columnTotal || !sortKeys[std::size_t(column)])
        return;
    library_.setSortOrder({ SortComparator { *sortKeys[std::size_t(column)], order == Qt::AscendingOrder } });
}

std::optional<std::pair<int, Qt::SortOrder>> DocumentTableModel::sortColumn() const
{
    if (library_.sortOrder().empty())
        return std::nullopt;
    const SortComparator &first = library_.sortOrder().front();
    const auto column = std::find(sortKeys.begin(), sortKeys.end(), first.key);
    return std::pair { int(column - sortKeys.begin()), first.ascending ? Qt::AscendingOrder : Qt::DescendingOrder };
}

QStringList DocumentTableModel::mimeTypes() const
{
    return { QStringLiteral("text/plain") };
}

QMimeData *DocumentTableModel::mimeData(const QModelIndexList &indexes) const
{
    DocumentIDSet ids;
    for (const QModelIndex &index : indexes) {
        if (index.isValid() && index.model() == this)
            ids.insert(idAt(index.row()));
    }
    if (ids.empty())
        return nullptr;
    auto *data = new QMimeData;
    data->setText(scansPayload(ids));
    return data;
}

// Scans are copied into an organization, never moved out of the table.
Qt::DropActions DocumentTableModel::supportedDragActions() const
{
    return Qt::CopyAction;
}

void DocumentTableModel::refresh(bool recordsChanged)
{
    const std::vector<const ScanDocument *> next = library_.visible();
    const bool sameRows = next.size() == ids_.size()
        && std::equal(next.begin(), next.end(), ids_.begin(),
            [](const ScanDocument *document, std::int64_t id) { return document->id == id; });
    if (!sameRows) {
        // An empty table has no selection or scroll position to keep.
        if (ids_.empty()) {
            reset(next);
            return;
        }
        const auto added = runs(next.size(), [&](std::size_t row) { return !entries_.contains(next[row]->id); });
        std::vector<std::pair<int, int>> removed;
        // As many rows and none new: the same scans in another order.
        if (!added.empty() || next.size() != ids_.size()) {
            std::unordered_set<std::int64_t> shown;
            shown.reserve(next.size());
            for (const ScanDocument *document : next)
                shown.insert(document->id);
            removed = runs(ids_.size(), [&](std::size_t row) { return !shown.contains(ids_[row]); });
        }
        const std::size_t changes = removed.size() + added.size();
        if (changes > maxRuns || changes * std::max(ids_.size(), next.size()) > maxRunRows) {
            reset(next);
            return;
        }
        removeRuns(removed);
        // The rows that stay either keep their order (scans came or went) or not (the order changed).
        std::size_t kept = 0;
        const bool inOrder = std::all_of(next.begin(), next.end(), [&](const ScanDocument *document) {
            return !entries_.contains(document->id) || ids_[kept++] == document->id;
        });
        if (inOrder)
            insertInPlace(next);
        else
            insertAndReorder(next);
    }
    update(next, recordsChanged);
}

void DocumentTableModel::reset(const std::vector<const ScanDocument *> &documents)
{
    beginResetModel();
    ids_.clear();
    entries_.clear();
    ids_.reserve(documents.size());
    entries_.reserve(documents.size());
    for (std::size_t row = 0; row < documents.size(); ++row) {
        ids_.push_back(documents[row]->id);
        entries_.emplace(documents[row]->id, Entry { *documents[row], int(row) });
    }
    endResetModel();
}

void DocumentTableModel::removeRuns(const std::vector<std::pair<int, int>> &runs)
{
    // From the last run back, so that the rows of the runs before stay where they are.
    for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
        beginRemoveRows({}, run->first, run->second);
        const auto first = ids_.begin() + run->first;
        const auto last = ids_.begin() + run->second + 1;
        for (auto id = first; id != last; ++id)
            entries_.erase(*id);
        ids_.erase(first, last);
        endRemoveRows();
    }
}

void DocumentTableModel::insertInPlace(const std::vector<const ScanDocument *> &next)
{
    // Left to right: the rows before each run are already those of `next`, so the run goes at its own row.
    for (std::size_t row = 0; row < next.size();) {
        if (entries_.contains(next[row]->id)) {
            ++row;
            continue;
        }
        std::size_t end = row;
        while (end < next.size() && !entries_.contains(next[end]->id))
            ++end;
        beginInsertRows({}, int(row), int(end) - 1);
        std::vector<std::int64_t> ids;
        for (std::size_t i = row; i < end; ++i) {
            ids.push_back(next[i]->id);
            entries_.emplace(next[i]->id, Entry { *next[i], int(i) });
        }
        ids_.insert(ids_.begin() + std::ptrdiff_t(row), ids.begin(), ids.end());
        endInsertRows();
        row = end;
    }
}

void DocumentTableModel::insertAndReorder(const std::vector<const ScanDocument *> &next)
{
    std::vector<const ScanDocument *> added;
    for (const ScanDocument *document : next) {
        if (!entries_.contains(document->id))
            added.push_back(document);
    }
    if (!added.empty()) {
        beginInsertRows({}, int(ids_.size()), int(ids_.size() + added.size()) - 1);
        for (const ScanDocument *document : added) {
            entries_.emplace(document->id, Entry { *document, int(ids_.size()) });
            ids_.push_back(document->id);
        }
        endInsertRows();
    }

    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const std::vector<std::int64_t> before = std::exchange(ids_, {});
    ids_.reserve(next.size());
    for (std::size_t row = 0; row < next.size(); ++row) {
        ids_.push_back(next[row]->id);
        entries_.at(next[row]->id).row = int(row);
    }
    const QModelIndexList from = persistentIndexList();
    QModelIndexList to;
    to.reserve(from.size());
    for (const QModelIndex &index : from)
        to.append(createIndex(entries_.at(before[std::size_t(index.row())]).row, index.column()));
    changePersistentIndexList(from, to);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void DocumentTableModel::update(const std::vector<const ScanDocument *> &next, bool recordsChanged)
{
    std::vector<bool> changed(next.size());
    for (std::size_t row = 0; row < next.size(); ++row) {
        Entry &entry = entries_.at(next[row]->id);
        entry.row = int(row);
        // Only documentsChanged brings new records; a new filter or order shows the same ones.
        if (recordsChanged && !(entry.document == *next[row])) {
            entry.document = *next[row];
            changed[row] = true;
        }
    }
    for (const auto &[first, last] : runs(changed.size(), [&](std::size_t row) { return changed[row]; }))
        Q_EMIT dataChanged(index(first, 0), index(last, columnTotal - 1));
}

void DocumentTableModel::refreshStatus()
{
    WorkState next = WorkState::of(library_);
    if (next == work_)
        return;
    const WorkState before = std::exchange(work_, std::move(next));
    // Only scans still being worked on have a label that depends on the work.
    std::optional<int> first, last;
    for (std::size_t row = 0; row < ids_.size(); ++row) {
        const ScanDocument &document = *documentAt(int(row));
        if (document.isProcessing() && statusLabel(document, before) != statusLabel(document, work_)) {
            first = first.value_or(int(row));
            last = int(row);
        }
    }
    if (first)
        Q_EMIT dataChanged(
            index(*first, status), index(*last, status), { Qt::DisplayRole, StatusIconRole, StatusToneRole });
}
