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
    return QStringList(count, word).join(u' ');
}

// 75 of 100 characters upright is enough, 74 is not; twelve words none of them known are not either.
TEST(Reading, goodnessNeedsThreeQuartersUprightAndEnoughKnownWords)
{
    EXPECT_TRUE(
        Reading(0, { lineOf(QString(75, QLatin1Char('x'))), lineOf(QString(25, QLatin1Char('x')), 90) }).isGood());
    EXPECT_FALSE(
        Reading(0, { lineOf(QString(74, QLatin1Char('x'))), lineOf(QString(26, QLatin1Char('x')), 180) }).isGood());
    EXPECT_FALSE(Reading(0, { lineOf(repeated(unknownWords, 2)) }).isGood());
    EXPECT_TRUE(Reading(0, {}).isGood());
}

TEST(Reading, turningRemapsBoxesAndTurnsAndUprightTurnsByTheDominantDirection)
{
    const Reading reading(270, { lineOf(QStringLiteral("account"), 90, QRectF(0.1, 0.2, 0.3, 0.1)) });
    const Reading quarter = reading.turned(90);
    EXPECT_EQ(quarter.rotation(), 0);
    EXPECT_EQ(quarter.lines().at(0).turn, 0);
    EXPECT_EQ(quarter.lines()[0].box, QRectF(0.2, 0.6, 0.1, 0.3));
    EXPECT_EQ(quarter.turned(270).lines().at(0), reading.lines().at(0));

    const Reading sideways(0, { lineOf(QStringLiteral("electricity"), 90), lineOf(QStringLiteral("due"), 0) });
    EXPECT_EQ(sideways.upright().rotation(), 90);
    // On a tie the smaller turn.
    EXPECT_EQ(
        Reading(0, { lineOf(QStringLiteral("abcd"), 180), lineOf(QStringLiteral("efgh"), 0) }).upright().rotation(), 0);
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

TEST(BestReading, readsAgainOnlyWhenTheFirstReadingIsPoorEachRotationOnceAndNotWhenStopped)
{
    const QString garbage = repeated(unknownWords, 3);
    const struct {
        const char *what;
        std::vector<Line> first;
        std::map<int, std::vector<Line>> rereads;
        std::vector<int> asked;
        int rotation;
    } cases[] = {
        // Lines running right to left are turned in memory, without reading again.
        { "upside down", { lineOf(knownWords, 180) }, {}, {}, 180 },
        { "garbled horizontal text is read upside down next", { lineOf(garbage) },
            { { 180, { lineOf(repeated(knownWords, 3)) } } }, { 180 }, 180 },
        { "sideways text tries its own directions first", { lineOf(garbage, 90), lineOf(QStringLiteral("qq"), 270) },
            { { 90, { lineOf(garbage) } }, { 270, { lineOf(repeated(knownWords, 3)) } } }, { 90, 270 }, 270 },
        // Nothing good: the best poor reading, the earlier one on equal scores.
        { "garbage every way", { lineOf(garbage) }, { { 180, { lineOf(garbage) } } }, { 180 }, 0 },
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        ScriptedRereads rereads { c.rereads, {} };
        EXPECT_EQ(OCR::bestReading(Reading(0, c.first), rereads.function()).rotation(), c.rotation);
        EXPECT_EQ(rereads.asked, c.asked);
    }
    // Stopped: no reading again.
    ScriptedRereads none;
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(OCR::bestReading(Reading(0, { lineOf(garbage) }), none.function(), stop.get_token()), Cancelled);
    EXPECT_TRUE(none.asked.empty());
}

} // namespace
