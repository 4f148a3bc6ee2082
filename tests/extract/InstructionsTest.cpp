#include "extract/Instructions.h"

#include "extract/PageFacts.h"
#include "core/DocumentKind.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include "support/Printing.h"

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

TEST(PageFactsSchema, fieldsInOrderAllRequiredAndKindFromTheList)
{
    const QByteArray &text = PageFacts::schema();
    QJsonParseError error;
    const QJsonObject schema = QJsonDocument::fromJson(text, &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError);

    // The order as written, which the parsed object would lose.
    const QStringList names = { QStringLiteral("firstPage"), QStringLiteral("kind"), QStringLiteral("organization"),
        QStringLiteral("dateLabel"), QStringLiteral("date") };
    qsizetype previous = -1;
    for (const QString &name : names) {
        const qsizetype at = text.indexOf(QByteArray("\"" + name.toUtf8() + "\":{"));
        EXPECT_GT(at, previous) << name.toStdString();
        previous = at;
    }
    EXPECT_EQ(schema.value(u"required").toArray(), QJsonArray::fromStringList(names));
    EXPECT_EQ(schema.value(u"properties")[u"kind"][u"enum"].toArray(), QJsonArray::fromStringList(DocumentKind::all()));
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
        "",
    };
    for (const QByteArray &json : rejected)
        EXPECT_FALSE(PageFacts::decode(json)) << json.toStdString();
}

TEST(PagePrompt, hintAndPageLinesOnlyWhenThereIsOne)
{
    const QString text = QStringLiteral("ACME WATER\nStatement");
    EXPECT_EQ(pagePrompt(QStringLiteral("2024-05-01"), std::nullopt, 0, 1, text),
        u"Today is 2024-05-01.\n\nOCR text of this page:\nACME WATER\nStatement");
    const QString hinted = pagePrompt(
        QStringLiteral("2024-05-01"), Similar { QStringLiteral("2023/a.pdf"), QStringLiteral("Acme") }, 1, 2, text);
    EXPECT_TRUE(hinted.contains(u"\u201CAcme\u201D")) << hinted.toStdString();
    EXPECT_TRUE(hinted.contains(u"page 2 of 2")) << hinted.toStdString();
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
    const QString spread39 = QStringLiteral("ab \n\t").repeated(19) + u"c\u3000 \u00A0";
    const QString spread40 = spread39 + u"d";
    auto pages = [](int count, const QString &text) {
        QStringList list;
        for (int i = 0; i < count; ++i)
            list.append(text);
        return list;
    };
    struct Case {
        QStringList pages;
        std::vector<int> expected;
    };
    const Case cases[] = {
        { {}, {} },
        { { spread40 }, { 0 } },
        { { QStringLiteral("e\u0301").repeated(39) }, {} },
        { { QString(), enough, spread39, enough }, { 1, 3 } },
        { pages(10, enough), { 0, 1, 2, 3, 4, 5, 8, 9 } },
        { QStringList { spread39 } + pages(11, enough) + QStringList { spread39 }, { 1, 2, 3, 4, 5, 6, 10, 11 } },
    };
    for (const Case &c : cases)
        EXPECT_EQ(pagesToRead(c.pages), c.expected) << c.pages.size() << " pages";
}

TEST(SystemDescription, hostPortAndKernelVersionAreNormalised)
{
    EXPECT_EQ(systemDescription(QStringLiteral("m"), ServerKind::openAICompatible,
                  QUrl(QStringLiteral("http://[::1]:8080")), 2048, QStringLiteral("5.10.209.1-rt")),
        QStringLiteral("m on OpenAI-compatible server at [::1]:8080, context 2048 tokens, Linux 5.10.209, greedy "
                       "sampling"));
    EXPECT_EQ(systemDescription(QStringLiteral("m"), ServerKind::ollama,
                  QUrl(QStringLiteral("https://models.example/v1")), 1, QStringLiteral("6.8")),
        QStringLiteral("m on Ollama at models.example:443, context 1 tokens, Linux 6.8.0, greedy sampling"));
}

namespace {
// Counts words; can't count the schema when told so, nor any text with the word "uncountable".
class WordCounter : public TokenCounter {
public:
    bool schemaFails = false;
    std::optional<qint64> count(const QString &text) override
    {
        if (text.contains(u"uncountable") || (schemaFails && text == QString::fromUtf8(PageFacts::schema())))
            return std::nullopt;
        return text.split(u' ', Qt::SkipEmptyParts).size();
    }
};
} // namespace

TEST(Tokens, sumOfTheParts_absentWhenAnyPartCannotBeCounted)
{
    WordCounter counter;
    const qint64 schemaWords = QString::fromUtf8(PageFacts::schema()).split(u' ', Qt::SkipEmptyParts).size();
    EXPECT_EQ(tokens(&counter, QStringLiteral("two words"), QStringLiteral("three more words"), false), 5);
    EXPECT_EQ(tokens(&counter, QStringLiteral("two words"), QStringLiteral("three more words"), true), 5 + schemaWords);
    EXPECT_EQ(tokens(nullptr, QStringLiteral("two words"), QStringLiteral("three"), false), std::nullopt);
    EXPECT_EQ(tokens(&counter, QStringLiteral("two words"), QStringLiteral("uncountable"), false), std::nullopt);
    counter.schemaFails = true;
    EXPECT_EQ(tokens(&counter, QStringLiteral("two words"), QStringLiteral("three"), true), std::nullopt);
}
