#include "library/Facts.h"

#include "core/OrgMatching.h"

namespace {

// The one value all scans share, absent when they differ; an empty list shares the empty text.
template <typename Value> std::optional<QString> shared(const std::vector<ScanDocument> &documents, Value value)
{
    if (documents.empty())
        return QString();
    const QString first = value(documents.front());
    for (const ScanDocument &document : documents)
        if (value(document) != first)
            return std::nullopt;
    return first;
}

} // namespace

Facts::Facts(const std::vector<ScanDocument> &documents)
    : commonOrg(shared(documents, [](const ScanDocument &d) { return d.organizationName.value_or(QString()); }))
    , commonKind(shared(documents, [](const ScanDocument &d) { return d.kind.value_or(QString()); }))
    , commonDate(shared(documents, [](const ScanDocument &d) { return d.date.value_or(QString()); }))
{
    for (const ScanDocument &document : documents)
        ids.insert(document.id);
}

QStringList organizationSuggestions(
    const QString &typed, const std::optional<QString> &commonOrg, const std::vector<Organization> &organizations)
{
    constexpr qsizetype limit = 8;
    const QString text = typed.trimmed();
    if (text.isEmpty() || text == commonOrg)
        return {};
    const QString needle = OrgMatching::folded(text);
    QStringList names;
    for (const Organization &organization : organizations) {
        if (organization.name != text && OrgMatching::folded(organization.name).contains(needle))
            names << organization.name;
        if (names.size() == limit)
            break;
    }
    return names;
}

std::optional<OrganizationChange> organizationCommit(const QString &typed, const Facts &facts)
{
    const QString name = typed.trimmed();
    if (name == facts.commonOrg.value_or(QString()))
        return std::nullopt;
    if (name.isEmpty())
        return facts.organizationsDiffer() ? std::nullopt : std::optional(OrganizationChange {});
    return OrganizationChange { name };
}
