#pragma once

#include "ocr/OCR.h"

#include <QImage>

#include <optional>
#include <stop_token>

namespace Poppler {
class Page;
}

// The two halves of reading one page, apart so that each can be measured.
namespace OCR {

// The page as a viewer shows it (crop box, turned by its /Rotate) on white, its long side 3300 pixels
// but never more than 4 pixels per point, in grey levels; absent when the page has no area. Throws
// std::bad_alloc when memory runs out.
std::optional<QImage> render(const Poppler::Page &page);

// The page's text and rotation from its bitmap: recognised upright or turned, then laid out.
Page read(const QImage &bitmap, TextRecognizer &recognizer, const std::stop_token &stop = {});

} // namespace OCR
