#pragma once

#include "extract/ActivityLog.h"

#include <QAbstractTableModel>
#include <QStringList>

#include <optional>
#include <vector>

// The activity log as a table: its entries in order, keeping only the kinds asked for and, if asked,
// only failures. Follows the log row by row (entries that come, go or finish insert, remove or change
// their own rows), so that a view keeps its selection and scroll position while the work goes on.
class ActivityTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    // `columnTotal` is the number of columns.
    enum Column { time, kind, file, request, outcome, seconds, tokens, columnTotal };
    enum Role {
        // The entry's id (QUuid).
        IdRole = Qt::UserRole + 1,
        // The request is under way.
        RunningRole,
        // The entry counts as a failure.
        FailedRole,
    };

    explicit ActivityTableModel(ActivityLog &log, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    bool showModel() const { return showModel_; }
    bool showOCR() const { return showOCR_; }
    bool showQueue() const { return showQueue_; }
    bool failuresOnly() const { return failuresOnly_; }
    void setShowModel(bool show);
    void setShowOCR(bool show);
    void setShowQueue(bool show);
    void setFailuresOnly(bool only);

    const ActivityEntry &entry(int row) const { return rows_.at(std::size_t(row)).entry; }
    std::optional<int> rowOf(const QUuid &id) const;
    // The shown rows as lines of text, for copying.
    QStringList shownLines() const;
    // The finished model requests of the whole log, whatever is shown: how many, how many failed, and
    // their time.
    QString footer() const;

private:
    struct Row {
        // The entry's place in the log.
        int logRow = 0;
        ActivityEntry entry;
    };

    bool shows(const ActivityEntry &entry) const;
    void setFilter(bool &flag, bool value);
    // Brings the rows in line with the log and the filters, inserting and removing runs of rows.
    void refilter();
    void appended(int logRow);
    void removed(int first, int count);
    void changed(int logRow);
    // The first row whose entry sits at `logRow` or after it in the log.
    int lowerBound(int logRow) const;

    ActivityLog &log_;
    bool showModel_ = true;
    bool showOCR_ = true;
    bool showQueue_ = true;
    bool failuresOnly_ = false;
    // Copies of the shown entries, so that a row reads the same until its change is announced.
    std::vector<Row> rows_;
};
