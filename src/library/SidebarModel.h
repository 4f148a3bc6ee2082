#pragma once

#include "core/ScanDocument.h"
#include "library/SidebarItem.h"

#include <QAbstractItemModel>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

class Library;

// The sidebar: two sections, "Library" with the fixed views and "Organizations" with one row per
// organization, each row with its count of scans. Organizations that come, go or are renamed are
// inserted, removed or moved by id, so that the selected row stays selected.
//
// Drag and drop: an organization row drags an organization payload. Scans dropped on an organization
// row are filed there; an organization dropped on another asks for a merge (mergeRequested), which the
// view confirms. Anything else dropped anywhere else is refused.
class SidebarModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Role {
        CountRole = Qt::UserRole + 1,
        // The row's symbol name; none for the sections.
        IconRole,
        // The organization's id, on organization rows only.
        OrganizationIdRole,
    };
    enum Section { librarySection, organizationsSection };

    explicit SidebarModel(Library &library, QObject *parent = nullptr);

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    // What selecting the row shows; absent for the sections.
    std::optional<SidebarItem> itemAt(const QModelIndex &index) const;
    // The row of the item; invalid for an organization that isn't listed.
    QModelIndex indexOf(const SidebarItem &item) const;

    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;
    Qt::DropActions supportedDropActions() const override;
    bool canDropMimeData(
        const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent) const override;
    bool dropMimeData(
        const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent) override;

Q_SIGNALS:
    // An organization was dropped on another; the view asks before merging `source` into `target`.
    void mergeRequested(std::int64_t source, std::int64_t target);

private:
    // The fixed views' counts.
    void refreshCounts();
    // Brings the organization rows in line with the Library's list.
    void refreshOrganizations();
    const Organization *organizationAt(const QModelIndex &index) const;

    Library &library_;
    std::array<int, 4> counts_ {};
    std::vector<Organization> organizations_;
};
