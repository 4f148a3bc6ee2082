// The recognition loop: each scan waiting for its text is read through the reader process and saved,
// with one activity entry per scan; and the one-time re-read of scans whose text looks like gibberish.
#include "core/Cancellation.h"
#include "core/Error.h"
#include "core/Graphemes.h"
#include "library/Fields.h"
#include "library/NextJob.h"
#include "library/Recognition.h"
#include "library/WorkScheduler.h"
#include "ocr/OcrLanguages.h"
#include "ocr/TextQuality.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>
#include <QThreadPool>

#include <algorithm>
#include <limits>

namespace {

// Catalogue setting marking a catalogue whose stored texts were checked for gibberish once.
const QString checkedGarbledKey = QStringLiteral("checked_garbled_ocr");

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

// Ending a reader waits for its process to go, which is done off the main thread.
void discard(std::vector<std::shared_ptr<Recognition>> readers)
{
    if (!readers.empty())
        QThreadPool::globalInstance()->start([readers = std::move(readers)] {});
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

void WorkScheduler::startRecognition()
{
    const bool wanted = !paused_
        || hasRequested([](const ScanDocument &document) { return document.ocrStatus == OCRStatus::pending; });
    if (!catalogue_.store() || !wanted)
        return;
    // Each loop reads one scan at a time, so more loops than scans waiting would find nothing to do.
    const int more = std::min(readers(), catalogue_.pendingOCR()) - readingLoops_;
    if (more < 1)
        return;
    if (!ocrTask_) {
        ocrTask_ = std::stop_source();
        Q_EMIT readingChanged();
    }
    const std::stop_source stop = *ocrTask_;
    // Counted before any starts: a loop that finds nothing may end before the next one is started.
    readingLoops_ += more;
    for (int loop = 0; loop < more; ++loop) {
        [](QPointer<WorkScheduler> self, std::stop_source stop) -> QCoro::Task<> {
            try {
                co_await self->readScans(stop.get_token());
            } catch (...) {
                if (self && !stop.stop_requested())
                    reportEscaped(self->activity_, QStringLiteral("Text recognition"));
            }
            if (self && self->ocrTask_ == stop && --self->readingLoops_ == 0) {
                self->ocrTask_.reset();
                self->setReadingNow({});
                // One reader stays ready for the next scan; the others give their memory back.
                if (self->idleReaders_.size() > 1) {
                    discard(std::vector(std::make_move_iterator(self->idleReaders_.begin() + 1),
                        std::make_move_iterator(self->idleReaders_.end())));
                    self->idleReaders_.resize(1);
                }
                Q_EMIT self->readingChanged();
            }
        }(this, stop);
    }
}

void WorkScheduler::stopReading()
{
    const bool wasReading = ocrTask_.has_value();
    if (ocrTask_)
        ocrTask_->request_stop();
    ocrTask_.reset();
    readingLoops_ = 0;
    setReadingNow({});
    if (wasReading)
        Q_EMIT readingChanged();
}

int WorkScheduler::readers() const
{
    return std::clamp(readers_.value_or(ReadingWorkers::setting()), 1, ReadingWorkers::most);
}

std::shared_ptr<Recognition> WorkScheduler::takeReader()
{
    const QString languages = OcrLanguages::setting();
    const auto others = std::partition(
        idleReaders_.begin(), idleReaders_.end(), [&](const auto &reader) { return reader->languages() == languages; });
    discard(std::vector(std::make_move_iterator(others), std::make_move_iterator(idleReaders_.end())));
    idleReaders_.erase(others, idleReaders_.end());
    if (idleReaders_.empty())
        return std::make_shared<Recognition>(languages);
    std::shared_ptr<Recognition> reader = std::move(idleReaders_.back());
    idleReaders_.pop_back();
    return reader;
}

void WorkScheduler::returnReader(std::shared_ptr<Recognition> reader)
{
    if (int(idleReaders_.size()) < readers() && reader->languages() == OcrLanguages::setting())
        idleReaders_.push_back(std::move(reader));
    else
        discard({ std::move(reader) });
}

QCoro::Task<> WorkScheduler::readScans(std::stop_token stop)
{
    QPointer<WorkScheduler> self(this);
    const std::shared_ptr<Catalogue::Store> store = catalogue_.store();
    if (!store)
        co_return;
    const QString folder = catalogue_.folder();
    while (!stop.stop_requested()) {
        const DocumentIDs beingRead(claimed_.begin(), claimed_.end());
        const std::optional<ScanStore::OCRJob> job = co_await nextJob(
            store, requested_, paused_, [beingRead](ScanStore &s, const std::optional<DocumentIDs> &among) {
                return s.nextOCRJob(among, beingRead);
            });
        if (!self || stop.stop_requested())
            co_return;
        // A scan let go while this loop asked without it may be waiting still: ask again.
        if (!job && std::ranges::any_of(beingRead, [this](std::int64_t id) { return !claimed_.contains(id); }))
            continue;
        if (!job)
            break;
        // Another loop took the same scan while this one asked: ask again without it.
        if (claimed_.contains(job->id))
            continue;
        claimed_.insert(job->id);
        const QString name = QFileInfo(job->path).fileName();
        std::vector<ReadingScan> reading = readingNow_;
        reading.push_back({ job->id, name });
        setReadingNow(std::move(reading));
        QElapsedTimer timer;
        timer.start();

        std::shared_ptr<Recognition> reader = takeReader();
        const OCR::PageRead pageRead = [self, name](int index, int count, const OCR::Page &) {
            QMetaObject::invokeMethod(
                self, [self, name, index, count] { Q_EMIT self->pageRead(name, index, count); }, Qt::QueuedConnection);
        };

        std::optional<QString> failure;
        bool engineUnavailable = false;
        bool cancelled = false;
        std::optional<OCR::Result> result;
        try {
            result = co_await reader->recognize(QDir(folder).filePath(job->path), stop, pageRead);
            // Stopped while the answer was on its way: the scan stays waiting, as any other being read.
            if (stop.stop_requested())
                throw Cancelled();
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
            failure = unavailable.message();
        } catch (const std::exception &error) {
            failure = messageOf(error);
        }
        if (!self)
            co_return;
        // Let go of the scan, unless it still waits to be marked failed.
        const auto release = [this, id = job->id, &reader] {
            claimed_.erase(id);
            std::vector<ReadingScan> reading = readingNow_;
            std::erase_if(reading, [id](const ReadingScan &scan) { return scan.id == id; });
            setReadingNow(std::move(reading));
            returnReader(std::move(reader));
        };
        if (cancelled || stop.stop_requested()) {
            release();
            // Reading was stopped; if it has started again meanwhile, the scan let go waits for a reader.
            if (!ocrProblem_ && catalogue_.store() == store)
                startRecognition();
            co_return;
        }
        if (engineUnavailable) {
            release();
            // Every scan would fail the same way; none is marked, and the reason is shown instead.
            assign(ocrProblem_, failure, this, &WorkScheduler::ocrProblemChanged);
            if (ocrTask_ && ocrTask_->get_token() == stop)
                stopReading();
            co_return;
        }
        assign(ocrProblem_, std::optional<QString>(), this, &WorkScheduler::ocrProblemChanged);

        ActivityEntry entry;
        entry.kind = ActivityEntry::Kind::ocr;
        entry.file = name;
        entry.seconds = timer.nsecsElapsed() / 1e9;
        if (failure) {
            entry.title = QStringLiteral("Read text");
            entry.outcome = *failure;
            activity_.append(std::move(entry));
            bool marked = true;
            try {
                co_await store->run(
                    [failed = *job, message = *failure](ScanStore &s) { s.markOCRFailed(failed, message); });
            } catch (const std::exception &) {
                marked = false;
            }
            if (!self)
                co_return;
            if (!marked) {
                release();
                co_return;
            }
            DocumentIDSet requested = requested_;
            requested.erase(job->id);
            setRequested(std::move(requested));
        } else {
            entry.title = readingTitle(*result);
            entry.outcome = QStringLiteral("OK");
            activity_.append(std::move(entry));
        }
        co_await catalogue_.refresh({ job->id }, false);
        if (!self)
            co_return;
        release();
        startExtraction();
        // Fewer readers were asked for since: this loop is one too many.
        if (ocrTask_ && ocrTask_->get_token() == stop && readingLoops_ > readers())
            co_return;
    }
}

QCoro::Task<> WorkScheduler::rereadGarbledScans()
{
    const std::shared_ptr<Catalogue::Store> store = catalogue_.store();
    if (!store)
        co_return;
    QPointer<WorkScheduler> self(this);
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
    if (!self || catalogue_.store() != store)
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
            activity_.append(std::move(entry));
            co_await catalogue_.refresh(ids, false);
        }
    }
    try {
        co_await store->run([](ScanStore &s) { s.setSetting(checkedGarbledKey, QStringLiteral("1")); });
    } catch (const std::exception &) {
    }
}
