// The user's changes to the catalogue. Each command does its quick bookkeeping on the main thread and
// hands the catalogue work to `edit`, which runs it on the store's thread, reads the lists again and
// starts the work on whatever was queued.
#include "extract/Instructions.h"
#include "core/OrgMatching.h"
#include "library/FileManager.h"
#include "library/Library.h"

#include <QDesktopServices>
#include <QDir>
#include <QUrl>

namespace {

DocumentIDs idsOf(const DocumentIDSet &ids)
{
    return DocumentIDs(ids.begin(), ids.end());
}

// YYYY-MM-DD, the year always in four digits.
QString catalogueDate(const QDate &date)
{
    return QStringLiteral("%1-%2-%3")
        .arg(date.year(), 4, 10, QLatin1Char('0'))
        .arg(date.month(), 2, 10, QLatin1Char('0'))
        .arg(date.day(), 2, 10, QLatin1Char('0'));
}

} // namespace

QCoro::Task<> Library::edit(std::function<void(ScanStore &)> body)
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Library> self(this);
    std::optional<QString> failure;
    try {
        co_await store->run([body](ScanStore &s) { body(s); });
    } catch (const Database::Error &error) {
        failure = error.message();
    } catch (const std::exception &error) {
        failure = QString::fromUtf8(error.what());
    }
    if (!self || store_ != store)
        co_return;
    if (failure)
        Q_EMIT editFailed(*failure);
    // Afterwards the lists show what the catalogue really holds, whether or not the edit went through.
    co_await reload();
    if (!self || store_ != store || failure || workHeld_)
        co_return;
    startWork();
}

QCoro::Task<> Library::setOrganization(DocumentIDSet ids, std::optional<QString> name)
{
    return edit([ids = idsOf(ids), name](ScanStore &s) { s.setOrganization(ids, name); });
}

QCoro::Task<> Library::setKind(DocumentIDSet ids, std::optional<QString> kind)
{
    return edit([ids = idsOf(ids), kind](ScanStore &s) { s.setKind(ids, kind); });
}

QCoro::Task<> Library::setDate(DocumentIDSet ids, std::optional<QDate> date)
{
    std::optional<QString> text;
    if (date && date->isValid())
        text = catalogueDate(*date);
    return edit([ids = idsOf(ids), text](ScanStore &s) { s.setDate(ids, text); });
}

QCoro::Task<> Library::reextract(DocumentIDSet ids)
{
    DocumentIDSet requested = requested_;
    requested.insert(ids.begin(), ids.end());
    setRequested(std::move(requested));
    return edit([ids = idsOf(ids)](ScanStore &s) { s.resetExtraction(ids); });
}

QCoro::Task<> Library::rerunOCR(DocumentIDSet ids)
{
    DocumentIDSet requested = requested_;
    requested.insert(ids.begin(), ids.end());
    setRequested(std::move(requested));
    return edit([ids = idsOf(ids)](ScanStore &s) { s.resetOCR(ids); });
}

QCoro::Task<> Library::renameOrganization(std::int64_t id, QString name)
{
    const std::optional<QString> cleaned = OrgMatching::clean(name);
    if (!cleaned)
        return []() -> QCoro::Task<> { co_return; }();
    return edit([id, name = *cleaned](ScanStore &s) { s.renameOrganization(id, name); });
}

QCoro::Task<> Library::mergeOrganization(std::int64_t source, std::int64_t target)
{
    if (sidebar_ == SidebarItem::organization(source))
        setSidebar(SidebarItem::organization(target));
    return edit([source, target](ScanStore &s) { s.merge({ source }, target); });
}

QCoro::Task<> Library::deleteOrganization(std::int64_t id)
{
    return edit([id](ScanStore &s) { s.deleteOrganization(id); });
}

QCoro::Task<> Library::reextractAllFromModel()
{
    return edit([](ScanStore &s) { s.reextractModelFiled(); });
}

QCoro::Task<> Library::reextractIncomplete()
{
    return edit([](ScanStore &s) { s.reextractIncomplete(); });
}

QCoro::Task<> Library::setCustomInstructions(std::optional<QString> text, bool reextract)
{
    // Blank or exactly the built-in text means the defaults, so a later change of them takes effect.
    std::optional<QString> effective = text;
    if (text && (text->trimmed().isEmpty() || *text == Extractor::defaultInstructions()))
        effective.reset();
    assign(customInstructions_, effective, &Library::customInstructionsChanged);
    return edit([effective, reextract](ScanStore &s) {
        s.setSetting(QStringLiteral("instructions"), effective);
        if (reextract)
            s.reextractModelFiled();
    });
}

QCoro::Task<> Library::removeMissing(DocumentIDSet ids)
{
    DocumentIDs missing;
    for (const std::int64_t id : ids) {
        const auto found = documentsByID_.find(id);
        if (found != documentsByID_.end() && found->second.missing)
            missing.push_back(id);
    }
    return edit([missing](ScanStore &s) { s.removeMissing(missing); });
}

std::vector<QString> Library::presentFiles(const DocumentIDSet &ids) const
{
    std::vector<QString> files;
    for (const std::int64_t id : ids) {
        const auto found = documentsByID_.find(id);
        if (found == documentsByID_.end() || found->second.missing)
            continue;
        if (const std::optional<QString> file = url(found->second))
            files.push_back(*file);
    }
    return files;
}

void Library::openInPreview(const DocumentIDSet &ids)
{
    for (const QString &file : presentFiles(ids))
        QDesktopServices::openUrl(QUrl::fromLocalFile(file));
}

void Library::revealInFinder(const DocumentIDSet &ids)
{
    const std::vector<QString> files = presentFiles(ids);
    showInFileManager(QStringList(files.begin(), files.end()));
}

void Library::reveal(std::int64_t id)
{
    const auto found = documentsByID_.find(id);
    if (found == documentsByID_.end())
        return;
    if (!isVisible(found->second)) {
        setSidebar(found->second.missing ? SidebarItem::problems() : SidebarItem::all());
        setYearFilter(std::nullopt);
        setKindFilter(std::nullopt);
        setSearchText(QString());
    }
    setSelection({ id });
}

QCoro::Task<bool> Library::openWithoutWork(QString folder)
{
    const std::shared_ptr<Store> store = openStore(folder);
    if (!store)
        co_return false;
    workHeld_ = true;
    QPointer<Library> self(this);
    std::optional<QString> instructions;
    try {
        instructions = co_await store->run([](ScanStore &s) { return s.setting(QStringLiteral("instructions")); });
    } catch (const std::exception &) {
    }
    if (!self || store_ != store)
        co_return false;
    assign(customInstructions_, instructions, &Library::customInstructionsChanged);
    co_await reload();
    co_return self &&store_ == store;
}
