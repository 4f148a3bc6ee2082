#pragma once

// Synthetic scan text for the benchmarks: a fixed-seed vocabulary of the words of bills and letters
// plus made-up names and terms with a Zipf-like frequency, and page texts made of it as text
// recognition gives them (lines of words, sentences, amounts, dates, references).

#include <QString>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// splitmix64: small, fast, and the same sequence on every platform for a given seed.
class Random {
public:
    explicit Random(std::uint64_t seed)
        : state_(seed)
    {
    }
    std::uint64_t next()
    {
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    // 0 <= value < bound
    int below(int bound) { return int(next() % std::uint64_t(bound)); }
    bool chance(int percent) { return below(100) < percent; }
    double unit() { return double(next() >> 11) * 0x1.0p-53; }

private:
    std::uint64_t state_;
};

// Words that letters, bills and statements are made of; the most frequent first.
constexpr const char *commonWords
    = "the of and to your a you for in account is this on payment please amount be we date with "
      "balance or due by total our if at statement from number will are service may have not any "
      "customer charges period information call policy notice page tax insurance new credit interest "
      "received invoice contact coverage paid bill month year annual current previous department "
      "member questions provided online address subject available benefits plan claim billing summary "
      "details fee fees rate deposit withdrawal transaction transactions ending beginning minimum "
      "monthly reference agreement terms conditions applicable including additional following "
      "important changes effective premium deductible provider patient medical health services usage "
      "meter electric gas water energy internet phone wireless mobile data loan mortgage "
      "principal escrow property county state federal income wages withholding employer employee "
      "gross net deductions retirement contribution investment dividends shares fund market value "
      "purchase purchases refund returned order shipping item quantity price subtotal discount "
      "receipt store school student tuition enrollment donation gift thank sincerely regards dear "
      "letter enclosed attached review confirm request approved denied appeal renewal expires license "
      "registration vehicle office court legal owner tenant lease rent security privacy protect "
      "identity card visa mastercard checking savings branch routing automatic autopay scheduled late "
      "overdue reminder final résumé café naïve Müller Zürich señor façade";

// A fixed vocabulary: the common words, then made-up names and terms from syllables, drawn with a
// Zipf-like frequency so that the full-text index sees both very common and very rare words.
class Vocabulary {
public:
    Vocabulary()
    {
        Random random(20240611);
        for (std::string_view rest = commonWords; !rest.empty();) {
            const std::size_t end = std::min(rest.find(' '), rest.size());
            words_.emplace_back(rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        static constexpr std::array syllables = { "ka", "ro", "mi", "ten", "sal", "ver", "dor", "lin", "pa", "qu", "es",
            "bri", "ton", "gal", "mor", "ash", "ford", "ley", "win", "ham", "ell", "ber", "cas", "den", "ri", "no",
            "sta", "vel", "um", "ox" };
        while (words_.size() < 8'000) {
            std::string word;
            const int count = 2 + random.below(3);
            for (int i = 0; i < count; ++i)
                word += syllables[std::size_t(random.below(int(syllables.size())))];
            words_.push_back(std::move(word));
        }
        // Slot s of the table holds the word whose share of the cumulative frequency covers s.
        std::vector<double> cumulative(words_.size());
        double sum = 0;
        for (std::size_t rank = 0; rank < words_.size(); ++rank)
            cumulative[rank] = (sum += 1.0 / std::pow(double(rank + 1), 0.9));
        table_.resize(std::size_t(1) << 18);
        std::size_t rank = 0;
        for (std::size_t slot = 0; slot < table_.size(); ++slot) {
            const double at = (double(slot) + 0.5) / double(table_.size()) * sum;
            while (cumulative[rank] < at)
                ++rank;
            table_[slot] = std::uint16_t(rank);
        }
    }

    const std::string &pick(Random &random) const { return words_[table_[random.next() & (table_.size() - 1)]]; }
    // The one vocabulary every page is made of.
    static const Vocabulary &shared()
    {
        static const Vocabulary vocabulary;
        return vocabulary;
    }

    // Every word, the most frequent first.
    const std::vector<std::string> &words() const { return words_; }

private:
    std::vector<std::string> words_;
    std::vector<std::uint16_t> table_;
};

// Page texts as text recognition gives them: lines of words, sentences, amounts, dates, references.
class PageWriter {
public:
    // Pages of about `length` characters (give or take 150).
    PageWriter(std::uint64_t seed, int length)
        : random_(seed)
        , length_(length)
    {
    }

    QString page()
    {
        const Vocabulary &vocabulary = Vocabulary::shared();
        std::string text;
        const int length = length_ - 150 + random_.below(301);
        text.reserve(std::size_t(length) + 64);
        bool sentenceStart = true;
        int lineWords = 0;
        while (int(text.size()) < length) {
            if (!text.empty()) {
                const bool newLine = lineWords >= 9 + random_.below(4);
                text += newLine ? '\n' : ' ';
                if (newLine)
                    lineWords = 0;
            }
            if (random_.chance(8)) {
                appendNumber(text);
            } else {
                const std::string &word = vocabulary.pick(random_);
                text += word;
                if (sentenceStart && word[0] >= 'a' && word[0] <= 'z')
                    text[text.size() - word.size()] = char(word[0] - 'a' + 'A');
            }
            ++lineWords;
            sentenceStart = random_.chance(9);
            if (sentenceStart)
                text += random_.chance(85) ? '.' : ':';
            else if (random_.chance(4))
                text += ',';
        }
        return QString::fromUtf8(text.data(), qsizetype(text.size()));
    }

private:
    void appendNumber(std::string &text)
    {
        char buffer[48];
        switch (random_.below(5)) {
        case 0:
            std::snprintf(buffer, sizeof buffer, "$%d.%02d", random_.below(5'000), random_.below(100));
            break;
        case 1:
            std::snprintf(buffer, sizeof buffer, "%02d/%02d/%d", 1 + random_.below(12), 1 + random_.below(28),
                2008 + random_.below(17));
            break;
        case 2:
            std::snprintf(buffer, sizeof buffer, "INV-%06d", random_.below(1'000'000));
            break;
        case 3:
            std::snprintf(buffer, sizeof buffer, "(%03d) %03d-%04d", 200 + random_.below(800), random_.below(1'000),
                random_.below(10'000));
            break;
        default:
            std::snprintf(buffer, sizeof buffer, "%d", random_.below(10'000));
            break;
        }
        text += buffer;
    }

    Random random_;
    int length_;
};

} // namespace bench
