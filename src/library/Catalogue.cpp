#include "library/Catalogue.h"

#include <QPointer>

#include <algorithm>
#include <unordered_map>

std::optional<int> yearOf(const QString &date)
{
    const QStringView head = QStringView(date).left(4);
    qsizetype start = head.startsWith(QLatin1Char('+')) || head.startsWith(QLatin1Char('-')) ? 1 : 0;
    if (start == head.size())
        return std::nullopt;
    for (qsizetype i = start; i < head.size(); ++i) {
        if (head[i] < QLatin1Char('0') || head[i] > QLatin1Char('9'))
            return std::nullopt;
    }
    return head.toInt();
}

bool hasProblem(const ScanDocument &document)
{
    return document.missing || document.ocrStatus == OCRStatus::failed
        || document.extractStatus == ExtractStatus::failed;
}

Catalogue::Catalogue(QObject *parent)
    : QObject(parent)
{
}

void Catalogue::setStore(std::shared_ptr<Store> store, QString folder)
{
    store_ = std::move(store);
    folder_ = std::move(folder);
    behind_ = false;
    // The counts go first: the views read them when they hear of the new lists.
    counts_ = {};
    publish(std::map<std::int64_t, ScanDocument>());
    publish(std::vector<Organization>());
    setCustomInstructions(std::nullopt);
    publishCounts();
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
    announceDocuments();
}

void Catalogue::announceDocuments()
{
    ++generation_;
    Q_EMIT documentsChanged();
}

void Catalogue::publish(std::vector<Organization> organizations)
{
    if (organizations == organizations_)
        return;
    organizations_ = std::move(organizations);
    Q_EMIT organizationsChanged();
}

namespace {
using DocumentMap = std::map<std::int64_t, ScanDocument>;
} // namespace

Catalogue::Counts Catalogue::Counts::of(const DocumentMap &documents)
{
    Counts counts;
    for (const auto &[id, document] : documents)
        counts.add(document, 1);
    return counts;
}

void Catalogue::Counts::add(const ScanDocument &document, int sign)
{
    if (hasProblem(document))
        problems += sign;
    if (document.missing)
        return;
    present += sign;
    if (document.needsReview())
        review += sign;
    if (document.date) {
        if (const std::optional<int> year = yearOf(*document.date); year && (years[*year] += sign) == 0)
            years.erase(*year);
    }
    if (document.kind && (kinds[*document.kind] += sign) == 0)
        kinds.erase(*document.kind);
    if (document.organizationID)
        filed[*document.organizationID] += sign;
    if (document.ocrStatus == OCRStatus::pending)
        ocr += sign;
    else if (document.ocrStatus == OCRStatus::done && document.extractStatus == ExtractStatus::pending)
        extract += sign;
}

void Catalogue::Counts::label(std::vector<Organization> &organizations) const
{
    for (Organization &organization : organizations) {
        const auto found = filed.find(organization.id);
        organization.documentCount = found == filed.end() ? 0 : found->second;
    }
}

void Catalogue::publishCounts()
{
    if (pendingOCR_ == counts_.ocr && pendingExtraction_ == counts_.extract)
        return;
    pendingOCR_ = counts_.ocr;
    pendingExtraction_ = counts_.extract;
    Q_EMIT pendingCountsChanged();
}

QCoro::Task<> Catalogue::reload()
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    QPointer<Catalogue> self(this);
    struct Lists {
        DocumentMap documents;
        std::vector<Organization> organizations;
        Counts counts;
    };
    std::optional<Lists> lists;
    try {
        // One trip to the store, where the map is built and counted too: the main thread only swaps it in.
        lists = co_await store->run([](ScanStore &s) {
            Lists read;
            for (ScanDocument &document : s.documents()) {
                const std::int64_t id = document.id;
                read.documents.emplace_hint(read.documents.end(), id, std::move(document));
            }
            read.organizations = s.uncountedOrganizations();
            read.counts = Counts::of(read.documents);
            read.counts.label(read.organizations);
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
    behind_ = false;
    counts_ = std::move(lists->counts);
    publish(std::move(lists->documents));
    publish(std::move(lists->organizations));
    publishCounts();
    Q_EMIT listsRead();
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
                read.organizations = s.uncountedOrganizations();
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
            counts_.add(document, 1);
            documentsByID_.emplace(document.id, std::move(document));
            changed = true;
        } else if (!(found->second == document)) {
            counts_.add(found->second, -1);
            counts_.add(document, 1);
            found->second = std::move(document);
            changed = true;
        }
    }
    for (const std::int64_t id : gone) {
        if (const auto found = documentsByID_.find(id); found != documentsByID_.end()) {
            counts_.add(found->second, -1);
            documentsByID_.erase(found);
            changed = true;
        }
    }
    if (changed)
        announceDocuments();
    if (changed || lists->organizations) {
        std::vector<Organization> counted = lists->organizations.value_or(organizations_);
        counts_.label(counted);
        publish(std::move(counted));
        publishCounts();
    }
    Q_EMIT listsRead();
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
    if (!changed)
        return;
    counts_ = Counts::of(documentsByID_);
    announceDocuments();
    std::vector<Organization> counted = organizations_;
    counts_.label(counted);
    publish(std::move(counted));
    publishCounts();
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
