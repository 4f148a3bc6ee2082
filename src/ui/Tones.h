#pragma once

#include <QColor>
#include <QPalette>

// The colours the app speaks in, readable on light and dark palettes alike.
namespace Tones {

// Whether the palette is a dark one (light text on a dark base).
bool isDark(const QPalette &palette);
QColor red(const QPalette &palette);
QColor orange(const QPalette &palette);
// Text of less importance: the palette's placeholder-text colour.
QColor secondary(const QPalette &palette);

} // namespace Tones
