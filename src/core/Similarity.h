#pragma once

#include <QHash>
#include <QSet>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

// Which filed scan a new one looks like, by the words of their first pages, rare words counting more
// than common ones. Pure functions, plus the index a catalogue keeps of its first pages.
namespace Similarity {

// The distinct words of 3 to 30 letters in the first 2000 characters of a page, lower case.
using Fingerprint = QSet<QString>;

Fingerprint fingerprint(const QString &pageText);

struct Candidate {
    std::int64_t id = 0;
    Fingerprint words;
};

struct Match {
    std::int64_t id = 0;
    double score = 0; // from 0 to 1
    bool operator==(const Match &) const = default;
};

// The candidate most like `target`, scoring at least 0.3 (earlier candidates win ties); the corpus
// tells how rare each word is.
std::optional<Match> best(
    const Fingerprint &target, const std::vector<Candidate> &among, const std::vector<Fingerprint> &corpus);

// The fingerprints of a catalogue's first pages by document id, with how many of them hold each word,
// so that a lookup is a single pass over the candidates' words. Scores are those of `best` with every
// fingerprint held here as the corpus.
class Index {
public:
    // Sets (or adds) the fingerprint of one document.
    void replace(std::int64_t id, const Fingerprint &words);
    bool contains(std::int64_t id) const { return entries_.contains(id); }
    bool isEmpty() const { return entries_.isEmpty(); }
    qsizetype size() const { return entries_.size(); }

    // `best` for the document `id` among the `candidates` that have a fingerprint here, in their order.
    std::optional<Match> best(std::int64_t id, const std::vector<std::int64_t> &candidates) const;

private:
    friend std::optional<Match> Similarity::best(
        const Fingerprint &, const std::vector<Candidate> &, const std::vector<Fingerprint> &);

    using Words = std::vector<int>; // word numbers, ascending

    Words number(const Fingerprint &words);
    void count(const Words &words, int change);
    const std::vector<double> &weights() const;
    std::optional<Match> best(
        const Words &target, const std::vector<std::pair<std::int64_t, const Words *>> &among) const;

    QHash<QString, int> numbers_;
    std::vector<int> documentFrequency_; // by word number
    QHash<std::int64_t, Words> entries_;
    mutable std::vector<double> weights_; // by word number; empty when out of date
    mutable qsizetype weightedCorpus_ = -1;
};

} // namespace Similarity
