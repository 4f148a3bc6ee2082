// The background work on an open folder: the scheduler, the recognition loop, the one-time re-read of
// scans whose text looks like gibberish, and folder synchronisation.
#include "core/Cancellation.h"
#include "core/Graphemes.h"
#include "library/Library.h"
#include "library/NextJob.h"
#include "library/Recognition.h"
#include "ocr/OcrLanguages.h"
#include "ocr/TextQuality.h"
#include "store/FolderScan.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSettings>

#include <limits>

namespace {

QString plural(int count, const QString &noun)
{
    return QString::number(count) + QLatin1Char(' ') + noun + (count == 1 ? QString() : QStringLiteral("s"));
}

// "Read 3 pages, 5120 characters; page 2 turned 180°"
QString readingTitle(const OCR::Result &result)
{
    int characters = 0;
    QStringList turned;
    for (std::size_t index = 0; index < result.pages.size(); ++index) {
        characters += int(Graphemes::count(result.pages[index].text, std::numeric_limits<int>::max()));
        if (result.pages[index].rotation != 0)
            turned << QStringLiteral("page %1 turned %2°").arg(index + 1).arg(result.pages[index].rotation);
    }
    QString title = QStringLiteral("Read ") + plural(int(result.pages.size()), QStringLiteral("page"))
        + QStringLiteral(", ") + QString::number(characters) + QStringLiteral(" characters");
    if (!turned.isEmpty())
        title += QStringLiteral("; ") + turned.join(QStringLiteral(", "));
    return title;
}

QString messageOf(const std::exception &error)
{
    if (const auto *failure = dynamic_cast<const OCR::Failure *>(&error))
        return failure->message;
    if (const auto *database = dynamic_cast<const Database::Error *>(&error))
        return database->message();
    return QString::fromUtf8(error.what());
}

} // namespace

