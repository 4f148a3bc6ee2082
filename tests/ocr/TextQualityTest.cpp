#include "ocr/TextQuality.h"

#include "ocr/OcrLanguages.h"
#include "support/Printing.h"

#include <gtest/gtest.h>

namespace {

// Letter strings no dictionary knows, and words it knows.
QString gibberish(int count)
{
    return QStringList(count, QStringLiteral("xqzt")).join(u' ');
}

QString known(int count)
{
    return QStringList(count, QStringLiteral("payment")).join(u' ');
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
    // Without a dictionary for the languages read, no word can be judged, so all count as known.
    TextQuality::useLanguages(QStringLiteral("qqq"));
    EXPECT_EQ(TextQuality::words(gibberish(3)), (TextQuality::Words { 3, 3 }));
    TextQuality::useLanguages(QStringLiteral("eng"));
    EXPECT_EQ(TextQuality::words(gibberish(3)), (TextQuality::Words { 3, 0 }));
}

TEST(OcrLanguages, namesThePackageOfMissingLanguageData)
{
    EXPECT_EQ(OcrLanguages::problem(QStringLiteral("eng")), std::nullopt);
    EXPECT_TRUE(
        OcrLanguages::problem(QStringLiteral("eng+qqq_old")).value_or(QString()).contains(u"tesseract-ocr-qqq-old"));
    EXPECT_TRUE(OcrLanguages::problem(QStringLiteral("eng; rm -rf")));
}

} // namespace
