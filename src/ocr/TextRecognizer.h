#pragma once

#include "ocr/Reading.h"

#include <QImage>
#include <QString>

#include <memory>
#include <stop_token>

namespace tesseract {
class TessBaseAPI;
}

// One Tesseract engine, initialised once and reused for every page of every file. Not thread-safe:
// each recognition thread owns its own.
class TextRecognizer {
public:
    // Throws OCR::Failure when a language's data isn't installed.
    explicit TextRecognizer(const QString &languages);
    ~TextRecognizer();
    TextRecognizer(const TextRecognizer &) = delete;
    TextRecognizer &operator=(const TextRecognizer &) = delete;

    const QString &languages() const { return languages_; }

    // One recognition pass over the bitmap turned `rotation` degrees clockwise first. Lines come in
    // the normalized y-up frame of the turned image. Throws OCR::Failure when the engine fails, and
    // Cancelled when `stop` is requested while it runs.
    OCR::Reading reading(const QImage &bitmap, int rotation, const std::stop_token &stop = {});

private:
    QString languages_;
    std::unique_ptr<tesseract::TessBaseAPI> api_;
};
