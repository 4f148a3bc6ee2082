#include "ocr/ReaderProtocol.h"

#include <gtest/gtest.h>

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

// Fed however split, messages arrive whole and a frame cut short is held; bytes that are no message
// are refused.
TEST(ReaderProtocol, framesArriveWholeHoweverSplitAndBytesThatAreNoMessageAreRefused)
{
    const std::vector<Message> sent { message(Kind::ready), message(Kind::hash, QString(64, QLatin1Char('a'))),
        { Kind::page, QStringLiteral("Grüße\n\nzweite Zeile"), 1, 3, 270 }, { Kind::page, QString(), 2, 3, 0 },
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
    for (const QByteArray &bytes : { unknownKind, shortBody, trailing, QByteArray("\x7f\xff\xff\xff", 4) }) {
        FrameReader reader;
        EXPECT_THROW(received(bytes, bytes.size(), reader), ProtocolError) << bytes.toHex().toStdString();
    }
}

} // namespace
