#include "ui/MainWindow.h"

#include "library/Library.h"
#include "ui/ActivityView.h"
#include "ui/DesktopIntegration.h"
#include "ui/Icons.h"
#include "ui/LibraryView.h"
#include "ui/ModelSettingsPage.h"
#include "ui/PromptSettingsView.h"
#include "ui/SettingsWindow.h"
#include "ui/StatusBarView.h"
#include "ui/TextRecognitionPage.h"
#include "ui/TraceSheet.h"
#include "ui/UpdateCheck.h"
#include "ui/WelcomeView.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>

MainWindow::MainWindow(Library &library, Prompts prompts, UpdateCheck &updates, QWidget *parent)
    : QMainWindow(parent)
    , library_(library)
    , prompts_(std::move(prompts))
    , updates_(updates)
{
    setObjectName(QStringLiteral("main"));
    setWindowIcon(Icons::application());
    resize(1280, 800);

    stack_ = new QStackedWidget(this);
    stack_->setObjectName(QStringLiteral("content"));
    welcome_ = new WelcomeView(library_, stack_);
    libraryView_ = new LibraryView(library_, prompts_, stack_);
    stack_->addWidget(welcome_);
    stack_->addWidget(libraryView_);
    stack_->setMinimumSize(900, 520);
    setCentralWidget(stack_);
    connect(welcome_, &WelcomeView::chooseFolderRequested, this, &MainWindow::chooseFolder);

    statusBar_ = new StatusBarView(library_, this);
    setStatusBar(statusBar_);
    connect(statusBar_, &StatusBarView::activityRequested, this, &MainWindow::showActivity);

    buildMenus();

    connect(&library_, &Library::folderChanged, this, &MainWindow::folderChanged);
    connect(&library_, &Library::pausedChanged, this, &MainWindow::updatePauseItem);
    connect(libraryView_, &LibraryView::shownCountChanged, this, &MainWindow::updateTitle);
    connect(libraryView_, &LibraryView::instructionsRequested, this, [this] { showSettings(true); });
    connect(libraryView_, &LibraryView::transcriptRequested, this, &MainWindow::showTranscript);
    connect(&library_, &Library::editFailed, this, [this](const QString &message) {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Vellumark"), QStringLiteral("The change wasn't saved"),
            QMessageBox::Ok, this);
        box.setInformativeText(message);
        prompts_.run(box);
    });
    folderChanged();
    updatePauseItem();
}

MainWindow::~MainWindow() = default;

void MainWindow::showActivity()
{
    if (!activity_) {
        activity_ = std::make_unique<ActivityView>(library_);
        activity_->setAttribute(Qt::WA_QuitOnClose, false);
    }
    activity_->show();
    activity_->raise();
    activity_->activateWindow();
}

void MainWindow::showSettings(bool instructions)
{
    if (!settings_) {
        settings_ = std::make_unique<SettingsWindow>();
        settings_->setAttribute(Qt::WA_QuitOnClose, false);
        auto *prompt = new PromptSettingsView(library_);
        settings_->addPage(
            QStringLiteral("Instructions"), Icons::symbol(u"text.bubble"), prompt, [prompt] { prompt->reload(); });
        auto *model = new ModelSettingsPage(library_);
        settings_->addPage(QStringLiteral("Model"), Icons::symbol(u"sparkles"), model, [model] { model->reload(); });
        auto *reading = new TextRecognitionPage(library_);
        settings_->addPage(QStringLiteral("Text Recognition"), Icons::symbol(u"text.viewfinder"), reading,
            [reading] { reading->reload(); });
    }
    settings_->present(instructions ? std::optional(0) : std::nullopt);
}

