#include "core/Graphemes.h"

#include "support/Printing.h"

#include <QString>

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(Graphemes, countsAndCutsWholeCharactersOnly)
{
    const QString thumbs = QStringLiteral("\U0001F44D") + QStringLiteral("\U0001F3FD").repeated(20);
    const struct {
        QString text;
        qsizetype characters; // user-perceived characters in the text
    } cases[] = {
        { QStringLiteral("e\u0301e\u0301e\u0301"), 3 },
        { QStringLiteral("a\r\nb"), 3 },
        { QStringLiteral("\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7"), 2 },
        // One character of 42 code units reaching past the first prefix looked at: a surrogate pair cut
        // in half there must not end it early.
        { QStringLiteral("abc") + thumbs, 4 },
    };
    for (const auto &c : cases) {
        // "Count them all" is the largest limit there is.
        EXPECT_EQ(Graphemes::count(c.text, std::numeric_limits<qsizetype>::max()), c.characters)
            << c.text.toStdString();
        EXPECT_EQ(Graphemes::count(c.text, 2), 2) << c.text.toStdString();
        EXPECT_EQ(Graphemes::left(c.text, c.characters), c.text);
        // One character short leaves exactly one whole character behind.
        const QString shorter = Graphemes::left(c.text, c.characters - 1);
        EXPECT_EQ(Graphemes::count(shorter, 1000), c.characters - 1);
        EXPECT_EQ(Graphemes::count(c.text.mid(shorter.size()), 1000), 1) << c.text.toStdString();
    }
    EXPECT_EQ(Graphemes::left(QStringLiteral("abc") + thumbs, 3), QStringLiteral("abc"));
}

} // namespace
