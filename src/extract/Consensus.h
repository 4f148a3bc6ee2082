#pragma once

#include "extract/PageAnswer.h"

#include <QString>

#include <optional>
#include <vector>

// One answer for a whole scan from its page answers, with a short explanation of how it was reached.
// First pages count three times; organization names are grouped the way the catalogue matches them;
// pages naming another organization don't vote on type and date; dates written on the page win.
namespace Consensus {
struct Result {
    std::optional<QString> organization;
    std::optional<QString> kind;
    std::optional<QString> date;
    // The explanation, never empty.
    QString notes;

    bool operator==(const Result &) const = default;
};

// `answers` in the order the pages were read; any number, none included.
Result decide(const std::vector<PageAnswer> &answers);
} // namespace Consensus
