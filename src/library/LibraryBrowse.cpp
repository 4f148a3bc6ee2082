// Browsing the catalogue: the table's filters and order, the lists the filter controls offer, the
// sidebar counts, and the full-text search.
#include "library/Library.h"
#include "core/DocumentKind.h"

#include <algorithm>
#include <numeric>

namespace {

// The year of a YYYY-MM-DD date: its first four characters (fewer if shorter) as a decimal number.
std::optional<int> yearOf(const QString &date)
{
    const QString head = date.left(4);
    qsizetype start = head.startsWith(QLatin1Char('+')) || head.startsWith(QLatin1Char('-')) ? 1 : 0;
    if (start == head.size())
        return std::nullopt;
    for (qsizetype i = start; i < head.size(); ++i) {
        if (head[i] < QLatin1Char('0') || head[i] > QLatin1Char('9'))
            return std::nullopt;
    }
    return head.toInt();
}

bool isProblem(const ScanDocument &document)
{
    return document.missing || document.ocrStatus == OCRStatus::failed
        || document.extractStatus == ExtractStatus::failed;
}

bool shows(const std::optional<SidebarItem> &item, const ScanDocument &document)
{
    switch (item.value_or(SidebarItem::all()).kind) {
    case SidebarItem::Kind::organization:
        return !document.missing && document.organizationID == item->organizationID;
    case SidebarItem::Kind::all:
        return !document.missing;
    case SidebarItem::Kind::needsReview:
        return document.needsReview();
    case SidebarItem::Kind::processing:
        return document.isProcessing();
    case SidebarItem::Kind::problems:
        return isProblem(document);
    }
    return false;
}

bool isNumeric(SortComparator::Key key)
{
    return key == SortComparator::Key::pages || key == SortComparator::Key::status;
}

QString textKey(const ScanDocument &document, SortComparator::Key key)
{
    switch (key) {
    case SortComparator::Key::date:
        return document.dateSortKey();
    case SortComparator::Key::organization:
        return document.organizationSortKey();
    case SortComparator::Key::kind:
        return document.kindSortKey();
    default:
        return document.fileSortKey();
    }
}

} // namespace

void Library::setSidebar(std::optional<SidebarItem> item)
{
    assign(sidebar_, item, &Library::sidebarChanged);
}

void Library::setYearFilter(std::optional<int> year)
{
    assign(year_, year, &Library::yearChanged);
}

void Library::setKindFilter(std::optional<QString> kind)
{
    assign(kind_, std::move(kind), &Library::kindChanged);
}

void Library::setSearchText(QString text)
{
    if (text == searchText_)
        return;
    searchText_ = std::move(text);
    Q_EMIT searchTextChanged();
    runSearch(true);
}

void Library::setSortOrder(SortOrder order)
{
    assign(sortOrder_, std::move(order), &Library::sortOrderChanged);
}

std::vector<ScanDocument> Library::liveDocuments() const
{
    std::vector<ScanDocument> documents;
    for (const auto &[id, document] : documentsByID_) {
        if (!document.missing)
            documents.push_back(document);
    }
    return documents;
}

bool Library::isVisible(const ScanDocument &document) const
{
    return shows(sidebar_, document) && (!year_ || (document.date && yearOf(*document.date) == year_))
        && (!kind_ || document.kind == kind_) && (!searchMatches_ || searchMatches_->contains(document.id));
}