DocumentIDs garbledDocuments(const QHash<std::int64_t, QStringList> &samples)
{
    DocumentIDs ids;
    if (!TextQuality::available())
        return ids;
    for (auto sample = samples.begin(); sample != samples.end(); ++sample) {
        if (TextQuality::looksGarbled(sample.value(), 1500))
            ids.push_back(sample.key());
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

void Library::startWork()
{
    const bool ocrWanted = !paused_
        || hasRequested([](const ScanDocument &document) { return document.ocrStatus == OCRStatus::pending; });
    if (!ocrTask_ && pendingOCR_ >= 1 && ocrWanted) {
        const int generation = workGeneration_;
        std::stop_source stop;
        ocrTask_ = stop;
        Q_EMIT readingChanged();
        [](QPointer<Library> self, std::stop_token token, int generation) -> QCoro::Task<> {
            co_await self->runOCR(token);
            if (self && self->workGeneration_ == generation && self->ocrTask_) {
                self->ocrTask_.reset();
                Q_EMIT self->readingChanged();
            }
        }(this, stop.get_token(), generation);
    }
    startExtraction();
}

void Library::stopWork()
{
    ++workGeneration_;
    const bool wasReading = ocrTask_.has_value();
    if (ocrTask_)
        ocrTask_->request_stop();
    if (extractTask_)
        extractTask_->request_stop();
    ocrTask_.reset();
    setExtractTask(std::nullopt);
    setCurrentOCR(std::nullopt);
    assign(currentExtraction_, std::optional<QString>(), &Library::currentExtractionChanged);
    assign(modelWaiting_, std::optional<QString>(), &Library::modelWaitingChanged);
    if (wasReading)
        Q_EMIT readingChanged();
}

void Library::setPaused(bool paused)
{
    assign(paused_, paused, &Library::pausedChanged);
    QSettings().setValue(pausedKey, paused);
    ActivityEntry entry;
    entry.title = paused ? QStringLiteral("Paused") : QStringLiteral("Resumed");
    activity_->append(std::move(entry));
    if (paused) {
        setRequested({});
        stopWork();
    } else {
        startWork();
    }
}

void Library::ignorePauseThisSession()
{
    assign(paused_, false, &Library::pausedChanged);
}

void Library::request(const DocumentIDSet &ids)
{
    DocumentIDSet requested = requested_;
    requested.insert(ids.begin(), ids.end());
    setRequested(std::move(requested));
    startWork();
}

bool Library::hasRequested(const std::function<bool(const ScanDocument &)> &predicate) const
{
    for (std::int64_t id : requested_) {
        const auto found = documentsByID_.find(id);
        if (found != documentsByID_.end() && predicate(found->second))
            return true;
    }
    return false;
}

QCoro::Task<std::optional<ScanStore::OCRJob>> Library::nextOCRJob(std::shared_ptr<Store> store)
{
    return nextJob(std::move(store), requested_, paused_, &ScanStore::nextOCRJob);
}

QCoro::Task<> Library::runOCR(std::stop_token stop)
{
    QPointer<Library> self(this);
    const std::shared_ptr<Store> store = store_;
    const std::optional<QString> folder = folder_;
    if (!store || !folder)
        co_return;
    while (!stop.stop_requested()) {
        const std::optional<ScanStore::OCRJob> job = co_await nextOCRJob(store);
        if (!self || stop.stop_requested())
            co_return;
        if (!job)
            break;
        const QString name = QFileInfo(job->path).fileName();
        setCurrentOCR(name);
        QElapsedTimer timer;
        timer.start();

        const QString languages = OcrLanguages::setting();
        if (!recognition_ || recognition_->languages() != languages)
            recognition_ = std::make_shared<Recognition>(languages);
        const std::shared_ptr<Recognition> recognition = recognition_;
        const OCR::PageRead pageRead = [self](int index, int count, const OCR::Page &) {
            QMetaObject::invokeMethod(
                self, [self, index, count] { Q_EMIT self->pageRead(index, count); }, Qt::QueuedConnection);
        };

        std::optional<QString> failure;
        bool engineUnavailable = false;
        bool cancelled = false;
        std::optional<OCR::Result> result;
        try {
            result = co_await recognition->recognize(QDir(*folder).filePath(job->path), stop, pageRead);
            const ScanStore::OCRJob saved = *job;
            std::vector<int> rotations;
            QStringList texts;
            for (const OCR::Page &page : result->pages) {
                texts << page.text;
                rotations.push_back(page.rotation);
            }
            co_await store->run([saved, texts, rotations, sha256 = result->sha256](
                                    ScanStore &s) { s.saveOCR(saved, texts, rotations, sha256); });
        } catch (const Cancelled &) {
            cancelled = true;
        } catch (const Recognition::Unavailable &unavailable) {
            engineUnavailable = true;
            failure = unavailable.message;
        } catch (const std::exception &error) {
            failure = messageOf(error);
        }
        if (!self || cancelled || stop.stop_requested())
            co_return;
        if (engineUnavailable) {
            // Every scan would fail the same way; none is marked, and the reason is shown instead.
            assign(ocrProblem_, failure, &Library::ocrProblemChanged);
            setCurrentOCR(std::nullopt);
            co_return;
        }
        assign(ocrProblem_, std::optional<QString>(), &Library::ocrProblemChanged);

        ActivityEntry entry;
        entry.kind = ActivityEntry::Kind::ocr;
        entry.file = name;
        entry.seconds = timer.nsecsElapsed() / 1e9;
        if (failure) {
            entry.title = QStringLiteral("Read text");
            entry.outcome = *failure;
            activity_->append(std::move(entry));
            bool marked = true;
            try {
                co_await store->run(
                    [failed = *job, message = *failure](ScanStore &s) { s.markOCRFailed(failed, message); });
            } catch (const std::exception &) {
                marked = false;
            }
            if (!self || !marked)
                co_return;
            DocumentIDSet requested = requested_;
            requested.erase(job->id);
            setRequested(std::move(requested));
        } else {
            entry.title = readingTitle(*result);
            entry.outcome = QStringLiteral("OK");
            activity_->append(std::move(entry));
        }
        co_await refresh({ job->id }, false);
        if (!self)
            co_return;
        startExtraction();
    }
    if (self && !stop.stop_requested())
        setCurrentOCR(std::nullopt);
}

QCoro::Task<> Library::rereadGarbledScans(std::shared_ptr<Store> store)
{
    QPointer<Library> self(this);
    std::optional<QString> checked;
    try {
        checked = co_await store->run([](ScanStore &s) { return s.setting(checkedGarbledKey); });
    } catch (const std::exception &) {
    }
    if (checked)
        co_return;
    DocumentIDs ids;
    try {
        // Reading the samples and judging them both happen off the main thread.
        ids = co_await store->run([](ScanStore &s) { return garbledDocuments(s.pageSamples(1500)); });
    } catch (const std::exception &) {
        co_return;
    }
    if (!self || store_ != store)
        co_return;
    if (!ids.empty()) {
        bool reset = true;
        try {
            co_await store->run([ids](ScanStore &s) { s.resetOCR(ids); });
        } catch (const std::exception &) {
            reset = false;
        }
        if (!self)
            co_return;
        if (reset) {
            ActivityEntry entry;
            entry.title = QStringLiteral("Reading ") + plural(int(ids.size()), QStringLiteral("scan"))
                + QStringLiteral(" again: the text looked like gibberish, maybe upside down");
            activity_->append(std::move(entry));
            co_await reload();
        }
    }
    try {
        co_await store->run([](ScanStore &s) { s.setSetting(checkedGarbledKey, QStringLiteral("1")); });
    } catch (const std::exception &) {
    }
}

void Library::scheduleSync()
{
    syncTimer_.start();
}

void Library::rescan()
{
    sync();
}

QCoro::Task<> Library::sync()
{
    const std::shared_ptr<Store> store = store_;
    const std::optional<QString> folder = folder_;
    if (!store || !folder)
        co_return;
    if (!QFileInfo(*folder).isDir()) {
        // The catalogue went with the folder, so nothing can be written: the scans show as missing
        // until the folder is back, and then the catalogue has them all as they were.
        stopWork();
        std::map<std::int64_t, ScanDocument> missing = documentsByID_;
        for (auto &[id, document] : missing)
            document.missing = true;
        assign(documentsByID_, std::move(missing), &Library::documentsChanged);
        folderReturn_.start();
        Q_EMIT synced();
        co_return;
    }
    QPointer<Library> self(this);
    bool changed = false;
    try {
        changed = co_await store->run(
            [folder = *folder](ScanStore &s) { return s.sync(enumeratePDFs(folder), fileHasher(folder)); });
    } catch (const std::exception &) {
        // Nothing of a failed sync remains; the next change or rescan tries again.
    }
    if (!self || store_ != store)
        co_return;
    if (changed) {
        co_await reload();
        if (!self || store_ != store)
            co_return;
    }
    startWork();
    Q_EMIT synced();
}
