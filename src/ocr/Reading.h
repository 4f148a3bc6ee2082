#pragma once

#include "ocr/TextQuality.h"

#include <QRectF>
#include <QString>

#include <array>
#include <functional>
#include <map>
#include <stop_token>
#include <vector>

namespace OCR {

// One recognised line. `box` is normalized to the image the recogniser saw (0…1, origin bottom-left,
// y up); `turn` is how far clockwise the line must be turned to read left to right.
struct Line {
    QString text;
    QRectF box;
    int turn = 0;
    bool operator==(const Line &) const = default;
};

// The lines of one recognition pass at a rotation, with their character and word counts per direction.
class Reading {
public:
    Reading(int rotation, std::vector<Line> lines);

    int rotation() const { return rotation_; }
    const std::vector<Line> &lines() const { return lines_; }
    const std::map<int, int> &charactersByTurn() const { return charactersByTurn_; }
    const std::map<int, TextQuality::Words> &wordsByTurn() const { return wordsByTurn_; }

    int total() const;
    // Three quarters of the characters on lines that read left to right, and enough known words there.
    bool isGood() const;
    // Known upright words, then upright characters, then all characters; compared lexicographically.
    std::array<int, 3> score() const;
    // Turned so that the direction most characters run in reads left to right.
    Reading upright() const;
    Reading turned(int degrees) const;

private:
    int rotation_ = 0;
    std::vector<Line> lines_;
    std::map<int, int> charactersByTurn_;
    std::map<int, TextQuality::Words> wordsByTurn_;
};

// Reads the page again at a rotation (90, 180 or 270).
using Reread = std::function<Reading(int rotation)>;

// The best reading of a page, starting from the pass at rotation 0 and reading again only when that is
// not good; each rotation is read at most once. Throws Cancelled when stopped before a re-read.
Reading bestReading(const Reading &first, const Reread &reread, const std::stop_token &stop = {});

} // namespace OCR
