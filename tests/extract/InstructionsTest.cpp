#include "extract/Instructions.h"

#include "extract/PageFacts.h"
#include "support/Printing.h"

#include <gtest/gtest.h>

using namespace Extractor;

TEST(Instructions, customBaseOrDefault_thenKnownOrganizationsInOrder)
{
    EXPECT_EQ(instructions(std::nullopt, {}), defaultInstructions());
    EXPECT_EQ(instructions(QStringLiteral(" \n\n  \t\n"), {}), defaultInstructions());
    EXPECT_EQ(instructions(QStringLiteral("  Be brief.\n"), {}), QStringLiteral("Be brief."));

    const QString withList
        = instructions(QStringLiteral("Be brief."), { QStringLiteral("Acme"), QStringLiteral("City of Springfield") });
    EXPECT_TRUE(withList.startsWith(u"Be brief.\n\n")) << withList.toStdString();
    EXPECT_TRUE(withList.contains(u"\n- Acme\n- City of Springfield\n")) << withList.toStdString();
}

TEST(PageFactsSchema, decode_acceptsOnlyCompleteAnswersOfTheRightTypes)
{
    const std::optional<PageFacts> facts = PageFacts::decode(
        R"({"date":"2024-03-12","dateLabel":"Statement Date","firstPage":true,"kind":"Utility bill","organization":"Acme Water","extra":1})");
    ASSERT_TRUE(facts);
    EXPECT_EQ(*facts,
        (PageFacts { true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"),
            QStringLiteral("Statement Date"), QStringLiteral("2024-03-12") }));

    const QByteArray rejected[] = {
        R"({"firstPage":"true","kind":"Utility bill","organization":"","dateLabel":"","date":""})",
        R"({"firstPage":false,"kind":"utility bill","organization":"","dateLabel":"","date":""})",
        R"({"firstPage":false,"kind":"Bill","organization":null,"dateLabel":"","date":""})",
        "{\"firstPage\":false,\"kind\":\"Bill\"",
    };
    for (const QByteArray &json : rejected)
        EXPECT_FALSE(PageFacts::decode(json)) << json.toStdString();
}

TEST(PagePrompt, pageText_isCutInUserPerceivedCharacters)
{
    const QString heading = QStringLiteral("\nOCR text of this page:\n");
    auto pageTextOf = [&](const QString &prompt) { return prompt.mid(prompt.indexOf(heading) + heading.size()); };

    const QString plain = QString(5000, u'x');
    EXPECT_EQ(pageTextOf(pagePrompt(QStringLiteral("2024-05-01"), std::nullopt, 0, 1, plain)), QString(3500, u'x'));

    // A flag is two surrogate pairs and still one character; a lowered limit cuts between flags.
    const QString flags = QStringLiteral("\U0001F1E9\U0001F1EA").repeated(10);
    EXPECT_EQ(pageTextOf(pagePrompt(QStringLiteral("2024-05-01"), std::nullopt, 0, 1, flags, 3)), flags.left(12));
}

TEST(PagesToRead, pagesWithTooLittleTextAreSkipped_atMostEightRead)
{
    const QString enough = QStringLiteral("Statement of account for March 2024 from Acme Water");
    // 39 characters besides white space of any kind, and 40.
    const QString spread39 = QStringLiteral("ab \n\t").repeated(19) + u"c\u3000 \u00A0";
    const QString spread40 = spread39 + u"d";
    EXPECT_EQ(pagesToRead({ QString(), spread40, spread39, QStringLiteral("e\u0301").repeated(39) }),
        std::vector<int>({ 1 }));
    // The first six and the last two.
    QStringList scan(12, enough);
    scan[0] = spread39;
    EXPECT_EQ(pagesToRead(scan), std::vector<int>({ 1, 2, 3, 4, 5, 6, 10, 11 }));
}

namespace {
// Counts words, but not in a text with the word "uncountable".
class WordCounter : public TokenCounter {
public:
    std::optional<qint64> count(const QString &text) override
    {
        if (text.contains(u"uncountable"))
            return std::nullopt;
        return text.split(u' ', Qt::SkipEmptyParts).size();
    }
};
} // namespace

// What a request will cost shows only when every part of it can be counted.
TEST(Tokens, sumOfTheParts_absentWhenAnyPartCannotBeCounted)
{
    WordCounter counter;
    const qint64 schemaWords = counter.count(QString::fromUtf8(PageFacts::schema())).value();
    EXPECT_EQ(tokens(&counter, QStringLiteral("two words"), QStringLiteral("three more words"), true), 5 + schemaWords);
    EXPECT_EQ(tokens(nullptr, QStringLiteral("two words"), QStringLiteral("three"), false), std::nullopt);
    EXPECT_EQ(tokens(&counter, QStringLiteral("two words"), QStringLiteral("uncountable"), false), std::nullopt);
}
