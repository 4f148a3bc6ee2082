// Any bytes from a reader process, which a PDF may have taken over, handed to the frame reader in pieces
// whose sizes come from the input itself. Only ProtocolError may come out; every message read is one
// that frames back to the same bytes; reading the same bytes in one piece gives the same messages.
#include "ocr/ReaderProtocol.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

// The messages, and whether the stream was refused.
std::pair<std::vector<ReaderProtocol::Message>, bool> readAll(const QByteArray &bytes, std::size_t piece)
{
    ReaderProtocol::FrameReader reader;
    std::vector<ReaderProtocol::Message> messages;
    try {
        for (qsizetype start = 0; start < bytes.size(); start += qsizetype(piece)) {
            reader.append(bytes.constData() + start, std::min<qsizetype>(qsizetype(piece), bytes.size() - start));
            while (std::optional<ReaderProtocol::Message> message = reader.next())
                messages.push_back(*message);
        }
    } catch (const ReaderProtocol::ProtocolError &) {
        return { messages, true };
    }
    return { messages, false };
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::size_t piece = 1 + data[0] % 16;
    const QByteArray bytes(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    const auto [pieces, refusedInPieces] = readAll(bytes, piece);
    const auto [whole, refusedWhole] = readAll(bytes, std::max<std::size_t>(1, size));
    if (pieces != whole || refusedInPieces != refusedWhole)
        std::abort();
    QByteArray framed;
    for (const ReaderProtocol::Message &message : whole)
        framed += ReaderProtocol::frame(message);
    if (!bytes.startsWith(framed))
        std::abort();
    return 0;
}
