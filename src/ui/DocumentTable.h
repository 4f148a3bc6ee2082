#pragma once

#include "library/Catalogue.h"
#include "ui/Prompts.h"

#include <QWidget>

class DocumentTableModel;
class EmptyState;
class Library;
class QMenu;
class QStackedLayout;
class QTableView;

// The table of the scans the sidebar, filters and search let through, with their thumbnails; its
// selection is the Library's. Rows drag their scans; the context menu acts on the clicked rows.
class DocumentTable : public QWidget {
    Q_OBJECT
public:
    DocumentTable(Library &library, Prompts &prompts, QWidget *parent = nullptr);

    int shownCount() const;
    QTableView *view() const { return view_; }
    DocumentTableModel *model() const { return model_; }
    EmptyState *emptyState() const { return empty_; }
    // The context menu for the scans, as the table shows it on a right click.
    QMenu *menuFor(const DocumentIDSet &ids, QWidget *parent);

Q_SIGNALS:
    void shownCountChanged();

private:
    void rowsChanged();
    void selectionEdited();
    void applySelection();
    void showSortOrder();
    void sortBy(int column);
    void showMenu(const QPoint &position);

    Library &library_;
    Prompts &prompts_;
    DocumentTableModel *model_;
    QTableView *view_;
    EmptyState *empty_;
    QStackedLayout *stack_;
    bool applying_ = false;
    // The scans the view shows selected, as it last told the Library or was told.
    DocumentIDSet shown_;
    // The view lost its selection (a reset): the Library's is applied even if it looks the same.
    bool reselect_ = false;
};
