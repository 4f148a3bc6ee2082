#include "library/Recognition.h"

#include "ocr/TextQuality.h"

#include <QSettings>
#include <QThread>

#include <algorithm>

namespace ReadingWorkers {

int byDefault()
{
    return std::clamp(QThread::idealThreadCount(), 1, 4);
}

int setting()
{
    bool ok = false;
    const int count = QSettings().value(key).toInt(&ok);
    return ok && count > 0 ? std::min(count, most) : byDefault();
}

} // namespace ReadingWorkers

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
    const std::chrono::milliseconds timeout = ReaderSettings::timeout();
    const int memoryLimitMB = ReaderSettings::memoryLimitMB();
    return executor_.run([this, path, stop, pageRead = std::move(pageRead), timeout, memoryLimitMB]() {
        if (!worker_ || worker_->options().memoryLimitMB != memoryLimitMB)
            worker_ = std::make_unique<ReaderWorker>(ReaderWorker::Options { languages_, timeout, memoryLimitMB });
        worker_->setTimeout(timeout);
        const auto useLanguages = [this] {
            // The gibberish check in this process judges text in the same languages.
            if (!qualityLanguagesSet_)
                TextQuality::useLanguages(languages_);
            qualityLanguagesSet_ = true;
        };
        try {
            OCR::Result result = worker_->recognize(path, stop, pageRead);
            useLanguages();
            return result;
        } catch (const Unavailable &) {
            throw;
        } catch (const OCR::Failure &) {
            useLanguages();
            throw;
        }
    });
}
