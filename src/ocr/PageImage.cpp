#include "ocr/PageImage.h"

#include "ocr/OCR.h"
#include "ocr/PageReading.h"
#include "ocr/ReaderProtocol.h"

#include <QTransform>

#include <poppler/qt6/poppler-qt6.h>

#include <cmath>
#include <new>

namespace OCR {

namespace {

constexpr double pointsPerInch = 72;

} // namespace

QImage turned(const QImage &image, int degrees)
{
    const int quarter = ((degrees % 360) + 360) % 360;
    if (quarter == 0 || quarter % 90 != 0)
        return image;
    // Qt's y axis points down, so a positive angle turns clockwise; quarter turns copy pixels exactly.
    return image.transformed(QTransform().rotate(quarter));
}

PageImage pageImage(const QString &path, int index, int maxPixel, int rotation)
{
    const std::unique_ptr<Poppler::Document> document = openDocument(readWhole(path));
    const int count = document->numPages();
    if (index < 0 || index >= count)
        throw Failure(QStringLiteral("PDF has no page %1").arg(index + 1));
    const std::unique_ptr<Poppler::Page> page = document->page(index);
    const std::optional<QSizeF> size = page ? shownSize(*page) : std::nullopt;
    if (!size)
        throw Failure(QStringLiteral("The page has no area"));
    const int longSide = std::min(maxPixel, ReaderProtocol::maximumImageSide);
    const double scale = longSide / std::max(size->width(), size->height());
    // The larger side is exactly as asked, whatever the rounding of the scale.
    const bool wide = size->width() >= size->height();
    const double width = wide ? longSide : std::trunc(size->width() * scale);
    const double height = wide ? std::trunc(size->height() * scale) : longSide;
    if (!(width >= 1 && height >= 1))
        throw Failure(QStringLiteral("The page is too small to show at that size"));
    const double resolution = pointsPerInch * scale;
    QImage image = page->renderToImage(resolution, resolution, 0, 0, int(width), int(height));
    if (image.isNull())
        throw std::bad_alloc();
    image = turned(image.convertToFormat(QImage::Format_ARGB32_Premultiplied), rotation);
    if (image.isNull())
        throw std::bad_alloc();
    return { image, count };
}

} // namespace OCR
