#include "library/Catalogue.h"

#include <QPointer>

#include <algorithm>

Catalogue::Catalogue(QObject *parent)
    : QObject(parent)
{
}

void Catalogue::setStore(std::shared_ptr<Store> store, QString folder)
{
    store_ = std::move(store);
    folder_ = std::move(folder);
    behind_ = false;
    publish(std::map<std::int64_t, ScanDocument>());
    publish(std::vector<Organization>());
    setCustomInstructions(std::nullopt);
    if (pendingOCR_ != 0 || pendingExtraction_ != 0) {
        pendingOCR_ = 0;
        pendingExtraction_ = 0;
        Q_EMIT pendingCountsChanged();
    }
}

void Catalogue::setCustomInstructions(std::optional<QString> text)
{
    if (customInstructions_ == text)
        return;
    customInstructions_ = std::move(text);
    Q_EMIT customInstructionsChanged();
}

void Catalogue::publish(std::map<std::int64_t, ScanDocument> documents)
{
    if (documents == documentsByID_)
        return;
    documentsByID_ = std::move(documents);
    Q_EMIT documentsChanged();
}

void Catalogue::publish(std::vector<Organization> organizations)
{
    if (organizations == organizations_)
        return;
    organizations_ = std::move(organizations);
    Q_EMIT organizationsChanged();
}

QCoro::Task<> Catalogue::reload()
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Catalogue> self(this);
    struct Lists {
        std::vector<ScanDocument> documents;
        std::vector<Organization> organizations;
    };
    std::optional<Lists> lists;
    try {
        // One trip to the store, so that the scans and the organizations are of the same moment.
        lists = co_await store->run([](ScanStore &s) { return Lists { s.documents(), s.organizations() }; });
    } catch (const std::exception &) {
    }
    if (!self || store_ != store)
        co_return;
    if (!lists) {
        behind_ = true;
        co_return;
    }
    behind_ = false;
    std::map<std::int64_t, ScanDocument> byID;
    for (ScanDocument &document : lists->documents) {
        const std::int64_t id = document.id;
        byID.emplace_hint(byID.end(), id, std::move(document));
    }
    publish(std::move(byID));
    publish(std::move(lists->organizations));
    Q_EMIT listsRead();
    co_await updateCounts();
}

QCoro::Task<> Catalogue::refresh(DocumentIDs ids, bool organizations)
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    if (behind_) {
        co_await reload();
        co_return;
    }
    QPointer<Catalogue> self(this);
    struct Lists {
        std::vector<ScanDocument> documents;
        std::optional<std::vector<Organization>> organizations;
    };
    std::optional<Lists> lists;
    try {
        lists = co_await store->run([ids, organizations](ScanStore &s) {
            Lists read { s.documents(ids), std::nullopt };
            if (organizations)
                read.organizations = s.organizations();
            return read;
        });
    } catch (const std::exception &) {
    }
    if (!self || store_ != store)
        co_return;
    if (!lists) {
        behind_ = true;
        co_return;
    }
    // Changed in place: copying every scan for the few an edit touched would cost more than the edit.
    bool changed = false;
    std::set<std::int64_t> gone(ids.begin(), ids.end());
    for (ScanDocument &document : lists->documents) {
        gone.erase(document.id);
        auto found = documentsByID_.find(document.id);
        if (found == documentsByID_.end()) {
            documentsByID_.emplace(document.id, std::move(document));
            changed = true;
        } else if (!(found->second == document)) {
            found->second = std::move(document);
            changed = true;
        }
    }
    for (const std::int64_t id : gone)
        changed |= documentsByID_.erase(id) > 0;
    if (changed)
        Q_EMIT documentsChanged();
    if (lists->organizations)
        publish(std::move(*lists->organizations));
    Q_EMIT listsRead();
    co_await updateCounts();
}

QCoro::Task<> Catalogue::updateCounts()
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Catalogue> self(this);
    std::optional<ScanStore::PendingCounts> counts;
    try {
        counts = co_await store->run([](ScanStore &s) { return s.pendingCounts(); });
    } catch (const std::exception &) {
    }
    if (!self || store_ != store || !counts)
        co_return;
    if (pendingOCR_ != counts->ocr || pendingExtraction_ != counts->extract) {
        pendingOCR_ = counts->ocr;
        pendingExtraction_ = counts->extract;
        Q_EMIT pendingCountsChanged();
    }
}

QCoro::Task<> Catalogue::readInstructions()
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Catalogue> self(this);
    std::optional<QString> instructions;
    try {
        instructions = co_await store->run([](ScanStore &s) { return s.setting(QStringLiteral("instructions")); });
    } catch (const std::exception &) {
    }
    if (self && store_ == store)
        setCustomInstructions(instructions);
}

void Catalogue::showAllMissing()
{
    bool changed = false;
    for (auto &[id, document] : documentsByID_) {
        changed |= !document.missing;
        document.missing = true;
    }
    if (changed)
        Q_EMIT documentsChanged();
}

std::vector<const ScanDocument *> Catalogue::present(const DocumentIDSet &ids) const
{
    std::vector<const ScanDocument *> documents;
    for (const std::int64_t id : ids) {
        const auto found = documentsByID_.find(id);
        if (found != documentsByID_.end() && !found->second.missing)
            documents.push_back(&found->second);
    }
    return documents;
}

DocumentIDs Catalogue::documentsOf(std::int64_t organization) const
{
    DocumentIDs ids;
    for (const auto &[id, document] : documentsByID_) {
        if (document.organizationID == organization)
            ids.push_back(id);
    }
    return ids;
}

QCoro::Task<QStringList> Catalogue::pages(std::int64_t id)
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return QStringList();
    try {
        co_return co_await store->run([id](ScanStore &s) { return s.pages(id); });
    } catch (const std::exception &) {
    }
    co_return QStringList();
}

QCoro::Task<std::optional<QString>> Catalogue::trace(std::int64_t id)
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return std::nullopt;
    try {
        co_return co_await store->run([id](ScanStore &s) { return s.trace(id); });
    } catch (const std::exception &) {
    }
    co_return std::nullopt;
}

QCoro::Task<int> Catalogue::modelExtractionCount()
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return 0;
    try {
        co_return co_await store->run([](ScanStore &s) { return s.modelExtractionCount(); });
    } catch (const std::exception &) {
    }
    co_return 0;
}
