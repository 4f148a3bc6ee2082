#pragma once

#include "ui/Prompts.h"

#include <QWidget>

class DocumentTable;
class Library;
class QComboBox;
class QLineEdit;
class QToolButton;
class SidebarView;

// The open folder: the sidebar, the toolbar's search and filters over the table of scans, and the
// inspector's place on the right.
class LibraryView : public QWidget {
    Q_OBJECT
public:
    LibraryView(Library &library, Prompts &prompts, QWidget *parent = nullptr);

    // Puts the cursor in the search field, its text selected.
    void focusSearch();
    // How many scans the table shows.
    int shownCount() const;
    DocumentTable *table() const { return table_; }
    SidebarView *sidebar() const { return sidebar_; }

Q_SIGNALS:
    void shownCountChanged();
    void inspectorToggled(bool shown);

private:
    void updateYears();
    void updateKinds();
    void updateInspectorToggle();

    Library &library_;
    SidebarView *sidebar_;
    DocumentTable *table_;
    QLineEdit *search_;
    QComboBox *year_;
    QComboBox *kind_;
    QToolButton *inspector_;
    QWidget *inspectorPane_;
};
