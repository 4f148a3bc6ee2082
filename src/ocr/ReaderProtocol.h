#pragma once

#include <QByteArray>
#include <QImage>
#include <QList>
#include <QSizeF>
#include <QString>

#include <optional>
#include <stdexcept>

// What the reader process and its client say to each other. Every message travels as one frame: its
// length as four bytes, most significant first, then its body written with QDataStream. A request names
// one file; the answers are the file's hash, each page as soon as it is read, then the end of the file
// or why it failed. A render request names one page of a file; the answer is its picture, or why there
// is none. A measure request names a file; the answer is the size of each of its pages. Right after start-up the reader
// says it is ready, or why it can't read at all.
namespace ReaderProtocol {

enum class Kind : quint8 {
    read = 1, // request: `text` is the file's path
    ready, // the reader is started and confined
    unavailable, // the reader can't read anything: `text` is why (a language's data is missing)
    hash, // `text` is the file's SHA-256
    page, // `index` of `count`, with the page's `rotation` and `text`
    done, // the file is read
    failed, // `text` is why the file can't be read
    render, // request: page `index` of the file at path `text`, its larger side `count` pixels, then turned
            // `rotation` degrees clockwise
    image, // the rendered page `index` as `image`, of a file of `count` pages
    measure, // request: the size of every page of the file at path `text`, without rendering any
    sizes, // each page's size in points as a viewer shows it (turned by its /Rotate) as `sizes`; an empty
           // size for a page without area
};

struct Message {
    Kind kind = Kind::ready;
    QString text;
    qint32 index = 0;
    qint32 count = 0;
    qint32 rotation = 0;
    // Travels as its size and raw pixels, ARGB32 premultiplied.
    QImage image;
    QList<QSizeF> sizes;
    bool operator==(const Message &) const = default;
};

// A message that carries at most a text.
inline Message message(Kind kind, QString text = {})
{
    return { kind, std::move(text), 0, 0, 0, {}, {} };
}

// The failure a reader answers when it runs out of memory; it ends right after.
inline const QString tooLarge = QStringLiteral("PDF is too large to read");

// The largest frame either side accepts; a longer one means the stream is corrupt.
constexpr qint64 maximumFrame = 64 * 1024 * 1024;

// The longest side of a rendered page: its pixels must fit in a frame.
constexpr int maximumImageSide = 4000;

// The longest side of a page in points that a size answer may give: far beyond any paper (a PDF page
// is at most 14,400 points without a user unit).
constexpr double maximumPageSide = 1'000'000;

// A frame that can't be a message: unknown kind, trailing or missing bytes, or too long.
struct ProtocolError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The message as one frame, length included.
QByteArray frame(const Message &message);

// Collects bytes as they arrive and hands out whole messages.
class FrameReader {
public:
    void append(const char *bytes, qsizetype size);
    // The next whole message, absent until all of its bytes have arrived. Throws ProtocolError.
    std::optional<Message> next();
    // Whether bytes of a message that hasn't fully arrived are held: at the end of the stream, a frame
    // cut short.
    bool holdsPartialFrame() const { return !buffer_.isEmpty(); }

private:
    QByteArray buffer_;
};

} // namespace ReaderProtocol
