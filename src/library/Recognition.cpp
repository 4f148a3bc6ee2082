#include "library/Recognition.h"

#include "ocr/TextQuality.h"
#include "ocr/TextRecognizer.h"

Recognition::Recognition(QString languages)
    : languages_(std::move(languages))
{
}

Recognition::~Recognition()
{
    executor_.waitForIdle();
}

QFuture<OCR::Result> Recognition::recognize(const QString &path, std::stop_token stop, OCR::PageRead pageRead)
{
    return executor_.run([this, path, stop, pageRead = std::move(pageRead)]() {
        if (!recognizer_) {
            try {
                recognizer_ = std::make_unique<TextRecognizer>(languages_);
            } catch (const OCR::Failure &failure) {
                throw Unavailable(failure.message);
            }
            TextQuality::useLanguages(languages_);
        }
        return OCR::recognize(path, *recognizer_, stop, pageRead);
    });
}
