#include "ocr/ReaderProtocol.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace ReaderProtocol;

// The messages that come out of `bytes` fed `chunk` bytes at a time.
std::vector<Message> received(const QByteArray &bytes, qsizetype chunk, FrameReader &reader)
{
    std::vector<Message> messages;
    for (qsizetype at = 0; at < bytes.size(); at += chunk) {
        reader.append(bytes.constData() + at, std::min(chunk, bytes.size() - at));
        while (std::optional<Message> message = reader.next())
            messages.push_back(*message);
    }
    return messages;
}

// A picture of 3 by 2 pixels, each of its own colour and opacity.
QImage smallPicture()
{
    QImage image(3, 2, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qPremultiply(qRgba(40 * x, 90 * y, 200, 255 - 60 * x)));
    }
    return image;
}

// Fed however split, messages arrive whole (pictures pixel for pixel, page sizes exactly) and a frame cut short is
// held; bytes that are no message are refused.
TEST(ReaderProtocol, framesArriveWholeHoweverSplitAndBytesThatAreNoMessageAreRefused)
{
    const std::vector<Message> sent { message(Kind::ready), message(Kind::hash, QString(64, QLatin1Char('a'))),
        { Kind::page, QStringLiteral("Grüße\n\nzweite Zeile"), 1, 3, 270, {}, {} },
        { Kind::page, QString(), 2, 3, 0, {}, {} },
        { Kind::render, QStringLiteral("/scans/Rechnung.pdf"), 0, 120, -90, {}, {} },
        { Kind::image, QString(), 0, 4, 0, smallPicture(), {} }, message(Kind::measure, QStringLiteral("/scans/a.pdf")),
        { Kind::sizes, QString(), 0, 0, 0, {}, { QSizeF(612, 792), QSizeF(), QSizeF(841.89, 595.28) } },
        message(Kind::failed, QStringLiteral("PDF is password protected")), message(Kind::done) };
    QByteArray stream;
    for (const Message &message : sent)
        stream += frame(message);
    for (const qsizetype chunk : { qsizetype(1), qsizetype(7), stream.size() }) {
        FrameReader reader;
        EXPECT_EQ(received(stream.chopped(1), chunk, reader), std::vector(sent.begin(), sent.end() - 1)) << chunk;
        EXPECT_TRUE(reader.holdsPartialFrame()) << chunk;
        EXPECT_EQ(received(stream.right(1), 1, reader), std::vector { sent.back() }) << chunk;
        EXPECT_FALSE(reader.holdsPartialFrame()) << chunk;
    }

    const QByteArray done = frame(message(Kind::done));
    QByteArray unknownKind = done;
    unknownKind[4] = char(99);
    // A length that claims more than the body holds, within a longer frame: the fields run out.
    QByteArray shortBody = done.left(done.size() - 1);
    shortBody[3] = char(shortBody[3] - 1);
    QByteArray trailing = done + 'x';
    trailing[3] = char(trailing[3] + 1);
    // A picture whose size claims one pixel more than it carries.
    QByteArray wrongSize = frame({ Kind::image, QString(), 0, 1, 0, smallPicture(), {} });
    const qsizetype widthAt = wrongSize.indexOf(QByteArray("\0\0\0\x03\0\0\0\x02", 8));
    wrongSize[widthAt + 3] = char(4);
    // Sizes whose count claims far more than the frame carries.
    QByteArray tooManySizes = frame({ Kind::sizes, QString(), 0, 0, 0, {}, { QSizeF(612, 792) } });
    tooManySizes[tooManySizes.size() - 20] = char(0x10);
    // Sizes no page has: not a number, endless, beyond any paper.
    const QByteArray notANumber = frame({ Kind::sizes, QString(), 0, 0, 0, {}, { QSizeF(std::nan(""), 792) } });
    const QByteArray huge = frame({ Kind::sizes, QString(), 0, 0, 0, {}, { QSizeF(612, 1e9) } });
    const QByteArray endless
        = frame({ Kind::sizes, QString(), 0, 0, 0, {}, { QSizeF(std::numeric_limits<double>::infinity(), 1) } });
    for (const QByteArray &bytes : { unknownKind, shortBody, trailing, wrongSize, tooManySizes, notANumber, huge,
             endless, QByteArray("\x7f\xff\xff\xff", 4) }) {
        FrameReader reader;
        EXPECT_THROW(received(bytes, bytes.size(), reader), ProtocolError) << bytes.toHex().toStdString();
    }
}

} // namespace
