// fake_reader: answers as vellumark-reader does, for fake scans (support/FakeScans.h), without reading
// any picture; a page it renders is a small picture of its own. Requests arrive on standard input and answers leave on
// standard output; the options the real reader takes are accepted and ignored.
#include "ocr/PageImage.h"
#include "ocr/ReaderProtocol.h"
#include "support/FakeScans.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

using ReaderProtocol::Kind;
using ReaderProtocol::Message;
using ReaderProtocol::message;

void send(const Message &message)
{
    const QByteArray bytes = ReaderProtocol::frame(message);
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t count = ::write(STDOUT_FILENO, bytes.constData() + written, std::size_t(bytes.size() - written));
        if (count <= 0 && errno != EINTR)
            ::_exit(1); // the client is gone
        written += std::max<ssize_t>(count, 0);
    }
}

std::optional<Message> request(ReaderProtocol::FrameReader &frames)
{
    char buffer[4096];
    std::optional<Message> message;
    while (!(message = frames.next())) {
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count == 0 || (count < 0 && errno != EINTR))
            return std::nullopt;
        frames.append(buffer, std::max<ssize_t>(count, 0));
    }
    return message;
}

void appendLine(const QString &path, const QByteArray &line)
{
    QFile log(path);
    if (log.open(QIODevice::Append))
        log.write(line + '\n');
}

// Whether the reader whose id a marker file holds still runs.
bool markerAlive(const QString &marker)
{
    QFile file(marker);
    return file.open(QIODevice::ReadOnly) && !processEnded(file.readAll().trimmed().toLongLong());
}

// Logs the reading of `path` with the readings under way in its folder (support/FakeScans.h). The marker
// holds this reader's id, so that the marker of a reader killed half way counts no longer.
void logReading(const QString &path)
{
    const QString marker = path + QStringLiteral(".reading");
    const bool again = markerAlive(marker);
    QFile mark(marker);
    if (mark.open(QIODevice::WriteOnly | QIODevice::Truncate))
        mark.write(QByteArray::number(::getpid()));
    mark.close();
    const QDir folder = QFileInfo(path).dir();
    qsizetype underway = 0;
    for (const QString &name : folder.entryList({ QStringLiteral("*.reading") }, QDir::Files))
        underway += markerAlive(folder.filePath(name)) ? 1 : 0;
    appendLine(folder.filePath(QString::fromLatin1(fakeReadLog)),
        QFileInfo(path).fileName().toUtf8() + ' ' + QByteArray::number(underway) + ' ' + QByteArray::number(::getpid())
            + (again ? " again" : ""));
}

void read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return send(message(Kind::failed, QStringLiteral("The file couldn't be read: ") + file.errorString()));
    const QByteArray bytes = file.readAll();
    send(message(Kind::hash, QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex())));
    if (!bytes.startsWith(fakeScanMarker))
        return send(message(Kind::failed, QStringLiteral("Not a readable PDF")));
    logReading(path);
    if (bytes.contains(fakeReadCrash))
        ::raise(SIGKILL);
    while (
        bytes.contains(fakeReadHang) || (bytes.contains(fakeReadWait) && !QFile::exists(path + QStringLiteral(".go"))))
        QThread::msleep(10);
    QFile::remove(path + QStringLiteral(".reading"));
    const QStringList pages
        = QString::fromUtf8(bytes.mid(qsizetype(sizeof fakeScanMarker) - 1)).split(QLatin1Char('\f'));
    for (qsizetype index = 0; index < pages.size(); ++index) {
        // "@rotation=DEGREES\n" first: the page was read turned.
        QString text = pages[index];
        qint32 rotation = 0;
        if (text.startsWith(QLatin1String("@rotation="))) {
            rotation = text.section(QLatin1Char('\n'), 0, 0).mid(10).toInt();
            text = text.section(QLatin1Char('\n'), 1);
        }
        send({ Kind::page, text, qint32(index), qint32(pages.size()), rotation, {}, {} });
    }
    send(message(Kind::done));
}

// A portrait page, white with a dark bar along its top, turned as asked.
QImage fakePage(int maxPixel, int rotation)
{
    QImage page(maxPixel * fakePageWidth / fakePageHeight, maxPixel, QImage::Format_ARGB32_Premultiplied);
    page.fill(Qt::white);
    for (int y = 0; y < page.height() / 8; ++y)
        std::fill_n(reinterpret_cast<QRgb *>(page.scanLine(y)), page.width(), qRgb(0, 0, 0));
    return OCR::turned(page, rotation);
}

// The fake scan's bytes; absent, with the failure sent, when the file can't be read or isn't one.
std::optional<QByteArray> fakeScanOrFailure(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        send(message(Kind::failed, QStringLiteral("The file couldn't be read: ") + file.errorString()));
        return std::nullopt;
    }
    QByteArray bytes = file.readAll();
    if (!bytes.startsWith(fakeScanMarker)) {
        send(message(Kind::failed, QStringLiteral("Not a readable PDF")));
        return std::nullopt;
    }
    return bytes;
}

void render(const Message &request)
{
    const std::optional<QByteArray> read = fakeScanOrFailure(request.text);
    if (!read)
        return;
    const QByteArray &bytes = *read;
    const QDir folder = QFileInfo(request.text).dir();
    const QString marker = request.text + QStringLiteral(".rendering");
    appendLine(marker, {});
    const qsizetype rendering = folder.entryList({ QStringLiteral("*.rendering") }, QDir::Files).size();
    appendLine(folder.filePath(QString::fromLatin1(fakeRenderLog)),
        QFileInfo(request.text).fileName().toUtf8() + ' ' + QByteArray::number(rendering));
    if (bytes.contains(fakeRenderCrash))
        ::raise(SIGKILL);
    while (bytes.contains(fakeRenderHang)
        || (bytes.contains(fakeRenderWait) && !QFile::exists(request.text + QStringLiteral(".go"))))
        QThread::msleep(10);
    QFile::remove(marker);
    const qint32 count = qint32(bytes.count('\f') + 1);
    if (request.index >= count)
        return send(message(Kind::failed, QStringLiteral("PDF has no page %1").arg(request.index + 1)));
    send({ Kind::image, {}, request.index, count, 0, fakePage(request.count, request.rotation), {} });
}

// Every page is portrait, as its render is.
void measure(const Message &request)
{
    const std::optional<QByteArray> bytes = fakeScanOrFailure(request.text);
    if (!bytes)
        return;
    Message answer = message(Kind::sizes);
    answer.sizes.fill(QSizeF(fakePageWidth, fakePageHeight), bytes->count('\f') + 1);
    send(answer);
}

} // namespace

int main()
{
    // Ends with the process that started it, as the real reader does.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    send(message(Kind::ready));
    ReaderProtocol::FrameReader frames;
    try {
        while (const std::optional<Message> message = request(frames)) {
            if (message->kind == Kind::read)
                read(message->text);
            else if (message->kind == Kind::render)
                render(*message);
            else if (message->kind == Kind::measure)
                measure(*message);
        }
    } catch (const ReaderProtocol::ProtocolError &) {
    }
    return 0;
}
