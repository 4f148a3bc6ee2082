#pragma once

#include "ui/Prompts.h"
#include "ui/UpdateCheck.h"

#include <QMainWindow>

#include <cstdint>

class Library;
class LibraryView;
class QAction;
class QStackedWidget;
class StatusBarView;
class WelcomeView;

// The window a person lives in: the welcome view until a folder is open, then the sidebar, the table and
// the status bar; the menus with their shortcuts.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(Library &library, Prompts prompts, UpdateCheck &updates, QWidget *parent = nullptr);

    // The window's title: the app's name and, while a folder is open, how many scans the table shows.
    static QString title(int shown, int present);

    LibraryView *libraryView() const { return libraryView_; }

Q_SIGNALS:
    // Window ▸ Activity, and the status bar's button.
    void activityRequested();
    // Edit ▸ Preferences…, and the inspector's "Edit Prompt…".
    void settingsRequested();
    // The inspector's "Show Transcript…" for the scan.
    void transcriptRequested(std::int64_t id);

private:
    void buildMenus();
    void chooseFolder();
    void folderChanged();
    void updateTitle();
    void updatePauseItem();
    void showUpdateResult(const UpdateCheck::Result &result);

    Library &library_;
    Prompts prompts_;
    UpdateCheck &updates_;
    QStackedWidget *stack_;
    WelcomeView *welcome_;
    LibraryView *libraryView_;
    StatusBarView *statusBar_;
    QList<QAction *> folderActions_;
    QAction *pause_ = nullptr;
    QAction *checkForUpdates_ = nullptr;
};
