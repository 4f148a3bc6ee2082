#pragma once

#include "library/ReaderWorker.h"
#include "library/SerialExecutor.h"
#include "ocr/OCR.h"

#include <QString>

#include <memory>
#include <stop_token>

// How many scans are read at once, each by a reader process of its own.
namespace ReadingWorkers {

inline const QString key = QStringLiteral("ReadingWorkers");
constexpr int most = 16;

// The processor's cores, at most 4: each reader takes about 150 MB and a core of its own.
int byDefault();
// The count as the person left it, or the default where it isn't a positive number.
int setting();

} // namespace ReadingWorkers

// Text recognition off the main thread: one thread that hands each file to the reader process
// (`ReaderWorker`), which keeps its Tesseract engine from file to file.
class Recognition {
public:
    // The reader can't start (a language's data is missing); no file is to blame.
    using Unavailable = ReaderUnavailable;

    explicit Recognition(QString languages);
    ~Recognition();

    const QString &languages() const { return languages_; }

    // Reads the file with the reading settings of the moment. `pageRead` runs on the recognition
    // thread. Throws what ReaderWorker::recognize throws.
    QFuture<OCR::Result> recognize(const QString &path, std::stop_token stop, OCR::PageRead pageRead = {});

private:
    QString languages_;
    std::unique_ptr<ReaderWorker> worker_; // used on the executor's thread only
    bool qualityLanguagesSet_ = false; // likewise
    SerialExecutor executor_; // last, so that it finishes its calls before the worker goes
};
