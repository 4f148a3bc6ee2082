#include "library/Library.h"

#include "library/FileManager.h"
#include "library/Recognition.h"
#include "store/FolderWatcher.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace {

QString folderName(const QString &folder)
{
    const QString name = QFileInfo(folder).fileName();
    return name.isEmpty() ? folder : name;
}

std::optional<QString> storedText(const QString &key)
{
    const QVariant value = QSettings().value(key);
    if (!value.isValid() || value.toString().isEmpty())
        return std::nullopt;
    return value.toString();
}

} // namespace

Library::Library(QObject *parent)
    : QObject(parent)
    , paused_(QSettings().value(pausedKey, false).toBool())
    , lastFolderPath_(storedText(folderPathKey))
    , activity_(std::make_unique<ActivityLog>())
{
    syncTimer_.setSingleShot(true);
    syncTimer_.setInterval(1000);
    connect(&syncTimer_, &QTimer::timeout, this, [this] { sync(); });
    searchTimer_.setSingleShot(true);
    connect(&searchTimer_, &QTimer::timeout, this, &Library::searchNow);
    folderReturn_.setInterval(2000);
    connect(&folderReturn_, &QTimer::timeout, this, [this] {
        if (!folder_ || !QFileInfo(*folder_).isDir())
            return;
        // The watches went with the folder; new ones are needed for the folder that came back.
        folderReturn_.stop();
        watchFolder();
        [](QPointer<Library> self) -> QCoro::Task<> {
            // The scans were shown missing without the catalogue knowing: read it again first.
            co_await self->reload();
            if (self)
                co_await self->sync();
        }(this);
    });
}

Library::~Library()
{
    close();
}

void Library::restore()
{
    if (const std::optional<QString> override = storedText(folderOverrideKey)) {
        open(*override, false);
        return;
    }
    // A "bookmark" here is the folder's path; it resolves when the folder is there, and is never stale.
    const std::optional<QString> bookmark = storedText(folderBookmarkKey);
    if (!bookmark || !QFileInfo(*bookmark).isDir())
        return;
    open(*bookmark, false);
}

void Library::chooseFolder(const std::function<std::optional<QString>(const QString &startIn)> &choose)
{
    const QString startIn = folder_.value_or(lastFolderPath_.value_or(QString()));
    if (const std::optional<QString> chosen = choose(startIn))
        open(*chosen, true);
}

std::shared_ptr<Library::Store> Library::openStore(const QString &folder)
{
    close();
    const QString path = QDir::cleanPath(QDir(folder).absolutePath());
    std::shared_ptr<Store> store;
    try {
        // Opening and migrating is quick next to everything after it, which runs in the background.
        store = Store::makeNow(path);
    } catch (const Database::Error &error) {
        assign(openError_,
            std::optional<QString>(QStringLiteral("Couldn't open ") + ScanStore::fileName + QStringLiteral(" in ")
                + folderName(path) + QStringLiteral(": ") + error.message()),
            &Library::openErrorChanged);
        return nullptr;
    }
    store_ = store;
    assign(openError_, std::optional<QString>(), &Library::openErrorChanged);
    assign(folder_, std::optional(path), &Library::folderChanged);
    return store;
}

void Library::open(const QString &folder, bool saveBookmark)
{
    const std::shared_ptr<Store> store = openStore(folder);
    if (!store)
        return;
    const QString path = *folder_;

    if (saveBookmark) {
        QSettings settings;
        settings.setValue(folderBookmarkKey, path);
        settings.setValue(folderPathKey, path);
        assign(lastFolderPath_, std::optional(path), &Library::lastFolderPathChanged);
    }
    watchFolder();
    openInBackground(store);
}

void Library::watchFolder()
{
    QPointer<Library> self(this);
    watcher_ = std::make_unique<FolderWatcher>(*folder_, [self] {
        if (self)
            self->scheduleSync();
    });
}

QCoro::Task<> Library::openInBackground(std::shared_ptr<Store> store)
{
    QPointer<Library> self(this);
    std::optional<QString> instructions;
    try {
        instructions = co_await store->run([](ScanStore &s) { return s.setting(QStringLiteral("instructions")); });
    } catch (const std::exception &) {
    }
    if (!self || store_ != store)
        co_return;
    assign(customInstructions_, instructions, &Library::customInstructionsChanged);
    co_await reload();
    if (!self || store_ != store)
        co_return;
    co_await rereadGarbledScans(store);
    if (!self || store_ != store)
        co_return;
    co_await sync();
}

