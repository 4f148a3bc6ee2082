#pragma once

#include <QTimer>
#include <QUuid>
#include <QWidget>

#include <optional>

class ActivityTableModel;
class AttemptView;
class EmptyState;
class Library;
class QAction;
class QLabel;
class QScrollArea;
class QStackedWidget;
class QTableView;
class ToneLabel;

// The window that lists what the background work did this session: every model request, every scan
// read and the queue's events, filtered by kind or to failures, with the selected request shown in
// full. Follows the log as it grows; works with or without an open folder.
class ActivityView : public QWidget {
    Q_OBJECT
public:
    explicit ActivityView(Library &library, QWidget *parent = nullptr);

    // The entry whose row is selected, if one is.
    std::optional<QUuid> selection() const { return selection_; }

private:
    QAction *toggle(const QString &name, const QString &text, void (ActivityTableModel::*set)(bool));
    void selectionFollowsTable();
    // Shows the selected request in full, or says how to get there.
    void showDetail();
    void logChanged();

    Library &library_;
    ActivityTableModel *model_;
    QTableView *table_;
    QStackedWidget *detail_;
    EmptyState *empty_;
    QScrollArea *attemptArea_;
    AttemptView *attempt_ = nullptr;
    ToneLabel *footer_;
    std::optional<QUuid> selection_;
    // Turns the running requests' indicators while any request runs.
    QTimer spinning_;
};
