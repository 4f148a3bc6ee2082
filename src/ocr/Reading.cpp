#include "ocr/Reading.h"

#include "core/Cancellation.h"
#include "core/Graphemes.h"

#include <algorithm>
#include <limits>
#include <set>

namespace OCR {
namespace {

constexpr double uprightShare = 0.75;
constexpr int enoughWords = 12;
constexpr double knownShare = 0.4;

QPointF turnedPoint(QPointF point, int degrees)
{
    switch (degrees) {
    case 90:
        return { point.y(), 1 - point.x() };
    case 180:
        return { 1 - point.x(), 1 - point.y() };
    case 270:
        return { 1 - point.y(), point.x() };
    default:
        return point;
    }
}

QRectF turnedBox(const QRectF &box, int degrees)
{
    const QPointF a = turnedPoint({ box.left(), box.top() }, degrees);
    const QPointF b = turnedPoint({ box.right(), box.bottom() }, degrees);
    return { std::min(a.x(), b.x()), std::min(a.y(), b.y()), std::abs(a.x() - b.x()), std::abs(a.y() - b.y()) };
}

} // namespace

Reading::Reading(int rotation, std::vector<Line> lines)
    : rotation_(rotation)
    , lines_(std::move(lines))
{
    std::map<int, QStringList> textsByTurn;
    for (const Line &line : lines_) {
        charactersByTurn_[line.turn] += int(Graphemes::count(line.text, std::numeric_limits<int>::max()));
        textsByTurn[line.turn] << line.text;
    }
    for (const auto &[turn, texts] : textsByTurn)
        wordsByTurn_[turn] = TextQuality::words(texts.join(QLatin1Char('\n')));
}

int Reading::total() const
{
    int sum = 0;
    for (const auto &[turn, characters] : charactersByTurn_)
        sum += characters;
    return sum;
}

bool Reading::isGood() const
{
    const auto upright = charactersByTurn_.find(0);
    const int up = upright == charactersByTurn_.end() ? 0 : upright->second;
    if (total() * uprightShare > up)
        return false;
    const auto words = wordsByTurn_.find(0);
    if (words == wordsByTurn_.end() || words->second.total < enoughWords)
        return true;
    return words->second.total * knownShare <= words->second.real;
}

std::array<int, 3> Reading::score() const
{
    const auto words = wordsByTurn_.find(0);
    const auto characters = charactersByTurn_.find(0);
    return { words == wordsByTurn_.end() ? 0 : words->second.real,
        characters == charactersByTurn_.end() ? 0 : characters->second, total() };
}

Reading Reading::upright() const
{
    int dominant = 0;
    int most = -1;
    // The map is ordered by turn, so on equal counts the smaller turn is kept.
    for (const auto &[turn, characters] : charactersByTurn_) {
        if (characters > most) {
            dominant = turn;
            most = characters;
        }
    }
    if (most < 0 || dominant == 0)
        return *this;
    return turned(dominant);
}

Reading Reading::turned(int degrees) const
{
    const int rotation = (rotation_ + degrees) % 360;
    std::vector<Line> lines;
    lines.reserve(lines_.size());
    for (const Line &line : lines_)
        lines.push_back({ line.text, turnedBox(line.box, degrees), (line.turn - degrees + 360) % 360 });
    return Reading(rotation, std::move(lines));
}

Reading bestReading(const Reading &first, const Reread &reread, const std::stop_token &stop)
{
    Reading best = first.upright();
    if (best.isGood())
        return best;

    // The directions lines actually ran in, most characters first, then a guess from the overall shape.
    std::vector<std::pair<int, int>> sideways;
    for (const auto &[turn, characters] : first.charactersByTurn()) {
        if (turn != 0)
            sideways.emplace_back(turn, characters);
    }
    std::stable_sort(sideways.begin(), sideways.end(), [](auto a, auto b) { return a.second > b.second; });
    std::vector<int> order;
    for (const auto &[turn, characters] : sideways)
        order.push_back(turn);
    const auto count = [&](int turn) {
        const auto found = first.charactersByTurn().find(turn);
        return found == first.charactersByTurn().end() ? 0 : found->second;
    };
    if (count(0) + count(180) >= count(90) + count(270))
        order.push_back(180);
    else
        order.insert(order.end(), { 90, 270 });

    std::set<int> read { 0 };
    for (int rotation : order) {
        if (!read.insert(rotation).second)
            continue;
        throwIfCancelled(stop);
        Reading candidate = reread(rotation).upright();
        if (best.score() < candidate.score())
            best = std::move(candidate);
        if (best.isGood())
            return best;
    }
    return best;
}

} // namespace OCR