void Library::close()
{
    stopWork();
    if (modelWatchTask_) {
        modelWatchTask_->request_stop();
        modelWatchTask_.reset();
    }
    modelChecked_ = false;
    syncTimer_.stop();
    folderReturn_.stop();
    watcher_.reset();
    store_.reset();
    assign(folder_, std::optional<QString>(), &Library::folderChanged);
    assign(documentsByID_, {}, &Library::documentsChanged);
    assign(organizations_, {}, &Library::organizationsChanged);
    assign(selection_, {}, &Library::selectionChanged);
    resetBrowsing();
    assign(customInstructions_, std::optional<QString>(), &Library::customInstructionsChanged);
}

QCoro::Task<> Library::reload()
{
    std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Library> self(this);
    std::vector<ScanDocument> documents;
    std::vector<Organization> organizations;
    try {
        documents = co_await store->run([](ScanStore &s) { return s.documents(); });
    } catch (const std::exception &) {
    }
    try {
        organizations = co_await store->run([](ScanStore &s) { return s.organizations(); });
    } catch (const std::exception &) {
    }
    if (!self || store_ != store)
        co_return;
    std::map<std::int64_t, ScanDocument> byID;
    for (ScanDocument &document : documents)
        byID.emplace(document.id, std::move(document));
    assign(documentsByID_, std::move(byID), &Library::documentsChanged);
    assign(organizations_, std::move(organizations), &Library::organizationsChanged);
    DocumentIDSet selection;
    for (std::int64_t id : selection_) {
        if (documentsByID_.contains(id))
            selection.insert(id);
    }
    assign(selection_, std::move(selection), &Library::selectionChanged);
    reloadedBrowsing();
    co_await updateCounts();
    if (self && store_ == store && !searchText_.isEmpty())
        runSearch(false);
}

QCoro::Task<> Library::refresh(DocumentIDs ids, bool organizations)
{
    std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Library> self(this);
    std::vector<ScanDocument> documents;
    if (!ids.empty()) {
        try {
            documents = co_await store->run([ids](ScanStore &s) { return s.documents(ids); });
        } catch (const std::exception &) {
        }
    }
    if (!self || store_ != store)
        co_return;
    std::map<std::int64_t, ScanDocument> byID = documentsByID_;
    for (std::int64_t id : ids)
        byID.erase(id);
    for (ScanDocument &document : documents)
        byID.insert_or_assign(document.id, std::move(document));
    assign(documentsByID_, std::move(byID), &Library::documentsChanged);
    if (organizations) {
        std::vector<Organization> read;
        try {
            read = co_await store->run([](ScanStore &s) { return s.organizations(); });
        } catch (const std::exception &) {
        }
        if (!self || store_ != store)
            co_return;
        assign(organizations_, std::move(read), &Library::organizationsChanged);
    }
    co_await updateCounts();
    if (self && store_ == store && !searchText_.isEmpty())
        runSearch(false);
}

QCoro::Task<> Library::updateCounts()
{
    std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Library> self(this);
    std::optional<ScanStore::PendingCounts> counts;
    try {
        counts = co_await store->run([](ScanStore &s) { return s.pendingCounts(); });
    } catch (const std::exception &) {
    }
    if (!self || !counts)
        co_return;
    if (pendingOCR_ != counts->ocr || pendingExtraction_ != counts->extract) {
        pendingOCR_ = counts->ocr;
        pendingExtraction_ = counts->extract;
        Q_EMIT pendingCountsChanged();
    }
}

void Library::setSelection(DocumentIDSet selection)
{
    assign(selection_, std::move(selection), &Library::selectionChanged);
}

void Library::revealDatabase()
{
    if (folder_)
        showInFileManager(QDir(*folder_).filePath(ScanStore::fileName));
}

std::optional<QString> Library::url(const ScanDocument &document) const
{
    if (!folder_)
        return std::nullopt;
    return QDir(*folder_).filePath(document.path);
}

QCoro::Task<QStringList> Library::pages(ScanDocument document)
{
    std::shared_ptr<Store> store = store_;
    if (!store)
        co_return QStringList();
    try {
        co_return co_await store->run([id = document.id](ScanStore &s) { return s.pages(id); });
    } catch (const std::exception &) {
    }
    co_return QStringList();
}
