#pragma once

#include "core/ScanDocument.h"

#include <QHash>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

// How organization names from the model, the user and the catalogue are compared, cleaned and matched.
// Pure functions: deterministic, locale-free, safe on any thread and on any text.
namespace OrgMatching {

// Alias table: comparison key of a learned name -> organization id.
using Aliases = QHash<QString, std::int64_t>;

// The text with case, diacritics and widths folded, for comparisons that ignore them: "Ørsted" -> "orsted".
QString folded(const QString &text);

// The comparison key of a name: folded case, diacritics and widths, "&" read as "and", punctuation
// gone, a leading "the" and trailing legal forms dropped. "The Acme Company, Inc." -> "acme".
QString key(const QString &name);

// A presentable organization name of at most 80 characters made from a raw answer, or nothing when the
// answer names no organization ("Unknown", "N/A", punctuation...).
std::optional<QString> clean(const QString &answer);

// The organization that `name` denotes: an alias first, then the same key, the same key ignoring
// spaces, and finally a unique run of whole words. Ambiguous names match nothing. Only `id` and `name`
// of the organizations are read, in the given order.
std::optional<std::int64_t> match(
    const QString &name, const std::vector<Organization> &organizations, const Aliases &aliases);

} // namespace OrgMatching
