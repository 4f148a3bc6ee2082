#pragma once

#include <QImage>
#include <QString>

// Pictures of pages for people to look at (thumbnails, the preview), as against the bitmaps that are read.
namespace OCR {

struct PageImage {
    QImage image; // ARGB32 premultiplied
    int pageCount = 0; // of the file
};

// Page `index` (from 0) of the PDF at `path` as a viewer shows it (the crop box, turned by its /Rotate),
// on white, its larger side `maxPixel` pixels (at most ReaderProtocol::maximumImageSide), then turned
// `rotation` degrees clockwise. Throws Failure when the file gives no picture (not a PDF, no such page,
// a page too thin to show at that size); std::bad_alloc when memory runs out.
PageImage pageImage(const QString &path, int index, int maxPixel, int rotation);

// `image` turned `degrees` clockwise, any multiple of 90 (-90 is 270); other angles leave it as it is.
QImage turned(const QImage &image, int degrees);

} // namespace OCR
