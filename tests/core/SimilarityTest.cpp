#include "core/Similarity.h"

#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace Qt::StringLiterals;
using Similarity::Fingerprint;

namespace {

Fingerprint words(const char *text)
{
    const QStringList list = QString::fromUtf8(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return Fingerprint(list.cbegin(), list.cend());
}

// Distinct made-up words of letters only, numbered from `from` up to `to`.
Fingerprint numbered(int from, int to)
{
    Fingerprint result;
    for (int i = from; i < to; ++i)
        result.insert(u"word"_s + QChar(u'a' + i / 26) + QChar(u'a' + i % 26));
    return result;
}

TEST(Similarity, fingerprintKeepsDistinctLowerCaseWordsOfThreeToThirtyLettersInTheFirst2000Characters)
{
    EXPECT_EQ(Similarity::fingerprint(u"Invoice INVOICE 2024 a1b2 Co. the electricity-bill CAFE\u0301"_s),
        words("invoice the electricity bill cafe\u0301"));
    EXPECT_EQ(Similarity::fingerprint(u"ab "_s + QString(30, u'x') + u' ' + QString(31, u'y')),
        (Fingerprint { QString(30, u'x') }));
    // A letter with its accent is one character.
    EXPECT_EQ(Similarity::fingerprint(u"a\u0301 "_s.repeated(998) + u"cde"_s), Fingerprint { u"cde"_s });
    EXPECT_EQ(Similarity::fingerprint(u"ab "_s.repeated(666) + u"cde"_s), Fingerprint {});
}

TEST(Similarity, bestWeighsWordsByHowFewFirstPagesHoldThemAndNeedsThreeTenths)
{
    // One document in the corpus: M is 2, so its word weighs ln(2/1.5) and unseen words ln(2/0.5).
    const auto match = Similarity::best(words("alpha beta"), { { 7, words("beta delta") } }, { words("alpha") });
    ASSERT_TRUE(match);
    EXPECT_DOUBLE_EQ(match->score, std::log(4.0) / (std::log(2 / 1.5) + 2 * std::log(4.0)));

    // A word on every one of 10 first pages weighs ln(11/10.5): sharing only it is no likeness.
    std::vector<Fingerprint> corpus(10, words("dear customer"));
    EXPECT_FALSE(Similarity::best(words("dear customer acme"), { { 1, words("dear customer other") } }, corpus));

    // With an empty corpus every word weighs the same: the score is shared words over all words.
    const Fingerprint hundred = numbered(0, 100);
    EXPECT_FALSE(Similarity::best(hundred, { { 1, numbered(0, 29) } }, {}));
    EXPECT_EQ(Similarity::best(hundred, { { 1, numbered(0, 29) }, { 2, numbered(0, 30) } }, {})->id, 2);

    // The earlier of equals wins; empty fingerprints are never alike.
    const Fingerprint page = words("acme power electricity account");
    const std::vector<Similarity::Candidate> among { { 5, {} }, { 3, words("acme power electricity") },
        { 4, words("electricity power acme") } };
    EXPECT_EQ(Similarity::best(page, among, { page })->id, 3);
    EXPECT_FALSE(Similarity::best({}, among, { page }));
}

TEST(Similarity, indexScoresLikeBestWithItsFingerprintsAsTheCorpusAndFollowsReplacements)
{
    std::vector<Fingerprint> pages { words("acme power electricity account meter"),
        words("acme power electricity invoice meter reading"), words("beta water invoice meter"),
        words("dear customer letter") };
    Similarity::Index index;
    for (std::size_t i = 0; i < pages.size(); ++i)
        index.replace(std::int64_t(i), pages[i]);
    EXPECT_EQ(index.best(0, { 1, 2, 42 }), Similarity::best(pages[0], { { 1, pages[1] }, { 2, pages[2] } }, pages));
    EXPECT_FALSE(index.best(42, { 1, 2 }));

    // Scan 2 was read again and now reads like scan 0; scan 1 became a letter.
    pages[2] = words("acme power electricity account meter total");
    pages[1] = pages[3];
    index.replace(2, pages[2]);
    index.replace(1, pages[1]);
    EXPECT_EQ(index.best(0, { 1, 2 }), Similarity::best(pages[0], { { 1, pages[1] }, { 2, pages[2] } }, pages));
    EXPECT_EQ(index.best(0, { 1, 2 })->id, 2);
}

} // namespace
