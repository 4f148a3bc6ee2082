#include "core/Similarity.h"

#include "core/Graphemes.h"

#include <algorithm>
#include <cmath>

namespace Similarity {

namespace {
constexpr qsizetype pageLength = 2000;
constexpr qsizetype shortestWord = 3;
constexpr qsizetype longestWord = 30;
constexpr double threshold = 0.3;
// Sums of weights carry rounding errors: a likeness of exactly 3 in 10 must not come out just below.
constexpr double rounding = 1e-12;
} // namespace

Fingerprint fingerprint(const QString &pageText)
{
    const QString text = Graphemes::left(pageText, pageLength).toLower();
    Fingerprint words;
    QString word;
    qsizetype letters = 0;
    auto finishWord = [&] {
        if (letters >= shortestWord && letters <= longestWord)
            words.insert(word);
        word.clear();
        letters = 0;
    };
    for (qsizetype i = 0; i < text.size(); ++i) {
        char32_t scalar = text[i].unicode();
        qsizetype units = 1;
        if (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            scalar = QChar::surrogateToUcs4(text[i], text[i + 1]);
            units = 2;
        }
        if (QChar::isLetter(scalar)) {
            word.append(QStringView(text).mid(i, units));
            ++letters;
        } else if (QChar::isMark(scalar) && !word.isEmpty()) {
            word.append(QStringView(text).mid(i, units)); // an accent belongs to its letter
        } else {
            finishWord();
        }
        i += units - 1;
    }
    finishWord();
    return words;
}

Index::Words Index::number(const Fingerprint &words)
{
    Words result;
    result.reserve(std::size_t(words.size()));
    for (const QString &word : words) {
        auto found = numbers_.find(word);
        if (found == numbers_.end()) {
            found = numbers_.insert(word, int(documentFrequency_.size()));
            documentFrequency_.push_back(0);
        }
        result.push_back(*found);
    }
    std::sort(result.begin(), result.end());
    return result;
}

void Index::count(const Words &words, int change)
{
    for (const int word : words)
        documentFrequency_[std::size_t(word)] += change;
    weights_.clear();
}

void Index::replace(std::int64_t id, const Fingerprint &words)
{
    if (const auto old = entries_.constFind(id); old != entries_.cend())
        count(*old, -1);
    Words numbered = number(words);
    count(numbered, +1);
    entries_.insert(id, std::move(numbered));
}

// ln(M / (df + 0.5)) with M = max(corpus size, 1) + 1: words on many first pages weigh little.
const std::vector<double> &Index::weights() const
{
    if (weights_.size() != documentFrequency_.size() || weightedCorpus_ != entries_.size()) {
        const double m = double(std::max<qsizetype>(entries_.size(), 1) + 1);
        weights_.resize(documentFrequency_.size());
        for (std::size_t word = 0; word < documentFrequency_.size(); ++word)
            weights_[word] = std::max(0.0, std::log(m / (documentFrequency_[word] + 0.5)));
        weightedCorpus_ = entries_.size();
    }
    return weights_;
}

std::optional<Match> Index::best(
    const Words &target, const std::vector<std::pair<std::int64_t, const Words *>> &among) const
{
    if (target.empty() || among.empty())
        return std::nullopt;
    const std::vector<double> &weight = weights();
    std::vector<char> inTarget(weight.size(), 0);
    double targetSum = 0;
    for (const int word : target) {
        inTarget[std::size_t(word)] = 1;
        targetSum += weight[std::size_t(word)];
    }

    std::optional<Match> winner;
    for (const auto &[id, words] : among) {
        if (words->empty())
            continue;
        double shared = 0;
        double theirsOnly = 0;
        for (const int word : *words)
            (inTarget[std::size_t(word)] ? shared : theirsOnly) += weight[std::size_t(word)];
        const double all = targetSum + theirsOnly;
        if (all == 0)
            continue;
        const double score = shared / all;
        if (score >= threshold - rounding && (!winner || score > winner->score))
            winner = Match { id, score };
    }
    return winner;
}

std::optional<Match> Index::best(std::int64_t id, const std::vector<std::int64_t> &candidates) const
{
    const auto target = entries_.constFind(id);
    if (target == entries_.cend())
        return std::nullopt;
    std::vector<std::pair<std::int64_t, const Words *>> among;
    among.reserve(candidates.size());
    for (const std::int64_t candidate : candidates)
        if (const auto found = entries_.constFind(candidate); found != entries_.cend())
            among.emplace_back(candidate, &*found);
    return best(*target, among);
}

std::optional<Match> best(
    const Fingerprint &target, const std::vector<Candidate> &among, const std::vector<Fingerprint> &corpus)
{
    if (target.isEmpty() || among.empty())
        return std::nullopt;
    // The corpus makes the frequencies; the target's and candidates' words are numbered after it.
    Index index;
    for (std::size_t i = 0; i < corpus.size(); ++i)
        index.replace(std::int64_t(i), corpus[i]);
    const Index::Words targetWords = index.number(target);
    std::vector<Index::Words> candidateWords;
    candidateWords.reserve(among.size());
    for (const Candidate &candidate : among)
        candidateWords.push_back(index.number(candidate.words));
    std::vector<std::pair<std::int64_t, const Index::Words *>> numbered;
    numbered.reserve(among.size());
    for (std::size_t i = 0; i < among.size(); ++i)
        numbered.emplace_back(among[i].id, &candidateWords[i]);
    return index.best(targetWords, numbered);
}

} // namespace Similarity
