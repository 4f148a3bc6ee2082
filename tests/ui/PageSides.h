#pragma once

#include <QImage>

#include <algorithm>
#include <utility>
#include <vector>

enum class Side { top, right, bottom, left, none };

// The edge of the picture nearest to its dark pixels: the fake page's bar, or a letter's lines.
inline Side topSide(const QImage &image)
{
    double x = 0;
    double y = 0;
    double count = 0;
    for (int row = 0; row < image.height(); ++row) {
        for (int column = 0; column < image.width(); ++column) {
            if (qGray(image.pixel(column, row)) < 128) {
                x += (column + 0.5) / image.width();
                y += (row + 0.5) / image.height();
                ++count;
            }
        }
    }
    if (count == 0)
        return Side::none;
    x /= count;
    y /= count;
    const std::vector<std::pair<double, Side>> distances { { y, Side::top }, { 1 - x, Side::right },
        { 1 - y, Side::bottom }, { x, Side::left } };
    return std::ranges::min(distances).second;
}
