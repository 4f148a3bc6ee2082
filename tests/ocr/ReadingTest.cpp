#include "ocr/Reading.h"

#include "core/Cancellation.h"

#include <gtest/gtest.h>

namespace {

using OCR::Line;
using OCR::Reading;

const QString knownWords = QStringLiteral("invoice electricity payment account customer");
const QString unknownWords = QStringLiteral("xqzt bvkrw zzqpf kxvbq qwrtzp jxqv");

Line lineOf(const QString &text, int turn = 0, QRectF box = QRectF(0.1, 0.5, 0.5, 0.02))
{
    return { text, box, turn };
}

// A line of `count` copies of a word.
QString repeated(const QString &word, int count)
{
    QStringList words;
    for (int index = 0; index < count; ++index)
        words << word;
    return words.join(QLatin1Char(' '));
}

TEST(Reading, countsCharactersAndWordsPerDirection)
{
    const Reading reading(0,
        { lineOf(QStringLiteral("payment due")), lineOf(QStringLiteral("café"), 90),
            lineOf(QStringLiteral("account"), 0) });
    EXPECT_EQ(reading.charactersByTurn(), (std::map<int, int> { { 0, 18 }, { 90, 4 } }));
    EXPECT_EQ(reading.wordsByTurn().at(0), (TextQuality::Words { 3, 3 }));
    EXPECT_EQ(reading.total(), 22);
    EXPECT_EQ(reading.score(), (std::array<int, 3> { 3, 18, 22 }));
}

TEST(Reading, goodnessNeedsThreeQuartersUprightAndEnoughKnownWords)
{
    // 75 of 100 characters upright is enough, 74 is not.
    EXPECT_TRUE(
        Reading(0, { lineOf(QString(75, QLatin1Char('x'))), lineOf(QString(25, QLatin1Char('x')), 90) }).isGood());
    EXPECT_FALSE(
        Reading(0, { lineOf(QString(74, QLatin1Char('x'))), lineOf(QString(26, QLatin1Char('x')), 180) }).isGood());
    // Fewer than 12 counted words are not judged.
    EXPECT_TRUE(Reading(0, { lineOf(repeated(QStringLiteral("xqzt"), 11)) }).isGood());
    // 8 known of 20 is exactly 40 %; 7 of 20 is not enough.
    EXPECT_TRUE(
        Reading(0, { lineOf(repeated(QStringLiteral("payment"), 8)), lineOf(repeated(QStringLiteral("xqzt"), 12)) })
            .isGood());
    EXPECT_FALSE(
        Reading(0, { lineOf(repeated(QStringLiteral("payment"), 7)), lineOf(repeated(QStringLiteral("xqzt"), 13)) })
            .isGood());
    EXPECT_TRUE(Reading(0, {}).isGood());
}

TEST(Reading, turningRemapsBoxesTurnsAndRotation)
{
    const Reading reading(270, { lineOf(QStringLiteral("account"), 90, QRectF(0.1, 0.2, 0.3, 0.1)) });
    const Reading quarter = reading.turned(90);
    EXPECT_EQ(quarter.rotation(), 0);
    ASSERT_EQ(quarter.lines().size(), 1u);
    EXPECT_EQ(quarter.lines()[0].turn, 0);
    const QRectF box = quarter.lines()[0].box;
    EXPECT_DOUBLE_EQ(box.x(), 0.2);
    EXPECT_DOUBLE_EQ(box.y(), 0.6);
    EXPECT_DOUBLE_EQ(box.width(), 0.1);
    EXPECT_DOUBLE_EQ(box.height(), 0.3);
    EXPECT_EQ(reading.turned(180).rotation(), 90);
    EXPECT_EQ(reading.turned(180).lines()[0].turn, 270);

    const Reading back = reading.turned(90).turned(270);
    EXPECT_EQ(back.rotation(), reading.rotation());
    EXPECT_EQ(back.lines()[0].turn, reading.lines()[0].turn);
    EXPECT_NEAR(back.lines()[0].box.x(), 0.1, 1e-12);
    EXPECT_NEAR(back.lines()[0].box.y(), 0.2, 1e-12);
    EXPECT_NEAR(back.lines()[0].box.width(), 0.3, 1e-12);
    EXPECT_NEAR(back.lines()[0].box.height(), 0.1, 1e-12);
}

TEST(Reading, uprightTurnsByTheDominantDirectionAndPrefersTheSmallerTurnOnATie)
{
    const Reading sideways(0, { lineOf(QStringLiteral("electricity"), 90), lineOf(QStringLiteral("due"), 0) });
    const Reading upright = sideways.upright();
    EXPECT_EQ(upright.rotation(), 90);
    EXPECT_EQ(upright.charactersByTurn().at(0), 11);
    EXPECT_EQ(upright.charactersByTurn().at(270), 3);

    const Reading tie(0, { lineOf(QStringLiteral("abcd"), 180), lineOf(QStringLiteral("efgh"), 0) });
    EXPECT_EQ(tie.upright().rotation(), 0);
    EXPECT_EQ(Reading(180, {}).upright().rotation(), 180);
}

// Re-reads that hand back prepared readings and record the rotations asked for.
struct ScriptedRereads {
    std::map<int, std::vector<Line>> lines;
    std::vector<int> asked;
    OCR::Reread function()
    {
        return [this](int rotation) {
            asked.push_back(rotation);
            return Reading(rotation, lines[rotation]);
        };
    }
};

TEST(BestReading, aGoodFirstReadingIsNeverReadAgain)
{
    ScriptedRereads rereads;
    EXPECT_EQ(OCR::bestReading(Reading(0, {}), rereads.function()).rotation(), 0);
    // Lines running right to left are turned in memory, without reading again.
    const Reading upsideDown = OCR::bestReading(Reading(0, { lineOf(knownWords, 180) }), rereads.function());
    EXPECT_EQ(upsideDown.rotation(), 180);
    EXPECT_TRUE(rereads.asked.empty());
}

TEST(BestReading, garbledHorizontalTextIsReadUpsideDownNext)
{
    ScriptedRereads rereads;
    rereads.lines[180] = { lineOf(knownWords + QLatin1Char(' ') + knownWords + QLatin1Char(' ') + knownWords) };
    const Reading best = OCR::bestReading(Reading(0, { lineOf(repeated(unknownWords, 3)) }), rereads.function());
    EXPECT_EQ(rereads.asked, std::vector<int> { 180 });
    EXPECT_EQ(best.rotation(), 180);
    EXPECT_TRUE(best.isGood());
}

TEST(BestReading, sidewaysTextTriesItsOwnDirectionsFirstAndEachRotationOnce)
{
    ScriptedRereads rereads;
    rereads.lines[90] = { lineOf(repeated(unknownWords, 3)) };
    rereads.lines[270] = { lineOf(repeated(knownWords, 3)) };
    // Mostly vertical garbage running at 90, a little at 270.
    const Reading first(0, { lineOf(repeated(unknownWords, 3), 90), lineOf(QStringLiteral("qq"), 270) });
    const Reading best = OCR::bestReading(first, rereads.function());
    EXPECT_EQ(rereads.asked, (std::vector<int> { 90, 270 }));
    EXPECT_EQ(best.rotation(), 270);
}

TEST(BestReading, keepsTheEarlierReadingOnEqualScoresAndReturnsThePoorBestWhenNothingIsGood)
{
    ScriptedRereads rereads;
    const QString garbage = repeated(unknownWords, 3);
    rereads.lines[180] = { lineOf(garbage) };
    const Reading best = OCR::bestReading(Reading(0, { lineOf(garbage) }), rereads.function());
    EXPECT_EQ(rereads.asked, std::vector<int> { 180 });
    EXPECT_EQ(best.rotation(), 0);
    EXPECT_FALSE(best.isGood());
}

TEST(BestReading, stopsBeforeReadingAgainWhenCancelled)
{
    ScriptedRereads rereads;
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(
        OCR::bestReading(Reading(0, { lineOf(repeated(unknownWords, 3)) }), rereads.function(), stop.get_token()),
        Cancelled);
    EXPECT_TRUE(rereads.asked.empty());
}

} // namespace
