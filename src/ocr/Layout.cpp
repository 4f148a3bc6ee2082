#include "ocr/OCR.h"

#include <algorithm>

namespace OCR {
namespace {

constexpr double sameRow = 0.6;
constexpr double paragraphGap = 1.4;

// Boxes are y-up: y() is the bottom edge.
double bottom(const Line &line)
{
    return line.box.y();
}
double top(const Line &line)
{
    return line.box.y() + line.box.height();
}
double middle(const Line &line)
{
    return line.box.y() + line.box.height() / 2;
}

} // namespace

QString layout(const std::vector<Line> &lines)
{
    std::vector<const Line *> sorted;
    for (const Line &line : lines) {
        if (!line.text.isEmpty())
            sorted.push_back(&line);
    }
    std::stable_sort(
        sorted.begin(), sorted.end(), [](const Line *a, const Line *b) { return middle(*a) > middle(*b); });

    std::vector<std::vector<const Line *>> rows;
    for (const Line *line : sorted) {
        if (!rows.empty()) {
            const Line *first = rows.back().front();
            if (std::abs(middle(*line) - middle(*first))
                < sameRow * std::min(line->box.height(), first->box.height())) {
                rows.back().push_back(line);
                continue;
            }
        }
        rows.push_back({ line });
    }

    std::vector<double> heights;
    for (const Line *line : sorted)
        heights.push_back(line->box.height());
    std::sort(heights.begin(), heights.end());
    const double gap = heights.empty() ? 0 : paragraphGap * heights[heights.size() / 2];

    QString text;
    double previousBottom = 0;
    for (std::size_t index = 0; index < rows.size(); ++index) {
        std::vector<const Line *> &row = rows[index];
        double rowTop = top(*row.front());
        double rowBottom = bottom(*row.front());
        for (const Line *line : row) {
            rowTop = std::max(rowTop, top(*line));
            rowBottom = std::min(rowBottom, bottom(*line));
        }
        if (index > 0 && previousBottom - rowTop > gap)
            text += QLatin1Char('\n');
        std::stable_sort(row.begin(), row.end(), [](const Line *a, const Line *b) { return a->box.x() < b->box.x(); });
        for (std::size_t column = 0; column < row.size(); ++column) {
            if (column > 0)
                text += QStringLiteral("   ");
            text += row[column]->text;
        }
        text += QLatin1Char('\n');
        previousBottom = rowBottom;
    }
    return text.trimmed();
}

} // namespace OCR
