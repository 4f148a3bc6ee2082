#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// The fixed list of document types.
namespace DocumentKind {
// The 28 types, in their fixed order.
const QStringList &all();
// The canonical entry of `all` that the text names, ignoring case and surrounding blanks, full stops,
// asterisks and double quotes; absent when it names none.
std::optional<QString> match(const std::optional<QString> &text);
} // namespace DocumentKind
