#include "library/SidebarModel.h"

#include "library/DragItem.h"
#include "library/Library.h"

#include <QMimeData>

#include <algorithm>
#include <unordered_set>

namespace {

// Internal ids: 0 for the sections, the section's number plus one for the rows inside it.
constexpr quintptr sectionId = 0;
constexpr quintptr childOf(int section)
{
    return quintptr(section) + 1;
}

struct FixedView {
    SidebarItem item;
    const char16_t *name;
    const char16_t *icon;
};

const std::array<FixedView, 4> fixedViews { {
    { SidebarItem::all(), u"All Scans", u"tray.full" },
    { SidebarItem::needsReview(), u"Needs Review", u"questionmark.circle" },
    { SidebarItem::processing(), u"Processing", u"gearshape.2" },
    { SidebarItem::problems(), u"Problems", u"exclamationmark.triangle" },
} };

QString spoken(const QString &name, int count)
{
    return name + u", " + QString::number(count) + (count == 1 ? u" scan" : u" scans");
}

} // namespace

SidebarModel::SidebarModel(Library &library, QObject *parent)
    : QAbstractItemModel(parent)
    , library_(library)
    , organizations_(library.organizations())
{
    for (std::size_t row = 0; row < fixedViews.size(); ++row)
        counts_[row] = library_.count(fixedViews[row].item);
    connect(&library_, &Library::organizationsChanged, this, &SidebarModel::refreshOrganizations);
    connect(&library_, &Library::documentsChanged, this, [this] {
        refreshCounts();
        refreshOrganizations();
    });
    connect(&library_, &Library::pendingCountsChanged, this, &SidebarModel::refreshCounts);
}

QModelIndex SidebarModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return {};
    return createIndex(row, column, parent.isValid() ? childOf(parent.row()) : sectionId);
}

QModelIndex SidebarModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || child.internalId() == sectionId)
        return {};
    return createIndex(int(child.internalId() - 1), 0, sectionId);
}

int SidebarModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return 2;
    if (parent.internalId() != sectionId || parent.column() != 0)
        return 0;
    return parent.row() == librarySection ? int(fixedViews.size()) : int(organizations_.size());
}

int SidebarModel::columnCount(const QModelIndex &) const
{
    return 1;
}

const Organization *SidebarModel::organizationAt(const QModelIndex &index) const
{
    if (!index.isValid() || index.internalId() != childOf(organizationsSection)
        || std::size_t(index.row()) >= organizations_.size())
        return nullptr;
    return &organizations_[std::size_t(index.row())];
}

QVariant SidebarModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    if (index.internalId() == sectionId) {
        if (role != Qt::DisplayRole && role != Qt::AccessibleTextRole)
            return {};
        return index.row() == librarySection ? QStringLiteral("Library") : QStringLiteral("Organizations");
    }
    if (const Organization *organization = organizationAt(index)) {
        switch (role) {
        case Qt::DisplayRole:
            return organization->name;
        case Qt::AccessibleTextRole:
            return spoken(organization->name, organization->documentCount);
        case CountRole:
            return organization->documentCount;
        case IconRole:
            return QStringLiteral("building.2");
        case OrganizationIdRole:
            return qint64(organization->id);
        default:
            return {};
        }
    }
    if (index.internalId() != childOf(librarySection))
        return {};
    const FixedView &view = fixedViews[std::size_t(index.row())];
    switch (role) {
    case Qt::DisplayRole:
        return QString::fromUtf16(view.name);
    case Qt::AccessibleTextRole:
        return spoken(QString::fromUtf16(view.name), counts_[std::size_t(index.row())]);
    case CountRole:
        return counts_[std::size_t(index.row())];
    case IconRole:
        return QString::fromUtf16(view.icon);
    default:
        return {};
    }
}

Qt::ItemFlags SidebarModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    // The section titles only group the rows.
    if (index.internalId() == sectionId)
        return Qt::ItemIsEnabled;
    const Qt::ItemFlags row = Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemNeverHasChildren;
    return organizationAt(index) ? row | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled : row;
}

std::optional<SidebarItem> SidebarModel::itemAt(const QModelIndex &index) const
{
    if (const Organization *organization = organizationAt(index))
        return SidebarItem::organization(organization->id);
    if (index.isValid() && index.internalId() == childOf(librarySection))
        return fixedViews[std::size_t(index.row())].item;
    return std::nullopt;
}

QModelIndex SidebarModel::indexOf(const SidebarItem &item) const
{
    if (item.kind == SidebarItem::Kind::organization) {
        const auto found = std::find_if(organizations_.begin(), organizations_.end(),
            [&item](const Organization &organization) { return organization.id == item.organizationID; });
        if (found == organizations_.end())
            return {};
        return createIndex(int(found - organizations_.begin()), 0, childOf(organizationsSection));
    }
    const auto found = std::find_if(
        fixedViews.begin(), fixedViews.end(), [&item](const FixedView &view) { return view.item == item; });
    return createIndex(int(found - fixedViews.begin()), 0, childOf(librarySection));
}

