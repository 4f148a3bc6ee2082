#pragma once

#include <QString>

// Counting and cutting text in user-perceived characters (grapheme clusters), as a reader sees them.
namespace Graphemes {

// The number of user-perceived characters in `text`, counting no further than `atMost`.
qsizetype count(const QString &text, qsizetype atMost);

// The first `length` user-perceived characters of `text` (all of it when it is shorter).
QString left(const QString &text, qsizetype length);

} // namespace Graphemes
