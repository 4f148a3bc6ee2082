#pragma once

#include "library/SerialExecutor.h"
#include "ocr/OCR.h"

#include <QString>

#include <memory>
#include <stop_token>

class TextRecognizer;

// Text recognition off the main thread: one thread with one Tesseract engine, made on first use and
// kept for every later file.
class Recognition {
public:
    // The engine can't start (a language's data is missing); no file is to blame.
    struct Unavailable : OCR::Failure {
        using OCR::Failure::Failure;
    };

    explicit Recognition(QString languages);
    ~Recognition();

    const QString &languages() const { return languages_; }

    // Reads the file. `pageRead` runs on the recognition thread. Throws what OCR::recognize throws,
    // and Unavailable.
    QFuture<OCR::Result> recognize(const QString &path, std::stop_token stop, OCR::PageRead pageRead = {});

private:
    QString languages_;
    std::unique_ptr<TextRecognizer> recognizer_; // used on the executor's thread only
    SerialExecutor executor_; // last, so that it finishes its calls before the engine goes
};
