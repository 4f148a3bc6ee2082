#pragma once

#include "ui/Prompts.h"
#include "ui/UpdateCheck.h"

#include <QMainWindow>

#include <cstdint>
#include <memory>

class ActivityView;
class Library;
class LibraryView;
class QAction;
class QStackedWidget;
class SettingsWindow;
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

    ~MainWindow() override;

    LibraryView *libraryView() const { return libraryView_; }
    // The other windows, made when first asked for; null until then.
    ActivityView *activityWindow() const { return activity_.get(); }
    SettingsWindow *settingsWindow() const { return settings_.get(); }

    // Window ▸ Activity, and the status bar's button: the session's log of background work.
    void showActivity();
    // Edit ▸ Preferences… on the page last shown; the inspector's "Edit Prompt…" on the instructions.
    void showSettings(bool instructions = false);
    // The inspector's "Show Transcript…": what the model was asked and answered for the scan.
    void showTranscript(std::int64_t id);

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
    // Windows of their own, not kept above this one; closing this one still ends the app.
    std::unique_ptr<ActivityView> activity_;
    std::unique_ptr<SettingsWindow> settings_;
};
