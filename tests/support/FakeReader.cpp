// fake_reader: answers as vellumark-reader does, for fake scans (support/FakeScans.h), without reading
// any picture. Requests arrive on standard input and answers leave on standard output; the options the
// real reader takes are accepted and ignored.
#include "ocr/ReaderProtocol.h"
#include "support/FakeScans.h"

#include <QCryptographicHash>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

using ReaderProtocol::Kind;
using ReaderProtocol::Message;

void send(const Message &message)
{
    const QByteArray bytes = ReaderProtocol::frame(message);
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(STDOUT_FILENO, bytes.constData() + written, std::size_t(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            ::_exit(1); // the client is gone
        written += count;
    }
}

std::optional<Message> request(ReaderProtocol::FrameReader &frames)
{
    char buffer[4096];
    for (;;) {
        if (std::optional<Message> message = frames.next())
            return message;
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return std::nullopt;
        frames.append(buffer, count);
    }
}

void read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        send(ReaderProtocol::message(Kind::failed, QStringLiteral("The file couldn't be read: ") + file.errorString()));
        return;
    }
    const QByteArray bytes = file.readAll();
    send(ReaderProtocol::message(
        Kind::hash, QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex())));
    if (!bytes.startsWith(fakeScanMarker)) {
        send(ReaderProtocol::message(Kind::failed, QStringLiteral("Not a readable PDF")));
        return;
    }
    const QStringList pages
        = QString::fromUtf8(bytes.mid(qsizetype(sizeof fakeScanMarker) - 1)).split(QLatin1Char('\f'));
    for (qsizetype index = 0; index < pages.size(); ++index) {
        QString text = pages[index];
        qint32 rotation = 0;
        const QLatin1String directive("@rotation=");
        if (text.startsWith(directive)) {
            const qsizetype end = text.indexOf(QLatin1Char('\n'));
            rotation = text.mid(directive.size(), end - directive.size()).toInt();
            text = end < 0 ? QString() : text.mid(end + 1);
        }
        send({ Kind::page, text, qint32(index), qint32(pages.size()), rotation });
    }
    send(ReaderProtocol::message(Kind::done));
}

} // namespace

int main()
{
    // Ends with the process that started it, as the real reader does.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    send(ReaderProtocol::message(Kind::ready));
    ReaderProtocol::FrameReader frames;
    try {
        while (const std::optional<Message> message = request(frames)) {
            if (message->kind == Kind::read)
                read(message->text);
        }
    } catch (const ReaderProtocol::ProtocolError &) {
    }
    return 0;
}
