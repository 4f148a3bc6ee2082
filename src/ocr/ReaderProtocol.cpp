#include "ocr/ReaderProtocol.h"

#include <QDataStream>
#include <QIODevice>

#include <cmath>
#include <cstring>
#include <new>

namespace ReaderProtocol {
namespace {

constexpr QDataStream::Version streamVersion = QDataStream::Qt_6_4;
constexpr qsizetype lengthSize = 4;

bool knownKind(quint8 kind)
{
    return kind >= quint8(Kind::read) && kind <= quint8(Kind::sizes);
}

constexpr qsizetype bytesPerPixel = 4;

// The image's size and its rows one after another, without padding.
void writeImage(QDataStream &stream, const QImage &given)
{
    if (given.isNull()) {
        stream << qint32(0) << qint32(0) << QByteArray();
        return;
    }
    const QImage image = given.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const qsizetype rowBytes = image.width() * bytesPerPixel;
    QByteArray pixels(rowBytes * image.height(), Qt::Uninitialized);
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(pixels.data() + y * rowBytes, image.constScanLine(y), std::size_t(rowBytes));
    stream << qint32(image.width()) << qint32(image.height()) << pixels;
}

// A null image for no picture; throws ProtocolError for sizes that don't fit the pixels.
QImage readImage(QDataStream &stream)
{
    qint32 width = 0;
    qint32 height = 0;
    QByteArray pixels;
    stream >> width >> height >> pixels;
    // Only one form means no picture, so that every message has one form.
    if (width == 0 && height == 0 && pixels.isNull())
        return {};
    if (width < 1 || height < 1 || width > maximumImageSide || height > maximumImageSide
        || pixels.size() != qsizetype(width) * height * bytesPerPixel)
        throw ProtocolError("an image whose size doesn't fit its pixels");
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        throw std::bad_alloc();
    const qsizetype rowBytes = width * bytesPerPixel;
    for (int y = 0; y < height; ++y)
        std::memcpy(image.scanLine(y), pixels.constData() + y * rowBytes, std::size_t(rowBytes));
    return image;
}

void writeSizes(QDataStream &stream, const QList<QSizeF> &sizes)
{
    stream << qint32(sizes.size());
    for (const QSizeF &size : sizes)
        stream << size.width() << size.height();
}

// Throws ProtocolError for a count of more sizes than the frame could carry, so that a corrupt count
// never reserves memory, and for a size no page can have.
QList<QSizeF> readSizes(QDataStream &stream, qsizetype frameSize)
{
    qint32 count = 0;
    stream >> count;
    constexpr qsizetype bytesPerSize = 2 * sizeof(double);
    if (count < 0 || count > frameSize / bytesPerSize)
        throw ProtocolError("more sizes than the frame holds");
    QList<QSizeF> sizes;
    sizes.reserve(count);
    for (qint32 index = 0; index < count && stream.status() == QDataStream::Ok; ++index) {
        double width = 0;
        double height = 0;
        stream >> width >> height;
        // A page without area travels as a negative size; one beyond any paper, or no number at all, is
        // no answer a reader gives.
        const auto possible = [](double side) { return std::isfinite(side) && side <= maximumPageSide; };
        if (!possible(width) || !possible(height))
            throw ProtocolError("a page size no page has");
        sizes.append(QSizeF(width, height));
    }
    return sizes;
}

Message decode(const QByteArray &body)
{
    QDataStream stream(body);
    stream.setVersion(streamVersion);
    quint8 kind = 0;
    Message message;
    stream >> kind >> message.text >> message.index >> message.count >> message.rotation;
    message.image = readImage(stream);
    message.sizes = readSizes(stream, body.size());
    if (stream.status() != QDataStream::Ok || !stream.atEnd() || !knownKind(kind))
        throw ProtocolError("a frame that is no message");
    message.kind = Kind(kind);
    return message;
}

} // namespace

QByteArray frame(const Message &message)
{
    QByteArray bytes(lengthSize, '\0');
    {
        QDataStream stream(&bytes, QIODevice::WriteOnly | QIODevice::Append);
        stream.setVersion(streamVersion);
        stream << quint8(message.kind) << message.text << message.index << message.count << message.rotation;
        writeImage(stream, message.image);
        writeSizes(stream, message.sizes);
    }
    const quint32 length = quint32(bytes.size() - lengthSize);
    for (int byte = 0; byte < lengthSize; ++byte)
        bytes[byte] = char((length >> (8 * (lengthSize - 1 - byte))) & 0xff);
    return bytes;
}

void FrameReader::append(const char *bytes, qsizetype size)
{
    buffer_.append(bytes, size);
}

std::optional<Message> FrameReader::next()
{
    if (buffer_.size() < lengthSize)
        return std::nullopt;
    quint32 length = 0;
    for (int byte = 0; byte < lengthSize; ++byte)
        length = (length << 8) | quint8(buffer_[byte]);
    if (length > maximumFrame)
        throw ProtocolError("a frame longer than any message");
    if (buffer_.size() < lengthSize + qsizetype(length))
        return std::nullopt;
    const QByteArray body = buffer_.mid(lengthSize, length);
    buffer_.remove(0, lengthSize + length);
    return decode(body);
}

} // namespace ReaderProtocol
