#include "library/Library.h"

#include "library/Fields.h"
#include "store/FolderScan.h"
#include "store/FolderWatcher.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>
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

Library::Library(LibraryOptions options, QObject *parent)
    : QObject(parent)
    , lastFolderPath_(storedText(folderPathKey))
    , model_(activity_, options.modelPoll)
    , work_(catalogue_, activity_, model_, { options.modelRetry }, options.extraction, options.readers)
    , browsing_(catalogue_, options.searchDelay)
    , editing_(catalogue_, work_)
{
    connect(&catalogue_, &Catalogue::documentsChanged, this, &Library::documentsChanged);
    connect(&catalogue_, &Catalogue::organizationsChanged, this, &Library::organizationsChanged);
    connect(&catalogue_, &Catalogue::pendingCountsChanged, this, &Library::pendingCountsChanged);
    connect(&catalogue_, &Catalogue::customInstructionsChanged, this, &Library::customInstructionsChanged);
    connect(&catalogue_, &Catalogue::listsRead, this, &Library::listsRead);
    connect(&model_, &ModelWatch::problemChanged, this, &Library::modelProblemChanged);
    connect(&model_, &ModelWatch::modelChanged, this, &Library::modelChanged);
    connect(&work_, &WorkScheduler::pausedChanged, this, &Library::pausedChanged);
    connect(&work_, &WorkScheduler::requestedChanged, this, &Library::requestedChanged);
    connect(&work_, &WorkScheduler::currentOCRChanged, this, &Library::currentOCRChanged);
    connect(&work_, &WorkScheduler::currentExtractionChanged, this, &Library::currentExtractionChanged);
    connect(&work_, &WorkScheduler::modelWaitingChanged, this, &Library::modelWaitingChanged);
    connect(&work_, &WorkScheduler::ocrProblemChanged, this, &Library::ocrProblemChanged);
    connect(&work_, &WorkScheduler::readingChanged, this, &Library::readingChanged);
    connect(&work_, &WorkScheduler::extractingChanged, this, &Library::extractingChanged);
    connect(&work_, &WorkScheduler::pageRead, this, &Library::pageRead);
    connect(&browsing_, &Browsing::sidebarChanged, this, &Library::sidebarChanged);
    connect(&browsing_, &Browsing::yearChanged, this, &Library::yearChanged);
    connect(&browsing_, &Browsing::kindChanged, this, &Library::kindChanged);
    connect(&browsing_, &Browsing::searchTextChanged, this, &Library::searchTextChanged);
    connect(&browsing_, &Browsing::searchMatchesChanged, this, &Library::searchMatchesChanged);
    connect(&browsing_, &Browsing::sortOrderChanged, this, &Library::sortOrderChanged);
    connect(&editing_, &Editing::editFailed, this, &Library::editFailed);

    syncTimer_.setSingleShot(true);
    syncTimer_.setInterval(1000);
    connect(&syncTimer_, &QTimer::timeout, this, &Library::rescan);
    folderReturn_.setInterval(2000);
    connect(&folderReturn_, &QTimer::timeout, this, [this] {
        if (!folder_ || !QFileInfo(*folder_).isDir())
            return;
        // The watches went with the folder; new ones are needed for the folder that came back.
        folderReturn_.stop();
        watchFolder();
        [](QPointer<Library> self) -> QCoro::Task<> {
            try {
                // The scans were shown missing without the catalogue knowing: read it again first.
                co_await self->catalogue_.reload();
                if (self)
                    co_await self->sync();
            } catch (...) {
                if (self)
                    reportEscaped(self->activity_, QStringLiteral("Opening the folder again"));
            }
        }(this);
    });
}

Library::~Library()
{
    close();
}

