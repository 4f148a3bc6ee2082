#pragma once

#include "ocr/OCR.h"
#include "ocr/ReaderProtocol.h"

#include <QImage>
#include <QList>
#include <QSizeF>
#include <QString>

#include <chrono>
#include <functional>
#include <mutex>
#include <stop_token>
#include <sys/types.h>

// The reader can't read anything, so no file is to blame: a language's data is missing, or the reader
// program couldn't start.
struct ReaderUnavailable : OCR::Failure {
    using OCR::Failure::Failure;
};

// The settings of reading through the reader process.
namespace ReaderSettings {

inline const QString timeoutKey = QStringLiteral("ReadTimeoutSeconds");
inline const QString memoryLimitKey = QStringLiteral("ReadMemoryLimitMB");
constexpr double defaultTimeoutSeconds = 120;
constexpr int defaultMemoryLimitMB = 2048;

// The settings as the person left them, or the defaults where they aren't positive numbers.
std::chrono::milliseconds timeout();
int memoryLimitMB();

// The program named by VELLUMARK_READER, else `vellumark-reader` beside the running program, else the
// installed one in libexec.
QString program();

} // namespace ReaderSettings

// Reads PDFs and renders their pages in a `vellumark-reader` process of its own: started when first
// needed, kept for file after file, started again after it ends. A file the reader doesn't answer for within the
// timeout (while opening it or reading one page), or during which the reader ends, fails; the reader is then killed and
// the next file gets a new one, after a pause that grows while readers keep dying in a row. A stop kills the reader at
// once. Blocking: call it from one thread at a time.
class ReaderWorker {
public:
    struct Options {
        QString languages = QStringLiteral("eng");
        std::chrono::milliseconds timeout = std::chrono::seconds(120);
        int memoryLimitMB = ReaderSettings::defaultMemoryLimitMB;
        QString program = ReaderSettings::program();
        // A reader that only renders starts faster and smaller: it loads no text recogniser.
        bool rendersOnly = false;
    };

    static inline const QString tookTooLong = QStringLiteral("PDF took too long to read");
    static inline const QString stoppedTheReader = QStringLiteral("PDF stopped the reader");

    explicit ReaderWorker(Options options);
    ~ReaderWorker();
    ReaderWorker(const ReaderWorker &) = delete;
    ReaderWorker &operator=(const ReaderWorker &) = delete;

    const Options &options() const { return options_; }
    void setTimeout(std::chrono::milliseconds timeout) { options_.timeout = timeout; }

    // What OCR::recognize gives for the file, read by the reader. Throws OCR::Failure with the reader's
    // message or one of the two above, ReaderUnavailable, and Cancelled when `stop` is requested.
    // `pageRead` runs on the calling thread as each page arrives.
    OCR::Result recognize(const QString &path, const std::stop_token &stop = {}, const OCR::PageRead &pageRead = {});

    // Page `index` (from 0) of the file, as OCR::pageImage renders it, rendered by the reader. Throws as
    // `recognize` does; the reader's failures name what is wrong with the file.
    struct Rendered {
        QImage image;
        int pageCount = 0;
    };
    Rendered render(const QString &path, int index, int maxPixel, int rotation, const std::stop_token &stop = {});

    // Each page's size in points as OCR::pageImage shows it (turned by its /Rotate), measured by the reader
    // without rendering; an empty size for a page without area. Throws as `render` does.
    QList<QSizeF> measure(const QString &path, const std::stop_token &stop = {});

    // The running reader's process id, 0 when none runs.
    pid_t processId() const;
    // Readers that ended without answering, in a row.
    int deathsInARow() const { return deaths_; }

private:
    struct Ended { };
    struct TimedOut { };

    // Sends `request` (to a new reader when none runs or the last one ended) and hands each answer but a
    // failure to `answered` until it returns true. Throws what `recognize` throws.
    void converse(const ReaderProtocol::Message &request, const std::stop_token &stop,
        const std::function<bool(const ReaderProtocol::Message &)> &answered);
    void start(const std::stop_token &stop);
    void waitBeforeStarting(const std::stop_token &stop) const;
    bool send(const ReaderProtocol::Message &message);
    // The next answer; a stop kills the reader, which ends the wait.
    ReaderProtocol::Message receive(std::chrono::milliseconds timeout);
    void kill();
    void end();
    bool endedWhileIdle();

    Options options_;
    int socket_ = -1;
    ReaderProtocol::FrameReader frames_;
    int deaths_ = 0;
    mutable std::mutex processMutex_; // guards pid_ against a stop that kills from another thread
    pid_t pid_ = 0;
};
