#pragma once

#include <QString>

#include <compare>
#include <cstdint>
#include <optional>

// What the sidebar has selected: one organization, or one of the fixed views. Ordered as declared
// (organizations first, by id), so that it can key maps and sets.
struct SidebarItem {
    enum class Kind { organization, all, needsReview, processing, problems };

    Kind kind = Kind::all;
    // The organization's id; only for Kind::organization.
    std::int64_t organizationID = 0;

    static SidebarItem organization(std::int64_t id) { return { Kind::organization, id }; }
    static SidebarItem all() { return { Kind::all, 0 }; }
    static SidebarItem needsReview() { return { Kind::needsReview, 0 }; }
    static SidebarItem processing() { return { Kind::processing, 0 }; }
    static SidebarItem problems() { return { Kind::problems, 0 }; }

    auto operator<=>(const SidebarItem &) const = default;
    bool operator==(const SidebarItem &) const = default;
};