std::optional<QString> Library::rememberedFolder()
{
    const std::optional<QString> override = storedText(folderOverrideKey);
    return override ? override : storedText(folderBookmarkKey);
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

std::shared_ptr<Catalogue::Store> Library::openStore(const QString &folder)
{
    close();
    const QString path = QDir::cleanPath(QDir(folder).absolutePath());
    std::shared_ptr<Catalogue::Store> store;
    try {
        // Opening and migrating is quick next to everything after it, which runs in the background.
        store = Catalogue::Store::makeNow(path);
    } catch (const Database::Error &error) {
        assign(openError_,
            std::optional<QString>(QStringLiteral("Couldn't open ") + ScanStore::fileName + QStringLiteral(" in ")
                + folderName(path) + QStringLiteral(": ") + error.message()),
            this, &Library::openErrorChanged);
        return nullptr;
    }
    catalogue_.setStore(store, path);
    assign(openError_, std::optional<QString>(), this, &Library::openErrorChanged);
    assign(folder_, std::optional(path), this, &Library::folderChanged);
    return store;
}

void Library::open(const QString &folder, bool saveBookmark)
{
    const std::shared_ptr<Catalogue::Store> store = openStore(folder);
    if (!store)
        return;
    const QString path = *folder_;
    if (saveBookmark) {
        QSettings settings;
        settings.setValue(folderBookmarkKey, path);
        settings.setValue(folderPathKey, path);
        assign(lastFolderPath_, std::optional(path), this, &Library::lastFolderPathChanged);
    }
    watchFolder();
    openInBackground(store);
}

QCoro::Task<bool> Library::openWithoutWork(QString folder)
{
    const std::shared_ptr<Catalogue::Store> store = openStore(folder);
    if (!store)
        co_return false;
    work_.hold(true);
    QPointer<Library> self(this);
    co_await catalogue_.readInstructions();
    if (!self || catalogue_.store() != store)
        co_return false;
    co_await catalogue_.reload();
    co_return self &&catalogue_.store() == store;
}

void Library::watchFolder()
{
    QPointer<Library> self(this);
    watcher_ = std::make_unique<FolderWatcher>(*folder_, [self] {
        if (self)
            self->syncTimer_.start();
    });
}

QCoro::Task<> Library::openInBackground(std::shared_ptr<Catalogue::Store> store)
{
    QPointer<Library> self(this);
    try {
        co_await catalogue_.readInstructions();
        if (!self || catalogue_.store() != store)
            co_return;
        co_await catalogue_.reload();
        if (!self || catalogue_.store() != store)
            co_return;
        co_await work_.rereadGarbledScans();
        if (!self || catalogue_.store() != store)
            co_return;
        co_await sync();
    } catch (...) {
        if (self)
            reportEscaped(activity_, QStringLiteral("Opening the folder"));
    }
}

void Library::close()
{
    work_.stopWork();
    work_.clearRequested();
    work_.hold(false);
    model_.reset();
    syncTimer_.stop();
    folderReturn_.stop();
    watcher_.reset();
    catalogue_.setStore(nullptr, QString());
    assign(folder_, std::optional<QString>(), this, &Library::folderChanged);
    assign(selection_, {}, this, &Library::selectionChanged);
    browsing_.reset();
}

void Library::listsRead()
{
    DocumentIDSet selection;
    for (const std::int64_t id : selection_) {
        if (catalogue_.documentsByID().contains(id))
            selection.insert(id);
    }
    assign(selection_, std::move(selection), this, &Library::selectionChanged);
}

void Library::rescan()
{
    [](QPointer<Library> self) -> QCoro::Task<> {
        try {
            co_await self->sync();
        } catch (...) {
            if (self)
                reportEscaped(self->activity_, QStringLiteral("Looking for changed files"));
        }
    }(this);
}

QCoro::Task<> Library::sync()
{
    const std::shared_ptr<Catalogue::Store> store = catalogue_.store();
    const std::optional<QString> folder = folder_;
    if (!store || !folder)
        co_return;
    if (!QFileInfo(*folder).isDir()) {
        // The catalogue went with the folder, so nothing can be written: the scans show as missing
        // until the folder is back, and then the catalogue has them all as they were.
        work_.stopWork();
        catalogue_.showAllMissing();
        folderReturn_.start();
        Q_EMIT synced();
        co_return;
    }
    QPointer<Library> self(this);
    bool changed = false;
    try {
        changed = co_await store->run(
            [folder = *folder](ScanStore &s) { return s.sync(enumeratePDFs(folder), fileHasher(folder)); });
    } catch (const std::exception &) {
        // Nothing of a failed sync remains; the next change or rescan tries again.
    }
    if (!self || catalogue_.store() != store)
        co_return;
    if (changed) {
        co_await catalogue_.reload();
        if (!self || catalogue_.store() != store)
            co_return;
    }
    work_.startWork();
    Q_EMIT synced();
}

void Library::setSelection(DocumentIDSet selection)
{
    assign(selection_, std::move(selection), this, &Library::selectionChanged);
}

std::optional<QString> Library::url(const ScanDocument &document) const
{
    if (!folder_)
        return std::nullopt;
    return QDir(*folder_).filePath(document.path);
}

QStringList Library::presentFiles(const DocumentIDSet &ids) const
{
    QStringList files;
    for (const ScanDocument *document : catalogue_.present(ids)) {
        if (const std::optional<QString> file = url(*document))
            files << *file;
    }
    return files;
}

std::optional<QString> Library::databasePath() const
{
    if (!folder_)
        return std::nullopt;
    return QDir(*folder_).filePath(ScanStore::fileName);
}

QCoro::Task<QStringList> Library::pages(ScanDocument document)
{
    return catalogue_.pages(document.id);
}

void Library::reveal(std::int64_t id)
{
    const auto found = documentsByID().find(id);
    if (found == documentsByID().end())
        return;
    if (!browsing_.isVisible(found->second)) {
        setSidebar(found->second.missing ? SidebarItem::problems() : SidebarItem::all());
        setYearFilter(std::nullopt);
        setKindFilter(std::nullopt);
        setSearchText(QString());
    }
    setSelection({ id });
}

QCoro::Task<> Library::mergeOrganization(std::int64_t source, std::int64_t target)
{
    if (sidebar() == SidebarItem::organization(source))
        setSidebar(SidebarItem::organization(target));
    return editing_.mergeOrganization(source, target);
}

void Library::setLanguageModel(std::shared_ptr<Extractor::LanguageModel> model)
{
    model_.setLanguageModel(std::move(model));
}

void Library::modelSettingsChanged()
{
    model_.setLanguageModel(nullptr);
}

QCoro::Task<std::optional<Extractor::Trace>> Library::trace(std::int64_t id)
{
    const std::optional<QString> text = co_await catalogue_.trace(id);
    if (!text)
        co_return std::nullopt;
    co_return Extractor::Trace::decode(text->toUtf8());
}
