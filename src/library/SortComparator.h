#pragma once

#include <vector>

// One key of the table's sort (the sort keys of ScanDocument) with its direction.
struct SortComparator {
    enum class Key { date, organization, kind, file, pages, status };

    Key key = Key::date;
    bool ascending = true;

    bool operator==(const SortComparator &) const = default;
};

// A table sort: the first comparator decides, the next ones break its ties.
using SortOrder = std::vector<SortComparator>;

// The table's default order: newest date first, undated scans last.
inline SortOrder defaultSortOrder()
{
    return { SortComparator { SortComparator::Key::date, false } };
}
