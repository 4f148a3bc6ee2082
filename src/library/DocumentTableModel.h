#pragma once

#include "library/SortComparator.h"
#include "library/StatusLabel.h"

#include <QAbstractTableModel>

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

class Library;

// The table of scans: the Library's visible scans in its sort order, one row per scan, keyed by id.
// Changes arrive row by row: an edited scan changes its own row, scans that come and go are removed and
// inserted, and a new order moves the rows, so that the view's selection and scroll position follow
// their scans. Only a change too scattered to describe row by row resets the model.
class DocumentTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    // `columnTotal` is the number of columns (`columnCount` would clash with the function of that name).
    enum Column { thumbnail, date, organization, type, file, pages, status, columnTotal };
    enum Role {
        IdRole = Qt::UserRole + 1,
        // The file's absolute path; empty when the file is missing.
        PathRole,
        // The file's modification time (QDateTime), which tells a thumbnail that is out of date.
        ModifiedRole,
        // The first page's rotation in degrees, 0 when none is known.
        RotationRole,
        // The status label's symbol name.
        StatusIconRole,
        // int(StatusLabel::Tone).
        StatusToneRole,
        MissingRole,
    };

    explicit DocumentTableModel(Library &library, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    std::int64_t idAt(int row) const;
    std::optional<int> rowOf(std::int64_t id) const;

    // Sets the Library's sort order to the column's key; the thumbnail column doesn't sort.
    void sort(int column, Qt::SortOrder order) override;
    // The column and direction of the Library's first sort key, for the header's indicator.
    std::optional<std::pair<int, Qt::SortOrder>> sortColumn() const;

    QStringList mimeTypes() const override;
    // A scans payload of the rows' ids.
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;

private:
    // The model's copy of a scan's record and its row as of the last complete change.
    struct Entry {
        ScanDocument document;
        int row = 0;
    };

    // Brings the rows in line with the Library's visible scans; `recordsChanged` when the scans' records
    // may have changed too, not only which are shown or their order.
    void refresh(bool recordsChanged);
    // The status inputs changed: the status cells whose label changed.
    void refreshStatus();
    void reset(const std::vector<const ScanDocument *> &documents);
    void removeRuns(const std::vector<std::pair<int, int>> &runs);
    // Inserts the new scans where they go in `next`; the other rows are already in its order.
    void insertInPlace(const std::vector<const ScanDocument *> &next);
    // Appends the new scans, then moves every row to its place in `next`.
    void insertAndReorder(const std::vector<const ScanDocument *> &next);
    // Numbers the rows as in `next`; with `recordsChanged`, takes the new records of the scans shown and
    // announces the rows whose record changed.
    void update(const std::vector<const ScanDocument *> &next, bool recordsChanged);
    const ScanDocument *documentAt(int row) const;

    Library &library_;
    // The scans' ids in row order; the records by id, so that rows move without copying records.
    std::vector<std::int64_t> ids_;
    std::unordered_map<std::int64_t, Entry> entries_;
    WorkState work_;
};
