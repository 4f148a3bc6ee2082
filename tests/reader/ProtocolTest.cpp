#include "ocr/ReaderProtocol.h"

#include <gtest/gtest.h>

namespace {

using namespace ReaderProtocol;

TEST(ReaderProtocol, messagesArriveWholeHoweverTheBytesAreSplit)
{
    const std::vector<Message> sent { message(Kind::ready), message(Kind::hash, QString(64, QLatin1Char('a'))),
        { Kind::page, QStringLiteral("Grüße\n\nzweite Zeile"), 1, 3, 270 }, { Kind::page, QString(), 2, 3, 0 },
        message(Kind::failed, QStringLiteral("PDF is password protected")), message(Kind::done) };
    QByteArray stream;
    for (const Message &message : sent)
        stream += frame(message);

    // One byte at a time: nothing comes out before a message's last byte, and it comes out then.
    FrameReader reader;
    std::vector<Message> received;
    for (char byte : stream) {
        reader.append(&byte, 1);
        while (std::optional<Message> message = reader.next())
            received.push_back(*message);
    }
    EXPECT_EQ(received, sent);
    EXPECT_FALSE(reader.holdsPartialFrame());

    // All at once.
    FrameReader whole;
    whole.append(stream.constData(), stream.size());
    for (const Message &message : sent)
        EXPECT_EQ(whole.next(), message);
    EXPECT_EQ(whole.next(), std::nullopt);
}

TEST(ReaderProtocol, aFrameCutShortIsHeldAndAFrameThatIsNoMessageIsRefused)
{
    const QByteArray page = frame({ Kind::page, QStringLiteral("Some text"), 0, 2, 90 });
    for (qsizetype cut : { qsizetype(1), qsizetype(4), page.size() - 1 }) {
        FrameReader reader;
        reader.append(page.constData(), cut);
        EXPECT_EQ(reader.next(), std::nullopt) << cut;
        EXPECT_TRUE(reader.holdsPartialFrame()) << cut;
    }

    const auto refused = [](QByteArray bytes) {
        FrameReader reader;
        reader.append(bytes.constData(), bytes.size());
        try {
            reader.next();
        } catch (const ProtocolError &) {
            return true;
        }
        return false;
    };
    QByteArray unknownKind = frame(message(Kind::done));
    unknownKind[4] = char(99);
    EXPECT_TRUE(refused(unknownKind));
    // A length that claims more than the body holds, within a longer frame: the fields run out.
    QByteArray shortBody = frame(message(Kind::done));
    shortBody.chop(1);
    shortBody[3] = char(shortBody[3] - 1);
    EXPECT_TRUE(refused(shortBody));
    QByteArray trailing = frame(message(Kind::done)) + 'x';
    trailing[3] = char(trailing[3] + 1);
    EXPECT_TRUE(refused(trailing));
    EXPECT_TRUE(refused(QByteArray("\x7f\xff\xff\xff", 4)));
}

} // namespace