std::vector<ScanDocument> Library::visibleDocuments() const
{
    std::vector<const ScanDocument *> shown;
    for (const auto &[id, document] : documentsByID_) {
        if (isVisible(document))
            shown.push_back(&document);
    }

    // Every sort key is worked out once per scan; the sorts then move row numbers only.
    const SortOrder &order = sortOrder_;
    const std::size_t keys = order.size();
    std::vector<QString> paths(shown.size());
    std::vector<QString> texts(shown.size() * keys);
    std::vector<int> numbers(shown.size() * keys);
    for (std::size_t row = 0; row < shown.size(); ++row) {
        const ScanDocument &document = *shown[row];
        paths[row] = document.fileSortKey();
        for (std::size_t key = 0; key < keys; ++key) {
            switch (order[key].key) {
            case SortComparator::Key::file:
                texts[row * keys + key] = paths[row];
                break;
            case SortComparator::Key::pages:
                numbers[row * keys + key] = document.pagesSortKey();
                break;
            case SortComparator::Key::status:
                numbers[row * keys + key] = document.statusSortKey();
                break;
            default:
                texts[row * keys + key] = textKey(document, order[key].key);
                break;
            }
        }
    }
    std::vector<std::uint32_t> rows(shown.size());
    std::iota(rows.begin(), rows.end(), 0u);
    std::sort(rows.begin(), rows.end(), [&paths](std::uint32_t a, std::uint32_t b) { return paths[a] < paths[b]; });
    std::stable_sort(rows.begin(), rows.end(), [&](std::uint32_t a, std::uint32_t b) {
        for (std::size_t key = 0; key < keys; ++key) {
            const std::size_t x = a * keys + key;
            const std::size_t y = b * keys + key;
            const int compared = isNumeric(order[key].key) ? (numbers[x] > numbers[y]) - (numbers[x] < numbers[y])
                                                           : texts[x].compare(texts[y]);
            if (compared != 0)
                return order[key].ascending ? compared < 0 : compared > 0;
        }
        return false;
    });

    std::vector<ScanDocument> documents;
    documents.reserve(rows.size());
    for (const std::uint32_t row : rows)
        documents.push_back(*shown[row]);
    return documents;
}

std::vector<int> Library::years() const
{
    std::set<int, std::greater<>> years;
    for (const auto &[id, document] : documentsByID_) {
        if (document.missing || !document.date)
            continue;
        if (const std::optional<int> year = yearOf(*document.date))
            years.insert(*year);
    }
    return { years.begin(), years.end() };
}

QStringList Library::kinds() const
{
    QSet<QString> present;
    for (const auto &[id, document] : documentsByID_) {
        if (!document.missing && document.kind)
            present.insert(*document.kind);
    }
    QStringList kinds;
    for (const QString &kind : DocumentKind::all()) {
        if (present.contains(kind))
            kinds.append(kind);
    }
    return kinds;
}

int Library::count(const SidebarItem &item) const
{
    if (item.kind == SidebarItem::Kind::organization) {
        for (const Organization &organization : organizations_) {
            if (organization.id == item.organizationID)
                return organization.documentCount;
        }
        return 0;
    }
    return int(std::count_if(documentsByID_.begin(), documentsByID_.end(),
        [&item](const auto &entry) { return shows(item, entry.second); }));
}

void Library::runSearch(bool debounce)
{
    // A search still waiting or running becomes stale: it publishes nothing.
    ++searchGeneration_;
    searchTimer_.stop();
    if (searchText_.trimmed().isEmpty() || !store_) {
        assign(searchMatches_, std::optional<DocumentIDSet>(), &Library::searchMatchesChanged);
        return;
    }
    if (debounce && searchDelay_.count() > 0)
        searchTimer_.start(searchDelay_); // each change of the text starts the pause again
    else
        searchNow();
}

void Library::searchNow()
{
    if (store_)
        searchInBackground(store_, searchText_.trimmed(), searchGeneration_);
}

QCoro::Task<> Library::searchInBackground(std::shared_ptr<Store> store, QString text, int generation)
{
    QPointer<Library> self(this);
    DocumentIDSet found;
    try {
        found = co_await store->run([text](ScanStore &s) { return s.search(text); });
    } catch (const std::exception &) {
        // A query the index refuses finds nothing until the text changes.
    }
    if (!self || searchGeneration_ != generation || store_ != store)
        co_return;
    assign(searchMatches_, std::optional(std::move(found)), &Library::searchMatchesChanged);
}

void Library::reloadedBrowsing()
{
    if (sidebar_ && sidebar_->kind == SidebarItem::Kind::organization
        && std::none_of(organizations_.begin(), organizations_.end(),
            [id = sidebar_->organizationID](const Organization &o) { return o.id == id; }))
        setSidebar(SidebarItem::all());
}

void Library::resetBrowsing()
{
    ++searchGeneration_;
    searchTimer_.stop();
    workHeld_ = false;
    setSidebar(SidebarItem::all());
    setYearFilter(std::nullopt);
    setKindFilter(std::nullopt);
    assign(searchMatches_, std::optional<DocumentIDSet>(), &Library::searchMatchesChanged);
}
