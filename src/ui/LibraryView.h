#pragma once

#include "ui/Prompts.h"

#include <QWidget>

#include <cstdint>

class DocumentTable;
class InspectorView;
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
    // Whether the inspector was shown when the app was last used.
    static inline const QString inspectorShownKey = QStringLiteral("InspectorShown");

    LibraryView(Library &library, Prompts &prompts, QWidget *parent = nullptr);

    // Puts the cursor in the search field, its text selected.
    void focusSearch();
    // How many scans the table shows.
    int shownCount() const;
    DocumentTable *table() const { return table_; }
    SidebarView *sidebar() const { return sidebar_; }
    InspectorView *inspector() const { return inspectorPane_; }

Q_SIGNALS:
    void shownCountChanged();
    void inspectorToggled(bool shown);
    // The inspector's "Show Transcript…" and "Edit Prompt…".
    void transcriptRequested(std::int64_t id);
    void instructionsRequested();

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
    InspectorView *inspectorPane_;
};
