#pragma once

#include "ocr/OCR.h"

#include <QByteArray>
#include <QImage>
#include <QSizeF>

#include <memory>
#include <optional>
#include <stop_token>

namespace Poppler {
class Document;
class Page;
} // namespace Poppler

// The two halves of reading one page, apart so that each can be measured, and what reading and
// rendering pages share.
namespace OCR {

// The whole file. Throws Failure when it can't be read.
QByteArray readWhole(const QString &path);

// The PDF in `bytes`, unlocked with the empty password, with at least one page, drawn on white.
// Throws Failure for anything else.
std::unique_ptr<Poppler::Document> openDocument(const QByteArray &bytes);

// The page's size in points as a viewer shows it: the crop box, its sides swapped by a quarter-turn
// /Rotate. Absent when it has no area.
std::optional<QSizeF> shownSize(const Poppler::Page &page);

// The page as a viewer shows it (crop box, turned by its /Rotate) on white, its long side 3300 pixels
// but never more than 4 pixels per point, in grey levels; absent when the page has no area. Throws
// std::bad_alloc when memory runs out.
std::optional<QImage> render(const Poppler::Page &page);

// The page's text and rotation from its bitmap: recognised upright or turned, then laid out.
Page read(const QImage &bitmap, TextRecognizer &recognizer, const std::stop_token &stop = {});

} // namespace OCR
