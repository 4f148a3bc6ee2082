#pragma once

#include "core/ScanDocument.h"
#include "library/Catalogue.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// What one or several scans have in common, as the facts editor shows and edits it. A fact the scans
// don't share is absent; one they all lack is the empty text.
struct Facts {
    Facts() = default;
    explicit Facts(const std::vector<ScanDocument> &documents);

    DocumentIDSet ids;
    std::optional<QString> commonOrg = QString();
    std::optional<QString> commonKind = QString();
    // YYYY-MM-DD.
    std::optional<QString> commonDate = QString();

    bool organizationsDiffer() const { return !commonOrg; }
    bool kindsDiffer() const { return !commonKind; }
    bool datesDiffer() const { return !commonDate; }
};

// The organizations offered as completions of `typed`, at most 8, in the order of `organizations`: those
// whose name contains the trimmed text ignoring case and diacritics, apart from one spelled exactly
// like it. None while nothing is typed or the text is the scans' own organization.
QStringList organizationSuggestions(
    const QString &typed, const std::optional<QString> &commonOrg, const std::vector<Organization> &organizations);

// What committing the organization field does: file the scans under `name`, or under none.
struct OrganizationChange {
    std::optional<QString> name;

    bool operator==(const OrganizationChange &) const = default;
};

// The change the typed text asks for; absent when it asks for none: the text (trimmed) is the scans'
// own organization, or it is empty while their organizations differ.
std::optional<OrganizationChange> organizationCommit(const QString &typed, const Facts &facts);
