#include "ocr/TextQuality.h"

#include "ocr/OcrLanguages.h"

#include <gtest/gtest.h>

namespace {

// Letter strings no dictionary knows.
QString gibberish(int count)
{
    static const QStringList words { QStringLiteral("xqzt"), QStringLiteral("bvkrw"), QStringLiteral("zzqpf"),
        QStringLiteral("kxvbq"), QStringLiteral("qwrtzp"), QStringLiteral("jxqv") };
    QStringList text;
    for (int index = 0; index < count; ++index)
        text << words[index % words.size()];
    return text.join(QLatin1Char(' '));
}

QString known(int count)
{
    static const QStringList words { QStringLiteral("invoice"), QStringLiteral("electricity"),
        QStringLiteral("payment"), QStringLiteral("account"), QStringLiteral("customer") };
    QStringList text;
    for (int index = 0; index < count; ++index)
        text << words[index % words.size()];
    return text.join(QLatin1Char(' '));
}

class TextQualityTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!TextQuality::available())
            GTEST_SKIP() << "no English dictionary installed";
    }
};

TEST_F(TextQualityTest, countsLetterOnlyWordsOfThreeOrMoreCharacters)
{
    const struct {
        QString text;
        TextQuality::Words expected;
    } cases[] = {
        { QString(), { 0, 0 } },
        { QStringLiteral("the cat sat"), { 3, 3 } },
        { QStringLiteral("a an to be of it"), { 0, 0 } },
        { QStringLiteral("Invoice No. 12345, account AB123X; total: $45.00"), { 3, 3 } },
        { QStringLiteral("payment xqzt"), { 2, 1 } },
        { QStringLiteral("ÜBERWEISUNG"), { 1, 0 } },
    };
    for (const auto &example : cases)
        EXPECT_EQ(TextQuality::words(example.text), example.expected) << example.text.toStdString();
    // Letters of any script count, accents included, also when written as combining marks.
    EXPECT_EQ(TextQuality::words(QStringLiteral("café naïve Straße")).total, 3);
    EXPECT_EQ(TextQuality::words(QStringLiteral("cafe\u0301 cafe\u03012")).total, 1);
    EXPECT_EQ(TextQuality::words(QStringLiteral("Москва Αθήνα")).total, 2);
}

TEST_F(TextQualityTest, aPageLooksGarbledFromTwelveWordsWithFewerThanFortyPercentKnown)
{
    EXPECT_FALSE(TextQuality::looksGarbled({ gibberish(11) }, 1500));
    EXPECT_TRUE(TextQuality::looksGarbled({ gibberish(12) }, 1500));
    EXPECT_FALSE(TextQuality::looksGarbled({ known(8) + QLatin1Char(' ') + gibberish(12) }, 1500));
    EXPECT_TRUE(TextQuality::looksGarbled({ known(7) + QLatin1Char(' ') + gibberish(13) }, 1500));
    EXPECT_TRUE(TextQuality::looksGarbled({ known(30), QString(), gibberish(20) }, 1500));
    EXPECT_FALSE(TextQuality::looksGarbled({}, 1500));
    // Only the sample of each page is judged.
    EXPECT_FALSE(TextQuality::looksGarbled({ known(40) + QLatin1Char(' ') + gibberish(40) }, 200));
}

TEST_F(TextQualityTest, dictionariesFollowTheReadingLanguages)
{
    EXPECT_TRUE(TextQuality::dictionariesFor(QStringLiteral("eng")).contains(QStringLiteral("en_US")));
    EXPECT_TRUE(TextQuality::dictionariesFor(QStringLiteral("qqq")).isEmpty());
    // Without a dictionary for the languages read, no word can be judged, so all count as known.
    TextQuality::useLanguages(QStringLiteral("qqq"));
    EXPECT_EQ(TextQuality::words(gibberish(3)), (TextQuality::Words { 3, 3 }));
    TextQuality::useLanguages(QStringLiteral("eng"));
    EXPECT_EQ(TextQuality::words(gibberish(3)), (TextQuality::Words { 3, 0 }));
}

TEST(OcrLanguages, namesThePackageOfMissingLanguageData)
{
    EXPECT_EQ(OcrLanguages::problem(QStringLiteral("eng")), std::nullopt);
    EXPECT_EQ(OcrLanguages::problem(QStringLiteral("eng+qqq_old")),
        QStringLiteral(
            "Text recognition in “qqq_old” isn't installed: install the Debian package tesseract-ocr-qqq-old"));
    const std::optional<QString> notALanguage = OcrLanguages::problem(QStringLiteral("eng; rm -rf"));
    ASSERT_TRUE(notALanguage);
    EXPECT_TRUE(notALanguage->contains(QStringLiteral("eng or eng+deu")));
}

} // namespace
