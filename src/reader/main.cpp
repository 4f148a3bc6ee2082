// vellumark-reader: reads PDFs and renders their pages for another process, one request at a time,
// confined once started. With --renders-only it loads no text recogniser and only renders.
// Requests arrive on standard input and answers leave on standard output, as frames of ReaderProtocol;
// whatever the libraries print is kept off the user's terminal (see EngineMessages).
#include "ocr/EngineThreads.h"
#include "ocr/OCR.h"
#include "ocr/PageImage.h"
#include "ocr/PageReading.h"
#include "ocr/ReaderProtocol.h"
#include "ocr/TextQuality.h"
#include "ocr/TextRecognizer.h"
#include "reader/Confinement.h"

#include <QByteArray>

#include <poppler/qt6/poppler-qt6.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define READER_SANITIZED
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define READER_SANITIZED
#endif
#ifdef READER_SANITIZED
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

using ReaderProtocol::Kind;
using ReaderProtocol::Message;

int answers = -1;

// What the engines print on standard error or standard output ("Detected 89 diacritics", "Empty
// page!!", Leptonica's complaints) means nothing to the user, and Tesseract writes it to the terminal
// once the reader is confined, as its debug file can no longer be opened. So both pass through a pipe
// and are dropped, or passed on to where standard error went before when VELLUMARK_READER_DEBUG=1.
// The pipe is also watched: Poppler says "Out of memory" and carries on without the picture it couldn't
// make room for, and Qt gives a null image with a warning; either way the page would read as blank.
class EngineMessages {
public:
    void start()
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return;
        const int terminal = ::dup(STDERR_FILENO);
        if (qgetenv("VELLUMARK_READER_DEBUG") == "1")
            passOn_ = terminal;
        keepSanitizerReports(terminal);
        watched_ = ends[0];
        ::fcntl(watched_, F_SETFL, O_NONBLOCK);
        ::dup2(ends[1], STDERR_FILENO);
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[1]);
        std::thread([this] {
            for (;;) {
                pollfd readable { watched_, POLLIN, 0 };
                if (::poll(&readable, 1, -1) < 0 && errno != EINTR)
                    return;
                std::lock_guard lock(mutex_);
                drain();
            }
        }).detach();
    }

    // Whether memory ran out in what was written so far.
    bool outOfMemory()
    {
        std::lock_guard lock(mutex_);
        drain();
        return outOfMemory_;
    }

private:
    // A sanitizer's report is no chatter: it goes straight to the terminal.
    static void keepSanitizerReports([[maybe_unused]] int terminal)
    {
#ifdef READER_SANITIZED
        __sanitizer_set_report_fd(reinterpret_cast<void *>(std::intptr_t(terminal)));
#endif
    }

    void drain()
    {
        if (watched_ < 0)
            return;
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::read(watched_, buffer, sizeof buffer)) > 0) {
            if (passOn_ >= 0) {
                [[maybe_unused]] const ssize_t written = ::write(passOn_, buffer, std::size_t(count));
            }
            // The end of the last piece too, for words cut in two.
            recent_.append(buffer, count);
            recent_ = recent_.right(1024);
            if (recent_.toLower().contains("out of memory"))
                outOfMemory_ = true;
        }
    }

    int watched_ = -1;
    int passOn_ = -1;
    std::mutex mutex_;
    QByteArray recent_;
    bool outOfMemory_ = false;
};

EngineMessages engineMessages;

