#include "ocr/TextQuality.h"

#include "ocr/OcrLanguages.h"
#include "support/Printing.h"

#include <gtest/gtest.h>

namespace {

// Letter strings no dictionary knows, and words it knows.
QString gibberish(int count)
{
    return QStringLiteral(" xqzt").repeated(count);
}

QString known(int count)
{
    return QStringLiteral(" payment").repeated(count);
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
    EXPECT_EQ(TextQuality::words(QStringLiteral("Invoice No. 12345, account AB123X; total: $45.00 xqzt")),
        (TextQuality::Words { 4, 3 }));
    // Letters of any script count, accents included, also when written as combining marks.
    EXPECT_EQ(TextQuality::words(QStringLiteral("café cafe\u0301 cafe\u03012 Москва of")).total, 3);
}

TEST_F(TextQualityTest, aPageLooksGarbledFromTwelveWordsWithFewerThanFortyPercentKnown)
{
    EXPECT_FALSE(TextQuality::looksGarbled({ gibberish(11) }, 1500));
    EXPECT_TRUE(TextQuality::looksGarbled({ gibberish(12) }, 1500));
    EXPECT_FALSE(TextQuality::looksGarbled({ known(8) + gibberish(12) }, 1500));
    EXPECT_TRUE(TextQuality::looksGarbled({ known(7) + gibberish(13) }, 1500));
    EXPECT_TRUE(TextQuality::looksGarbled({ known(30), gibberish(20) }, 1500)); // any one page
    // Only the sample of each page is judged.
    EXPECT_FALSE(TextQuality::looksGarbled({ known(40) + gibberish(40) }, 200));
}

TEST_F(TextQualityTest, dictionariesFollowTheReadingLanguages)
{
    // Without a dictionary for the languages read, no word can be judged, so all count as known.
    TextQuality::useLanguages(QStringLiteral("qqq"));
    EXPECT_EQ(TextQuality::words(gibberish(3)), (TextQuality::Words { 3, 3 }));
    TextQuality::useLanguages(QStringLiteral("eng"));
    EXPECT_EQ(TextQuality::words(gibberish(3)), (TextQuality::Words { 3, 0 }));
}

// Read from the command line and settings: a name that isn't a language is refused.
TEST(OcrLanguages, namesThePackageOfMissingLanguageData)
{
    EXPECT_EQ(OcrLanguages::problem(QStringLiteral("eng")), std::nullopt);
    EXPECT_TRUE(
        OcrLanguages::problem(QStringLiteral("eng+qqq_old")).value_or(QString()).contains(u"tesseract-ocr-qqq-old"));
    EXPECT_TRUE(OcrLanguages::problem(QStringLiteral("eng; rm -rf")));
}

} // namespace
