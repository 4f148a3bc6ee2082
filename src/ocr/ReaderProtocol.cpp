#include "ocr/ReaderProtocol.h"

#include <QDataStream>
#include <QIODevice>

namespace ReaderProtocol {
namespace {

constexpr QDataStream::Version streamVersion = QDataStream::Qt_6_4;
constexpr qsizetype lengthSize = 4;

bool knownKind(quint8 kind)
{
    return kind >= quint8(Kind::read) && kind <= quint8(Kind::failed);
}

Message decode(const QByteArray &body)
{
    QDataStream stream(body);
    stream.setVersion(streamVersion);
    quint8 kind = 0;
    Message message;
    stream >> kind >> message.text >> message.index >> message.count >> message.rotation;
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
