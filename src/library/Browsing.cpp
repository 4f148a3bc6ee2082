// Browsing the catalogue: the table's filters and order, the lists the filter controls offer, the
// sidebar counts, and the full-text search.
#include "library/Browsing.h"

#include "core/DocumentKind.h"
#include "library/Fields.h"

#include <QPointer>

#include <algorithm>
#include <numeric>

namespace {

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
        return hasProblem(document);
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

// A date written YYYY-MM-DD as the number YYYYMMDD, which orders such dates as their texts do; -1 for
// any other text.
int dateNumber(const QString &text)
{
    if (text.size() != 10 || text[4] != QLatin1Char('-') || text[7] != QLatin1Char('-'))
        return -1;
    int number = 0;
    for (const qsizetype at : { 0, 1, 2, 3, 5, 6, 8, 9 }) {
        if (text[at] < QLatin1Char('0') || text[at] > QLatin1Char('9'))
            return -1;
        number = number * 10 + (text[at].unicode() - u'0');
    }
    return number;
}

// The scans in the order, and then by path, so that scans the order's keys don't tell apart always come
// in the same order. `paths` holds the scans' path sort keys in the map's order, worked out here when
// it doesn't.
std::vector<const ScanDocument *> sort(
    const std::map<std::int64_t, ScanDocument> &documents, const SortOrder &order, std::vector<QString> &paths)
{
    std::vector<const ScanDocument *> shown;
    shown.reserve(documents.size());
    for (const auto &[id, document] : documents)
        shown.push_back(&document);
    if (paths.size() != shown.size()) {
        paths.resize(shown.size());
        for (std::size_t row = 0; row < shown.size(); ++row)
            paths[row] = shown[row]->fileSortKey();
    }

    // Every sort key is worked out once per scan; the sort then moves row numbers only. Dates compare
    // as numbers where they can, texts only where one isn't a plain date.
    const std::size_t keys = order.size();
    std::vector<QString> texts(shown.size() * keys);
    std::vector<int> numbers(shown.size() * keys);
    for (std::size_t row = 0; row < shown.size(); ++row) {
        const ScanDocument &document = *shown[row];
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
            case SortComparator::Key::date:
                texts[row * keys + key] = document.dateSortKey();
                numbers[row * keys + key] = dateNumber(texts[row * keys + key]);
                break;
            default:
                texts[row * keys + key] = textKey(document, order[key].key);
                break;
            }
        }
    }
    const auto compare = [&](SortComparator::Key key, std::size_t x, std::size_t y) {
        if (isNumeric(key) || (key == SortComparator::Key::date && numbers[x] >= 0 && numbers[y] >= 0))
            return (numbers[x] > numbers[y]) - (numbers[x] < numbers[y]);
        return texts[x].compare(texts[y]);
    };
    std::vector<std::uint32_t> rows(shown.size());
    std::iota(rows.begin(), rows.end(), 0u);
    std::sort(rows.begin(), rows.end(), [&](std::uint32_t a, std::uint32_t b) {
        for (std::size_t key = 0; key < keys; ++key) {
            const int compared = compare(order[key].key, a * keys + key, b * keys + key);
            if (compared != 0)
                return order[key].ascending ? compared < 0 : compared > 0;
        }
        return paths[a] < paths[b];
    });

    std::vector<const ScanDocument *> sorted;
    sorted.reserve(rows.size());
    for (const std::uint32_t row : rows)
        sorted.push_back(shown[row]);
    return sorted;
}

} // namespace

Browsing::Browsing(Catalogue &catalogue, std::chrono::milliseconds searchDelay, QObject *parent)
    : QObject(parent)
    , catalogue_(catalogue)
    , searchDelay_(searchDelay)
{
    searchTimer_.setSingleShot(true);
    connect(&searchTimer_, &QTimer::timeout, this, &Browsing::searchNow);
    connect(&catalogue_, &Catalogue::listsRead, this, &Browsing::listsRead);
}

void Browsing::setSidebar(std::optional<SidebarItem> item)
{
    assign(sidebar_, std::move(item), this, &Browsing::sidebarChanged);
}

void Browsing::setYearFilter(std::optional<int> year)
{
    assign(year_, year, this, &Browsing::yearChanged);
}

void Browsing::setKindFilter(std::optional<QString> kind)
{
    assign(kind_, std::move(kind), this, &Browsing::kindChanged);
}

void Browsing::setSearchText(QString text)
{
    if (text == searchText_)
        return;
    searchText_ = std::move(text);
    Q_EMIT searchTextChanged();
    runSearch(true);
}

void Browsing::setSortOrder(SortOrder order)
{
    assign(sortOrder_, std::move(order), this, &Browsing::sortOrderChanged);
}

