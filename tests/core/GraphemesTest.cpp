#include "core/Graphemes.h"

#include "support/Printing.h"

#include <QString>

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Case {
    const char *what;
    QString text;
    qsizetype characters; // user-perceived characters in the text
};

TEST(Graphemes, countsAndCutsWholeCharactersOnly)
{
    const QString thumbs = QStringLiteral("\U0001F44D");
    const QString skin = QStringLiteral("\U0001F3FD");
    const std::vector<Case> cases {
        { "plain", QStringLiteral("Acme Bank"), 9 },
        { "empty", QString(), 0 },
        { "accents as combining marks", QStringLiteral("e\u0301e\u0301e\u0301"), 3 },
        { "a line break of two code units", QStringLiteral("a\r\nb"), 3 },
        { "flags", QStringLiteral("\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7"), 2 },
        { "astral letters", QStringLiteral("𝐀𝐁𝐂"), 3 },
        // One character of 42 code units reaching past the first prefix looked at: a surrogate pair cut
        // in half there must not end it early.
        { "a long emoji sequence", QStringLiteral("abc") + thumbs + skin.repeated(20), 4 },
        { "long emoji sequences", QString(thumbs + skin.repeated(9)).repeated(10), 10 },
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(Graphemes::count(c.text, 1000), c.characters);
        EXPECT_EQ(Graphemes::count(c.text, 2), std::min<qsizetype>(2, c.characters));
        EXPECT_EQ(Graphemes::left(c.text, c.characters), c.text);
        if (c.characters > 0)
            EXPECT_EQ(Graphemes::count(Graphemes::left(c.text, c.characters - 1), 1000), c.characters - 1);
    }
    EXPECT_EQ(Graphemes::left(QStringLiteral("abc") + thumbs + skin.repeated(20), 3), QStringLiteral("abc"));
    EXPECT_EQ(Graphemes::left(QStringLiteral("e\u0301e\u0301e\u0301"), 2), QStringLiteral("e\u0301e\u0301"));
    EXPECT_EQ(Graphemes::left(QStringLiteral("Acme"), 0), QString());
}

} // namespace
