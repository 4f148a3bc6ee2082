#include "core/Similarity.h"

#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using Similarity::Fingerprint;

namespace {

Fingerprint words(const char *text)
{
    const QStringList list = QString::fromUtf8(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return Fingerprint(list.cbegin(), list.cend());
}

// n distinct made-up words: w0, w1, ... spelled with letters only.
Fingerprint numbered(int from, int to)
{
    Fingerprint result;
    for (int i = from; i < to; ++i)
        result.insert(QStringLiteral("word") + QChar(u'a' + i / 26) + QChar(u'a' + i % 26));
    return result;
}

TEST(SimilarityFingerprint, keepsDistinctLowerCaseWordsOfThreeToThirtyLetters)
{
    EXPECT_EQ(Similarity::fingerprint(QStringLiteral("Invoice INVOICE 2024 a1b2 Co. the electricity-bill")),
        words("invoice the electricity bill"));
    EXPECT_EQ(Similarity::fingerprint(QStringLiteral("Müller CAFE\u0301 Счёт")),
        (Fingerprint { QStringLiteral("müller"), QStringLiteral("cafe\u0301"), QStringLiteral("счёт") }));
    EXPECT_EQ(Similarity::fingerprint(QStringLiteral("ab ") + QString(30, u'x') + u' ' + QString(31, u'y')),
        (Fingerprint { QString(30, u'x') }));
}

TEST(SimilarityFingerprint, readsOnlyTheFirst2000Characters)
{
    const QString start = QStringLiteral("ab ").repeated(666); // 1998 characters
    EXPECT_EQ(Similarity::fingerprint(start + QStringLiteral("cde")), Fingerprint {});
    EXPECT_EQ(Similarity::fingerprint(QStringLiteral("ab ").repeated(665) + QStringLiteral("cde")),
        Fingerprint { QStringLiteral("cde") });
    // A letter with its accent is one character.
    EXPECT_EQ(Similarity::fingerprint(QStringLiteral("a\u0301 ").repeated(998) + QStringLiteral("cde")),
        Fingerprint { QStringLiteral("cde") });
}

TEST(SimilarityBest, weighsWordsByHowFewFirstPagesHoldThem)
{
    // One document in the corpus: M is 2, so its word weighs ln(2/1.5) and unseen words ln(2/0.5).
    const auto match = Similarity::best(words("alpha beta"), { { 7, words("beta delta") } }, { words("alpha") });
    ASSERT_TRUE(match);
    EXPECT_EQ(match->id, 7);
    EXPECT_DOUBLE_EQ(match->score, std::log(4.0) / (std::log(2 / 1.5) + 2 * std::log(4.0)));

    // A word on every one of 10 first pages weighs ln(11/10.5): sharing only it is no likeness.
    std::vector<Fingerprint> corpus(10, words("dear customer"));
    corpus.push_back(words("acme"));
    EXPECT_FALSE(Similarity::best(words("dear customer acme"), { { 1, words("dear customer other") } }, corpus));
    EXPECT_EQ(Similarity::best(words("dear customer acme"),
                  { { 1, words("dear customer other") }, { 2, words("dear customer acme widgets") } }, corpus)
                  ->id,
        2);
}

TEST(SimilarityBest, needsAScoreOfAtLeastThreeTenths)
{
    // With an empty corpus every word weighs the same, so the score is shared words over all words.
    const Fingerprint hundred = numbered(0, 100);
    EXPECT_FALSE(Similarity::best(hundred, { { 1, numbered(0, 29) } }, {}));
    const auto match = Similarity::best(hundred, { { 1, numbered(0, 29) }, { 2, numbered(0, 30) } }, {});
    ASSERT_TRUE(match);
    EXPECT_EQ(match->id, 2);
    EXPECT_NEAR(match->score, 0.3, 1e-12);
}

TEST(SimilarityBest, earlierCandidateWinsATieAndEmptyOnesAreSkipped)
{
    const Fingerprint page = words("acme power electricity account");
    const std::vector<Similarity::Candidate> among { { 5, {} }, { 3, words("acme power electricity") },
        { 4, words("electricity power acme") } };
    EXPECT_EQ(Similarity::best(page, among, { page })->id, 3);
    EXPECT_FALSE(Similarity::best({}, among, { page }));
    EXPECT_FALSE(Similarity::best(page, { { 5, {} } }, { page }));
}

TEST(SimilarityIndex, scoresLikeBestWithItsFingerprintsAsTheCorpusAndFollowsReplacements)
{
    Similarity::Index index;
    const std::vector<Fingerprint> pages { words("acme power electricity account meter"),
        words("acme power electricity invoice meter reading"), words("beta water invoice meter"),
        words("dear customer letter") };
    for (std::size_t i = 0; i < pages.size(); ++i)
        index.replace(std::int64_t(i), pages[i]);

    const auto direct = Similarity::best(pages[0], { { 1, pages[1] }, { 2, pages[2] } }, pages);
    ASSERT_TRUE(direct);
    EXPECT_EQ(index.best(0, { 1, 2, 42 }), direct);
    EXPECT_FALSE(index.best(42, { 1, 2 }));

    // Scan 2 was read again and now reads like scan 0; scan 1 became a letter.
    index.replace(2, words("acme power electricity account meter total"));
    index.replace(1, words("dear customer letter"));
    const std::vector<Fingerprint> now { pages[0], words("dear customer letter"),
        words("acme power electricity account meter total"), pages[3] };
    EXPECT_EQ(index.best(0, { 1, 2 }), Similarity::best(now[0], { { 1, now[1] }, { 2, now[2] } }, now));
    EXPECT_EQ(index.best(0, { 1, 2 })->id, 2);
    EXPECT_EQ(index.size(), 4);
}

} // namespace
