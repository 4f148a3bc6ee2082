#pragma once

#include "library/Catalogue.h"
#include "library/SidebarItem.h"
#include "library/SortComparator.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <optional>
#include <vector>

// What the table shows of the catalogue: the sidebar view, the year and type filters, the full-text
// search and the sort, with the lists the filter controls offer and the sidebar's counts. A change of a
// filter only makes the views compute again, except that a new search text starts a search after a
// pause in typing.
class Browsing : public QObject {
    Q_OBJECT
public:
    // `searchDelay` is the pause in typing after which a search starts.
    explicit Browsing(Catalogue &catalogue, std::chrono::milliseconds searchDelay, QObject *parent = nullptr);

    const std::optional<SidebarItem> &sidebar() const { return sidebar_; }
    std::optional<int> year() const { return year_; }
    const std::optional<QString> &kind() const { return kind_; }
    const QString &searchText() const { return searchText_; }
    // The scans matching the trimmed search text; absent when there is none.
    const std::optional<DocumentIDSet> &searchMatches() const { return searchMatches_; }
    const SortOrder &sortOrder() const { return sortOrder_; }
    void setSidebar(std::optional<SidebarItem> item);
    void setYearFilter(std::optional<int> year);
    void setKindFilter(std::optional<QString> kind);
    void setSearchText(QString text);
    void setSortOrder(SortOrder order);
    // Back to every scan, no filter and no search (a folder closed).
    void reset();

    // Whether the filters let the scan through to the table.
    bool isVisible(const ScanDocument &document) const;
    // Every scan whose file is present, in no particular order.
    std::vector<ScanDocument> liveDocuments() const;
    // What the table shows: the scans the sidebar, year, type and search let through, in the sort
    // order and then by path.
    std::vector<ScanDocument> visibleDocuments() const;
    // The same scans in the catalogue's own lists, valid until they next change.
    std::vector<const ScanDocument *> visible() const;
    // The years of the present scans' dates, newest first.
    std::vector<int> years() const;
    // The document types present scans have, in the fixed order of the type list.
    QStringList kinds() const;
    // The number of scans a sidebar entry stands for.
    int count(const SidebarItem &item) const;

Q_SIGNALS:
    void sidebarChanged();
    void yearChanged();
    void kindChanged();
    void searchTextChanged();
    void searchMatchesChanged();
    void sortOrderChanged();

private:
    void runSearch(bool debounce);
    // Runs the query for the current text now; its answer is published unless a newer search started.
    void searchNow();
    QCoro::Task<> searchInBackground(std::shared_ptr<Catalogue::Store> store, QString text, int generation);
    // New lists: the sidebar leaves an organization that is gone, and the search runs again.
    void listsRead();

    Catalogue &catalogue_;
    std::optional<SidebarItem> sidebar_ = SidebarItem::all();
    std::optional<int> year_;
    std::optional<QString> kind_;
    QString searchText_;
    std::optional<DocumentIDSet> searchMatches_;
    SortOrder sortOrder_ = defaultSortOrder();
    std::chrono::milliseconds searchDelay_;
    QTimer searchTimer_;
    // Raised by every new search and by a reset; a search of an older generation publishes nothing.
    int searchGeneration_ = 0;
    // Every scan in the sort order, as of a generation of the catalogue's lists; and their path sort
    // keys in the lists' order, kept for the next order.
    struct Sorted {
        int generation = 0;
        SortOrder order;
        std::vector<const ScanDocument *> documents;
        std::vector<QString> paths;
    };
    mutable std::optional<Sorted> sorted_;
};
