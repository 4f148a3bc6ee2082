#include "ocr/OCR.h"

#include "core/Cancellation.h"
#include "ocr/PageReading.h"
#include "ocr/TextRecognizer.h"

#include <QCryptographicHash>
#include <QFile>
#include <QImage>

#include <poppler/qt6/poppler-qt6.h>

#include <cmath>
#include <new>

namespace OCR {
namespace {

constexpr double longSide = 3300;
constexpr double maximumScale = 4.0;
constexpr double pointsPerInch = 72;

QString hexDigest(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

void ignorePopplerMessage(const QString &, const QVariant &) { }

} // namespace

QByteArray readWhole(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Failure(QStringLiteral("The file couldn't be read: ") + file.errorString());
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw Failure(QStringLiteral("The file couldn't be read: ") + file.errorString());
    return bytes;
}

std::unique_ptr<Poppler::Document> openDocument(const QByteArray &bytes)
{
    Poppler::setDebugErrorFunction(ignorePopplerMessage, QVariant());
    std::unique_ptr<Poppler::Document> document = Poppler::Document::loadFromData(bytes);
    if (!document)
        throw Failure(QStringLiteral("Not a readable PDF"));
    if (document->isLocked()) {
        document->unlock(QByteArray(), QByteArray());
        if (document->isLocked())
            throw Failure(QStringLiteral("PDF is password protected"));
    }
    if (document->numPages() < 1)
        throw Failure(QStringLiteral("PDF has no pages"));
    document->setPaperColor(Qt::white);
    document->setRenderHint(Poppler::Document::Antialiasing);
    document->setRenderHint(Poppler::Document::TextAntialiasing);
    return document;
}

std::optional<QSizeF> shownSize(const Poppler::Page &page)
{
    const QSizeF size = page.pageSizeF();
    if (!std::isfinite(size.width()) || !std::isfinite(size.height()) || size.width() <= 0 || size.height() <= 0)
        return std::nullopt;
    return size;
}

std::optional<QImage> render(const Poppler::Page &page)
{
    const std::optional<QSizeF> size = shownSize(page);
    if (!size)
        return std::nullopt;
    const double width = size->width();
    const double height = size->height();
    const double scale = std::min(longSide / std::max(width, height), maximumScale);
    const double pixelWidth = std::trunc(width * scale);
    const double pixelHeight = std::trunc(height * scale);
    if (!(pixelWidth >= 1 && pixelHeight >= 1 && pixelWidth <= longSide && pixelHeight <= longSide))
        return std::nullopt;
    const double resolution = pointsPerInch * scale;
    QImage image = page.renderToImage(resolution, resolution, 0, 0, int(pixelWidth), int(pixelHeight));
    // A page of this size renders unless memory runs out; reading it as blank would lose its text.
    if (image.isNull())
        throw std::bad_alloc();
    // The recogniser works on grey levels; converting here keeps a single page-sized bitmap alive.
    image = image.convertToFormat(QImage::Format_Grayscale8);
    if (image.isNull())
        throw std::bad_alloc();
    const int dotsPerMeter = qRound(resolution / 0.0254);
    image.setDotsPerMeterX(dotsPerMeter);
    image.setDotsPerMeterY(dotsPerMeter);
    return image;
}

namespace {

// A bitmap of one shade has nothing to read.
bool isBlank(const QImage &bitmap)
{
    const uchar shade = bitmap.constScanLine(0)[0];
    for (int y = 0; y < bitmap.height(); ++y) {
        const uchar *row = bitmap.constScanLine(y);
        for (int x = 0; x < bitmap.width(); ++x) {
            if (row[x] != shade)
                return false;
        }
    }
    return true;
}

} // namespace

Page read(const QImage &bitmap, TextRecognizer &recognizer, const std::stop_token &stop)
{
    if (isBlank(bitmap))
        return {};
    const Reading first = recognizer.reading(bitmap, 0, stop);
    const Reading best = bestReading(
        first, [&](int rotation) { return recognizer.reading(bitmap, rotation, stop); }, stop);
    return { layout(best.lines()), best.rotation() };
}

Result recognize(const QString &path, TextRecognizer &recognizer, const std::stop_token &stop, const PageRead &pageRead,
    const Hashed &hashed)
{
    const QByteArray bytes = readWhole(path);
    Result result;
    result.sha256 = hexDigest(bytes);
    if (hashed)
        hashed(result.sha256);

    const std::unique_ptr<Poppler::Document> document = openDocument(bytes);
    const int count = document->numPages();

    result.pages.reserve(std::size_t(count));
    for (int index = 0; index < count; ++index) {
        throwIfCancelled(stop);
        Page page;
        if (const std::unique_ptr<Poppler::Page> pdfPage = document->page(index)) {
            if (const std::optional<QImage> bitmap = render(*pdfPage))
                page = read(*bitmap, recognizer, stop);
        }
        result.pages.push_back(page);
        if (pageRead)
            pageRead(index, count, page);
    }
    return result;
}

std::optional<QString> sha256(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file) || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return QString::fromLatin1(hash.result().toHex());
}

} // namespace OCR