void SidebarModel::refreshCounts()
{
    for (std::size_t row = 0; row < fixedViews.size(); ++row) {
        const int count = library_.count(fixedViews[row].item);
        if (count == counts_[row])
            continue;
        counts_[row] = count;
        const QModelIndex changed = createIndex(int(row), 0, childOf(librarySection));
        Q_EMIT dataChanged(changed, changed, { CountRole, Qt::AccessibleTextRole });
    }
}

void SidebarModel::refreshOrganizations()
{
    const std::vector<Organization> &next = library_.organizations();
    if (next == organizations_)
        return;
    const QModelIndex section = index(organizationsSection, 0);
    std::unordered_set<std::int64_t> listed;
    for (const Organization &organization : next)
        listed.insert(organization.id);

    // Gone: removed from the last row back, so that the rows before keep their numbers.
    for (std::size_t end = organizations_.size(); end > 0;) {
        if (listed.contains(organizations_[end - 1].id)) {
            --end;
            continue;
        }
        std::size_t first = end - 1;
        while (first > 0 && !listed.contains(organizations_[first - 1].id))
            --first;
        beginRemoveRows(section, int(first), int(end) - 1);
        organizations_.erase(
            organizations_.begin() + std::ptrdiff_t(first), organizations_.begin() + std::ptrdiff_t(end));
        endRemoveRows();
        end = first;
    }

    // Renamed: each row that stays is moved up to its place in the new alphabetical order.
    std::unordered_set<std::int64_t> present;
    for (const Organization &organization : organizations_)
        present.insert(organization.id);
    std::size_t place = 0;
    for (const Organization &organization : next) {
        if (!present.contains(organization.id))
            continue;
        const auto at = std::find_if(organizations_.begin() + std::ptrdiff_t(place), organizations_.end(),
            [&organization](const Organization &o) { return o.id == organization.id; });
        const std::size_t from = std::size_t(at - organizations_.begin());
        if (from != place) {
            beginMoveRows(section, int(from), int(from), section, int(place));
            std::rotate(organizations_.begin() + std::ptrdiff_t(place), at, at + 1);
            endMoveRows();
        }
        ++place;
    }

    // New: inserted at their rows, left to right, so that the rows before each are already in order.
    for (std::size_t row = 0; row < next.size();) {
        if (present.contains(next[row].id)) {
            ++row;
            continue;
        }
        std::size_t end = row;
        while (end < next.size() && !present.contains(next[end].id))
            ++end;
        beginInsertRows(section, int(row), int(end) - 1);
        organizations_.insert(organizations_.begin() + std::ptrdiff_t(row), next.begin() + std::ptrdiff_t(row),
            next.begin() + std::ptrdiff_t(end));
        endInsertRows();
        row = end;
    }

    // A new name or count.
    for (std::size_t row = 0; row < next.size(); ++row) {
        if (organizations_[row] == next[row])
            continue;
        organizations_[row] = next[row];
        const QModelIndex changed = index(int(row), 0, section);
        Q_EMIT dataChanged(changed, changed);
    }
}

QStringList SidebarModel::mimeTypes() const
{
    return { QStringLiteral("text/plain") };
}

QMimeData *SidebarModel::mimeData(const QModelIndexList &indexes) const
{
    for (const QModelIndex &index : indexes) {
        if (const Organization *organization = organizationAt(index)) {
            auto *data = new QMimeData;
            data->setText(organizationPayload(organization->id));
            return data;
        }
    }
    return nullptr;
}

// An organization dragged away stays where it is; a drop only files scans or asks for a merge.
Qt::DropActions SidebarModel::supportedDragActions() const
{
    return Qt::CopyAction;
}

Qt::DropActions SidebarModel::supportedDropActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}

bool SidebarModel::canDropMimeData(const QMimeData *data, Qt::DropAction, int, int, const QModelIndex &parent) const
{
    const Organization *target = organizationAt(parent);
    if (!data || !target || !data->hasText())
        return false;
    const QString text = data->text();
    if (const std::optional<DocumentIDSet> scans = scansFromPayload(text))
        return !scans->empty();
    const std::optional<std::int64_t> source = organizationFromPayload(text);
    return source && *source != target->id
        && std::any_of(organizations_.begin(), organizations_.end(),
            [&source](const Organization &organization) { return organization.id == *source; });
}

bool SidebarModel::dropMimeData(
    const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent)
{
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    const Organization &target = *organizationAt(parent);
    const QString text = data->text();
    if (const std::optional<DocumentIDSet> scans = scansFromPayload(text)) {
        // Runs on its own; an edit that fails is reported through Library::editFailed.
        library_.setOrganization(*scans, target.name);
        return true;
    }
    Q_EMIT mergeRequested(*organizationFromPayload(text), target.id);
    return true;
}
