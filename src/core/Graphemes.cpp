#include "core/Graphemes.h"

#include <QTextBoundaryFinder>

#include <algorithm>

namespace Graphemes {

namespace {
struct Prefix {
    qsizetype characters = 0; // user-perceived characters found, at most the number asked for
    qsizetype end = 0; // where the last of them ends
};

// The first `length` user-perceived characters of the text, or all of them when there are fewer.
// Cluster boundaries depend only on what comes before a position and the one character after it, so
// they are found in a prefix that grows until it holds enough of them: a long answer is not segmented
// whole just to keep its first few characters.
Prefix firstCharacters(const QString &text, qsizetype length)
{
    if (length <= 0 || text.isEmpty())
        return {};
    // Below U+0300 there are no combining marks, and without a carriage return (which joins a line
    // feed) every code unit is a character of its own.
    if (std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x300 && c != u'\r'; })) {
        const qsizetype characters = std::min(text.size(), length);
        return { characters, characters };
    }
    // Asked for at least as many characters as there are code units, the whole text is needed; doubling
    // such a length ("count them all") would overflow.
    qsizetype window = length >= text.size() ? text.size() : std::min(text.size(), length * 2 + 16);
    for (;;) {
        // Never end the prefix between the halves of a surrogate pair: the half left over would look
        // like a character of its own and make a boundary before it.
        if (window < text.size() && text[window - 1].isHighSurrogate())
            ++window;
        const QString prefix = text.left(window);
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, prefix);
        Prefix found;
        for (qsizetype at = finder.toNextBoundary(); at > 0; at = finder.toNextBoundary()) {
            // The prefix's own end is a boundary only when it is the text's end too.
            if (at == window && window < text.size())
                break;
            found = { found.characters + 1, at };
            if (found.characters == length)
                return found;
        }
        if (window == text.size())
            return found;
        window = std::min(text.size(), window * 2);
    }
}
} // namespace

qsizetype count(const QString &text, qsizetype atMost)
{
    return firstCharacters(text, atMost).characters;
}

QString left(const QString &text, qsizetype length)
{
    if (text.size() <= length)
        return text; // no more characters than code units
    return text.left(firstCharacters(text, length).end);
}

} // namespace Graphemes