std::vector<ScanDocument> Browsing::liveDocuments() const
{
    std::vector<ScanDocument> documents;
    for (const auto &[id, document] : catalogue_.documentsByID()) {
        if (!document.missing)
            documents.push_back(document);
    }
    return documents;
}

bool Browsing::isVisible(const ScanDocument &document) const
{
    return shows(sidebar_, document) && (!year_ || (document.date && yearOf(*document.date) == year_))
        && (!kind_ || document.kind == kind_) && (!searchMatches_ || searchMatches_->contains(document.id));
}

std::vector<const ScanDocument *> Browsing::visible() const
{
    // Every scan is sorted once for each order and set of records; a new filter or search only picks
    // from that list.
    if (!sorted_ || sorted_->generation != catalogue_.generation()) {
        sorted_ = Sorted { catalogue_.generation(), sortOrder_, {}, {} };
        sorted_->documents = sort(catalogue_.documentsByID(), sortOrder_, sorted_->paths);
    } else if (sorted_->order != sortOrder_) {
        sorted_->order = sortOrder_;
        sorted_->documents = sort(catalogue_.documentsByID(), sortOrder_, sorted_->paths);
    }
    std::vector<const ScanDocument *> shown;
    for (const ScanDocument *document : sorted_->documents) {
        if (isVisible(*document))
            shown.push_back(document);
    }
    return shown;
}

std::vector<ScanDocument> Browsing::visibleDocuments() const
{
    std::vector<ScanDocument> documents;
    for (const ScanDocument *document : visible())
        documents.push_back(*document);
    return documents;
}

std::vector<int> Browsing::years() const
{
    std::vector<int> years;
    for (auto year = catalogue_.yearCounts().rbegin(); year != catalogue_.yearCounts().rend(); ++year)
        years.push_back(year->first);
    return years;
}

QStringList Browsing::kinds() const
{
    QStringList kinds;
    for (const QString &kind : DocumentKind::all()) {
        if (catalogue_.kindCounts().contains(kind))
            kinds.append(kind);
    }
    return kinds;
}

int Browsing::count(const SidebarItem &item) const
{
    switch (item.kind) {
    case SidebarItem::Kind::organization:
        for (const Organization &organization : catalogue_.organizations()) {
            if (organization.id == item.organizationID)
                return organization.documentCount;
        }
        return 0;
    case SidebarItem::Kind::all:
        return catalogue_.presentCount();
    case SidebarItem::Kind::needsReview:
        return catalogue_.needsReviewCount();
    case SidebarItem::Kind::processing:
        return catalogue_.processingCount();
    case SidebarItem::Kind::problems:
        return catalogue_.problemCount();
    }
    return 0;
}

void Browsing::runSearch(bool debounce)
{
    // A search still waiting or running becomes stale: it publishes nothing.
    ++searchGeneration_;
    searchTimer_.stop();
    if (searchText_.trimmed().isEmpty() || !catalogue_.store()) {
        assign(searchMatches_, std::optional<DocumentIDSet>(), this, &Browsing::searchMatchesChanged);
        return;
    }
    if (debounce && searchDelay_.count() > 0)
        searchTimer_.start(searchDelay_); // each change of the text starts the pause again
    else
        searchNow();
}

void Browsing::searchNow()
{
    if (catalogue_.store())
        searchInBackground(catalogue_.store(), searchText_.trimmed(), searchGeneration_);
}

QCoro::Task<> Browsing::searchInBackground(std::shared_ptr<Catalogue::Store> store, QString text, int generation)
{
    QPointer<Browsing> self(this);
    DocumentIDSet found;
    try {
        found = co_await store->run([text](ScanStore &s) { return s.search(text); });
    } catch (const std::exception &) {
        // A query the index refuses finds nothing until the text changes.
    }
    if (!self || searchGeneration_ != generation || catalogue_.store() != store)
        co_return;
    assign(searchMatches_, std::optional(std::move(found)), this, &Browsing::searchMatchesChanged);
}

void Browsing::listsRead()
{
    if (sidebar_ && sidebar_->kind == SidebarItem::Kind::organization
        && std::none_of(catalogue_.organizations().begin(), catalogue_.organizations().end(),
            [id = sidebar_->organizationID](const Organization &o) { return o.id == id; }))
        setSidebar(SidebarItem::all());
    if (!searchText_.isEmpty())
        runSearch(false);
}

void Browsing::reset()
{
    ++searchGeneration_;
    searchTimer_.stop();
    setSidebar(SidebarItem::all());
    setYearFilter(std::nullopt);
    setKindFilter(std::nullopt);
    assign(searchMatches_, std::optional<DocumentIDSet>(), this, &Browsing::searchMatchesChanged);
}