void MainWindow::showTranscript(std::int64_t id)
{
    const auto found = library_.documentsByID().find(id);
    if (found == library_.documentsByID().end())
        return;
    auto *sheet = new TraceSheet(library_, found->second, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->open();
}

QString MainWindow::title(int shown, int present)
{
    return QStringLiteral("Vellumark — %1 of %2 scans").arg(shown).arg(present);
}

void MainWindow::buildMenus()
{
    auto addAction = [](QMenu *menu, const QString &name, const QString &text, const QKeySequence &shortcut = {}) {
        QAction *action = menu->addAction(text);
        action->setObjectName(name);
        action->setShortcut(shortcut);
        return action;
    };

    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    connect(addAction(file, QStringLiteral("openFolderAction"), QStringLiteral("Open Scans Folder…"),
                QKeySequence(Qt::CTRL | Qt::Key_O)),
        &QAction::triggered, this, &MainWindow::chooseFolder);
    file->addSeparator();
    QAction *quit
        = addAction(file, QStringLiteral("quitAction"), QStringLiteral("Quit"), QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, qApp, &QApplication::quit);

    QMenu *edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    QAction *find = addAction(edit, QStringLiteral("findAction"), QStringLiteral("Find"), QKeySequence::Find);
    connect(find, &QAction::triggered, this, [this] { libraryView_->focusSearch(); });
    edit->addSeparator();
    QAction *preferences = addAction(edit, QStringLiteral("preferencesAction"), QStringLiteral("Preferences…"),
        QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connect(preferences, &QAction::triggered, this, [this] { showSettings(); });

    QMenu *libraryMenu = menuBar()->addMenu(QStringLiteral("&Library"));
    QAction *rescan = addAction(libraryMenu, QStringLiteral("rescanAction"), QStringLiteral("Rescan Folder"),
        QKeySequence(Qt::CTRL | Qt::Key_R));
    connect(rescan, &QAction::triggered, this, [this] { library_.rescan(); });
    pause_ = addAction(libraryMenu, QStringLiteral("pauseAction"), QStringLiteral("Pause Processing"),
        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_P));
    connect(pause_, &QAction::triggered, this, [this] { library_.setPaused(!library_.paused()); });
    QAction *reextractModel = addAction(libraryMenu, QStringLiteral("reextractModelAction"),
        QStringLiteral("Re-extract All Scans Filed by the Local Model"));
    connect(reextractModel, &QAction::triggered, this, [this] { library_.reextractAllFromModel(); });
    QAction *reextractIncomplete = addAction(libraryMenu, QStringLiteral("reextractIncompleteAction"),
        QStringLiteral("Re-extract Scans Missing an Organization or Date"));
    connect(reextractIncomplete, &QAction::triggered, this, [this] { library_.reextractIncomplete(); });
    libraryMenu->addSeparator();
    QAction *revealDatabase = addAction(
        libraryMenu, QStringLiteral("revealDatabaseAction"), QStringLiteral("Show Database in File Manager"));
    connect(revealDatabase, &QAction::triggered, this, [this] { DesktopIntegration::revealDatabase(library_); });
    folderActions_ = { find, rescan, pause_, reextractModel, reextractIncomplete, revealDatabase };

    QMenu *window = menuBar()->addMenu(QStringLiteral("&Window"));
    QAction *activity = addAction(window, QStringLiteral("activityAction"), QStringLiteral("Activity"),
        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L));
    connect(activity, &QAction::triggered, this, &MainWindow::showActivity);
    window->addSeparator();

    QMenu *help = menuBar()->addMenu(QStringLiteral("&Help"));
    QAction *about = addAction(help, QStringLiteral("aboutAction"), QStringLiteral("About Vellumark"));
    about->setMenuRole(QAction::AboutRole);
    connect(about, &QAction::triggered, this, [this] {
        QMessageBox box(QMessageBox::NoIcon, QStringLiteral("About Vellumark"),
            QStringLiteral("Vellumark ") + QApplication::applicationVersion(), QMessageBox::Ok, this);
        box.setIconPixmap(Icons::application().pixmap(64, 64));
        box.setInformativeText(QStringLiteral("Turns a folder of scanned mail into a searchable, sorted catalogue. "
                                              "Your PDFs are never modified."));
        prompts_.run(box);
    });
    checkForUpdates_ = addAction(help, QStringLiteral("checkForUpdatesAction"), QStringLiteral("Check for Updates…"));
    checkForUpdates_->setEnabled(updates_.canCheck());
    connect(
        &updates_, &UpdateCheck::canCheckChanged, this, [this] { checkForUpdates_->setEnabled(updates_.canCheck()); });
    connect(checkForUpdates_, &QAction::triggered, &updates_, &UpdateCheck::checkNow);
    connect(&updates_, &UpdateCheck::finished, this, &MainWindow::showUpdateResult);
}

void MainWindow::chooseFolder()
{
    library_.chooseFolder([this](const QString &startIn) { return prompts_.chooseFolder(this, startIn); });
}

void MainWindow::folderChanged()
{
    const bool open = library_.folder().has_value();
    stack_->setCurrentWidget(open ? static_cast<QWidget *>(libraryView_) : welcome_);
    statusBar_->setVisible(open);
    for (QAction *action : std::as_const(folderActions_))
        action->setEnabled(open);
    updateTitle();
}

void MainWindow::updateTitle()
{
    setWindowTitle(library_.folder() ? title(libraryView_->shownCount(), library_.count(SidebarItem::all()))
                                     : QStringLiteral("Vellumark"));
}

void MainWindow::updatePauseItem()
{
    pause_->setText(library_.paused() ? QStringLiteral("Resume Processing") : QStringLiteral("Pause Processing"));
}

void MainWindow::showUpdateResult(const UpdateCheck::Result &result)
{
    QMessageBox box(
        QMessageBox::Information, QStringLiteral("Check for Updates"), QString(), QMessageBox::NoButton, this);
    box.setObjectName(QStringLiteral("updateResult"));
    QPushButton *open = nullptr;
    switch (result.outcome) {
    case UpdateCheck::Result::Outcome::newer:
        box.setText(QStringLiteral("Vellumark ") + result.version + QStringLiteral(" is available"));
        box.setInformativeText(
            QStringLiteral("You have version ") + QApplication::applicationVersion() + QStringLiteral("."));
        open = box.addButton(QStringLiteral("Open Release Page"), QMessageBox::AcceptRole);
        box.addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole);
        break;
    case UpdateCheck::Result::Outcome::upToDate:
        box.setText(QStringLiteral("Vellumark is up to date"));
        box.setInformativeText(
            QStringLiteral("Version ") + QApplication::applicationVersion() + QStringLiteral(" is the newest."));
        box.addButton(QMessageBox::Ok);
        break;
    case UpdateCheck::Result::Outcome::failed:
        box.setIcon(QMessageBox::Warning);
        box.setText(QStringLiteral("Couldn't check for updates"));
        box.setInformativeText(result.message);
        box.addButton(QMessageBox::Ok);
        break;
    }
    prompts_.run(box);
    if (open && box.clickedButton() == open)
        QDesktopServices::openUrl(result.page);
}
