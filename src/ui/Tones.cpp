#include "ui/Tones.h"

namespace Tones {

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Base).lightnessF() < 0.5;
}

QColor red(const QPalette &palette)
{
    return isDark(palette) ? QColor(0xff, 0x6b, 0x60) : QColor(0xc4, 0x1e, 0x14);
}

QColor orange(const QPalette &palette)
{
    return isDark(palette) ? QColor(0xff, 0xae, 0x42) : QColor(0xb3, 0x5c, 0x00);
}

QColor secondary(const QPalette &palette)
{
    return palette.color(QPalette::PlaceholderText);
}

} // namespace Tones
