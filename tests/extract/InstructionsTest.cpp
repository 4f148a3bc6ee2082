#include "extract/Instructions.h"

#include "extract/PageFacts.h"
#include "store/DocumentKind.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include "Printing.h"

using namespace Extractor;

namespace {
const QString closing = QStringLiteral(
    "The goal is a small set of organizations, so if the document comes from one of these (including a division, "
    "product, subsidiary, or a different spelling of it), answer with that exact name from the list. Only give a "
    "new name if none of them fit.");
}

TEST(Instructions, defaultText_is899CharactersInTwoParagraphs)
{
    const QString &text = defaultInstructions();
    EXPECT_EQ(text.size(), 899);
    EXPECT_TRUE(text.endsWith(u"from instead."));
    EXPECT_EQ(text.count(u"\n"), 2);
    EXPECT_TRUE(text.contains(u"Use only the page's text.\n\nUse the organization's short, common name"));
    EXPECT_TRUE(text.contains(u"\"Chase\" rather than \"JPMorgan Chase Bank, N.A.\""));
}

TEST(Instructions, base_customOrDefault)
{
    struct Case {
        std::optional<QString> base;
        QString expected;
    };
    const Case cases[] = {
        { std::nullopt, defaultInstructions() },
        { QString(), defaultInstructions() },
        { QStringLiteral(" \n\n  \t\n"), defaultInstructions() },
        { QStringLiteral("  Be brief.\n"), QStringLiteral("Be brief.") },
    };
    for (const Case &c : cases)
        EXPECT_EQ(instructions(c.base, {}), c.expected) << c.base.value_or(QStringLiteral("(absent)")).toStdString();
}

TEST(Instructions, knownOrganizations_followTheBaseInOrder)
{
    const QStringList organizations = { QStringLiteral("Acme"), QStringLiteral("City of Springfield") };
    EXPECT_EQ(instructions(QStringLiteral("Be brief."), organizations),
        u"Be brief.\n\nOrganizations already on file:\n- Acme\n- City of Springfield\n\n" + closing);
    EXPECT_EQ(instructions(std::nullopt, { QStringLiteral("Zeta") }),
        defaultInstructions() + u"\n\nOrganizations already on file:\n- Zeta\n\n" + closing);
}

TEST(Instructions, plainTextFormat_listsEveryKindAndEndsWithTheExample)
{
    const QStringList lines = plainTextFormat().split(u'\n');
    ASSERT_EQ(lines.size(), 13);
    EXPECT_EQ(lines[2], u"Type: one of " + DocumentKind::all().join(u", "));
    EXPECT_EQ(lines[6], QString());
    EXPECT_EQ(lines[7], u"For example:");
    EXPECT_EQ(lines[12], u"Date: 2024-03-12");
}

TEST(PageFactsSchema, propertiesInFieldOrder_allRequired_kindFromTheList)
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
    EXPECT_FALSE(schema.contains(u"description"));

    const QJsonObject properties = schema.value(u"properties").toObject();
    EXPECT_EQ(properties.keys().size(), 5);
    EXPECT_EQ(properties.value(u"firstPage")[u"type"].toString(), u"boolean");
    for (const QString &name : names.mid(1))
        EXPECT_EQ(properties.value(name)[u"type"].toString(), u"string") << name.toStdString();
    EXPECT_EQ(properties.value(u"kind")[u"enum"].toArray(), QJsonArray::fromStringList(DocumentKind::all()));
    EXPECT_EQ(properties.value(u"dateLabel")[u"description"].toString(),
        u"The words printed next to the document's own date on this page, such as \"Statement Date\", "
        u"\"Closing Date\", \"Notice Date\", or \"Date of Service\". Empty if there is none.");
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

TEST(PagePrompt, linesDependOnHintAndPageCount)
{
    const QString text = QStringLiteral("ACME WATER\nStatement");
    EXPECT_EQ(pagePrompt(QStringLiteral("2024-05-01"), std::nullopt, 0, 1, text),
        u"Today is 2024-05-01.\n\nOCR text of this page:\nACME WATER\nStatement");
    EXPECT_EQ(pagePrompt(QStringLiteral("2024-05-01"), Similar { QStringLiteral("2023/a.pdf"), QStringLiteral("Acme") },
                  1, 2, text),
        u"Today is 2024-05-01.\n"
        u"This scan looks like another one already filed under \u201CAcme\u201D; use that name if it is from "
        u"the same organization.\n"
        u"This is page 2 of 2 of one scanned document; the pages may be out of order.\n"
        u"\nOCR text of this page:\nACME WATER\nStatement");
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
        { { spread39 }, {} },
        { { spread40 }, { 0 } },
        { { QStringLiteral("e\u0301").repeated(39) }, {} },
        { { QString(), enough, spread39, enough }, { 1, 3 } },
        { pages(9, spread39), {} },
        { pages(10, enough), { 0, 1, 2, 3, 4, 5, 8, 9 } },
        { QStringList { spread39 } + pages(11, enough) + QStringList { spread39 }, { 1, 2, 3, 4, 5, 6, 10, 11 } },
    };
    for (const Case &c : cases)
        EXPECT_EQ(pagesToRead(c.pages), c.expected) << c.pages.size() << " pages";
}

TEST(SystemDescription, namesModelServerContextAndKernel)
{
    struct Case {
        QString model;
        ServerKind server;
        QString url;
        qint64 context;
        QString kernel;
        QString expected;
    };
    const Case cases[] = {
        { QStringLiteral("qwen2.5:3b"), ServerKind::ollama, QStringLiteral("http://127.0.0.1:11434"), 4096,
            QStringLiteral("6.1.0-18-amd64"),
            QStringLiteral(
                "qwen2.5:3b on Ollama at 127.0.0.1:11434, context 4096 tokens, Linux 6.1.0, greedy sampling") },
        { QStringLiteral("m"), ServerKind::openAICompatible, QStringLiteral("http://[::1]:8080"), 2048,
            QStringLiteral("5.10.209.1-rt"),
            QStringLiteral("m on OpenAI-compatible server at [::1]:8080, context 2048 tokens, Linux 5.10.209, greedy "
                           "sampling") },
        { QStringLiteral("m"), ServerKind::ollama, QStringLiteral("https://models.example/v1"), 1,
            QStringLiteral("6.8"),
            QStringLiteral("m on Ollama at models.example:443, context 1 tokens, Linux 6.8.0, greedy sampling") },
    };
    for (const Case &c : cases)
        EXPECT_EQ(systemDescription(c.model, c.server, QUrl(c.url), c.context, c.kernel), c.expected);
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral(", Linux \\d+\\.\\d+\\.\\d+, greedy sampling$"))
            .match(systemDescription(QStringLiteral("m"), ServerKind::ollama, QUrl(QStringLiteral("http://h:1")), 1))
            .hasMatch());
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