void printMessage(QtMsgType, const QMessageLogContext &, const QString &message)
{
    std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

void send(const Message &message)
{
    const QByteArray bytes = ReaderProtocol::frame(message);
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(answers, bytes.constData() + written, std::size_t(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            ::_exit(1); // the client is gone
        written += count;
    }
}

// The next request, or absent at the end of the input.
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

// A one-page PDF with a line of text in a font that isn't embedded, so that reading it once loads what
// reading needs later (fonts and their configuration, the dictionaries, the engine's own tables).
QByteArray warmUpPdf()
{
    const QByteArray content = "BT /F1 24 Tf 12 24 Td (Reading starts here) Tj ET";
    const QList<QByteArray> objects {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 240 72] /Contents 4 0 R /Resources << /Font << /F1 5 0 R >> "
        ">> >>",
        "<< /Length " + QByteArray::number(content.size()) + " >>\nstream\n" + content + "\nendstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
    };
    QByteArray pdf = "%PDF-1.4\n";
    QList<qsizetype> offsets;
    for (qsizetype index = 0; index < objects.size(); ++index) {
        offsets << pdf.size();
        pdf += QByteArray::number(index + 1) + " 0 obj\n" + objects[index] + "\nendobj\n";
    }
    const qsizetype table = pdf.size();
    pdf += "xref\n0 " + QByteArray::number(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (qsizetype offset : offsets)
        pdf += QByteArray::number(offset).rightJustified(10, '0') + " 00000 n \n";
    pdf += "trailer\n<< /Size " + QByteArray::number(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n"
        + QByteArray::number(table) + "\n%%EOF\n";
    return pdf;
}

void ignorePopplerMessage(const QString &, const QVariant &) { }

// Without a recogniser, the page is only rendered.
void warmUp(TextRecognizer *recognizer)
{
    Poppler::setDebugErrorFunction(ignorePopplerMessage, QVariant());
    const std::unique_ptr<Poppler::Document> document = Poppler::Document::loadFromData(warmUpPdf());
    if (!document)
        return;
    document->setPaperColor(Qt::white);
    document->setRenderHint(Poppler::Document::Antialiasing);
    document->setRenderHint(Poppler::Document::TextAntialiasing);
    if (const std::unique_ptr<Poppler::Page> page = document->page(0)) {
        if (const std::optional<QImage> bitmap = OCR::render(*page); bitmap && recognizer)
            OCR::read(*bitmap, *recognizer);
    }
}

void limitMemory(long megabytes)
{
#ifdef VELLUMARK_NO_MEMORY_LIMIT
    // AddressSanitizer reserves terabytes of address space for itself.
    megabytes = 0;
#endif
    if (megabytes <= 0)
        return;
    const rlim_t bytes = rlim_t(megabytes) * 1024 * 1024;
    const rlimit limit { bytes, bytes };
    ::setrlimit(RLIMIT_DATA, &limit);
}

// Does one request's work, answering its failure when it fails.
void answering(const std::function<void()> &work)
{
    try {
        work();
    } catch (const OCR::Failure &failure) {
        send(ReaderProtocol::message(Kind::failed, failure.message()));
    } catch (const std::bad_alloc &) {
        send(ReaderProtocol::message(Kind::failed, ReaderProtocol::tooLarge));
        // What was half built may be lost for good: the next file gets a fresh reader.
        ::_exit(0);
    } catch (const std::exception &error) {
        send(ReaderProtocol::message(Kind::failed, QString::fromUtf8(error.what())));
    }
}

void read(TextRecognizer &recognizer, const QString &path)
{
    answering([&] {
        OCR::recognize(
            path, recognizer, {},
            [](int index, int count, const OCR::Page &page) {
                if (engineMessages.outOfMemory())
                    throw std::bad_alloc();
                send({ Kind::page, page.text, index, count, page.rotation, {}, {} });
            },
            [](const QString &sha256) { send(ReaderProtocol::message(Kind::hash, sha256)); });
        send(ReaderProtocol::message(Kind::done));
    });
}

void render(const Message &request)
{
    answering([&] {
        const OCR::PageImage page = OCR::pageImage(request.text, request.index, request.count, request.rotation);
        if (engineMessages.outOfMemory())
            throw std::bad_alloc();
        send({ Kind::image, {}, request.index, page.pageCount, 0, page.image, {} });
    });
}

// Opening the file is all it takes: no page is drawn.
void measure(const Message &request)
{
    answering([&] {
        const std::unique_ptr<Poppler::Document> document = OCR::openDocument(OCR::readWhole(request.text));
        Message answer = ReaderProtocol::message(Kind::sizes);
        const int count = document->numPages();
        answer.sizes.reserve(count);
        for (int index = 0; index < count; ++index) {
            const std::unique_ptr<Poppler::Page> page = document->page(index);
            const std::optional<QSizeF> size = page ? OCR::shownSize(*page) : std::nullopt;
            // A page larger than the answer may carry is shown as one without area.
            const bool fits = size && std::max(size->width(), size->height()) <= ReaderProtocol::maximumPageSide;
            answer.sizes.append(fits ? *size : QSizeF());
        }
        if (engineMessages.outOfMemory())
            throw std::bad_alloc();
        send(answer);
    });
}

} // namespace

int main(int argc, char *argv[])
{
    limitEngineThreads(argv);
    // Ends with the thread that started it, should that go without closing the pipes.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // What the libraries print never mixes with the answers.
    answers = ::dup(STDOUT_FILENO);
    engineMessages.start();

    QString languages = QStringLiteral("eng");
    long memoryLimit = 0;
    bool rendersOnly = false;
    for (int index = 1; index < argc; ++index) {
        const QByteArray option = argv[index];
        if (option == "--renders-only")
            rendersOnly = true;
        else if (option == "--languages" && index + 1 < argc)
            languages = QString::fromUtf8(argv[++index]);
        else if (option == "--memory-limit" && index + 1 < argc)
            memoryLimit = QByteArray(argv[++index]).toLong();
    }
    limitMemory(memoryLimit);
    // Qt's warnings go to standard error, where they are watched, rather than to the journal.
    qInstallMessageHandler(printMessage);

    std::unique_ptr<TextRecognizer> recognizer;
    try {
        if (!rendersOnly) {
            recognizer = std::make_unique<TextRecognizer>(languages);
            TextQuality::useLanguages(languages);
        }
        warmUp(recognizer.get());
    } catch (const OCR::Failure &failure) {
        send(ReaderProtocol::message(Kind::unavailable, failure.message()));
        ::_exit(0);
    }
    if (const std::optional<QString> problem = Confinement::apply()) {
        send(ReaderProtocol::message(
            Kind::unavailable, QStringLiteral("The PDF reader couldn't confine itself: ") + *problem));
        ::_exit(0);
    }
    send(ReaderProtocol::message(Kind::ready));

    ReaderProtocol::FrameReader frames;
    try {
        while (const std::optional<Message> message = request(frames)) {
            if (message->kind == Kind::read && recognizer)
                read(*recognizer, message->text);
            else if (message->kind == Kind::read)
                send(ReaderProtocol::message(Kind::failed, QStringLiteral("This reader only renders pages")));
            else if (message->kind == Kind::render)
                render(*message);
            else if (message->kind == Kind::measure)
                measure(*message);
        }
    } catch (const ReaderProtocol::ProtocolError &) {
    }
    // Nothing to tidy up: the engine's memory goes with the process.
    ::_exit(0);
}
