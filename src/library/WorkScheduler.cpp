#include "library/WorkScheduler.h"

#include "library/Fields.h"
#include "library/Recognition.h"
#include "ocr/OcrLanguages.h"

#include <QSettings>

WorkScheduler::WorkScheduler(Catalogue &catalogue, ActivityLog &activity, ModelWatch &model, Timing timing,
    bool extraction, std::optional<int> readers, QObject *parent)
    : QObject(parent)
    , catalogue_(catalogue)
    , activity_(activity)
    , model_(model)
    , timing_(timing)
    , extraction_(extraction)
    , paused_(QSettings().value(pausedKey, false).toBool())
    , readers_(readers)
{
    // Whatever waited on the old model asks the new one at once.
    connect(&model_, &ModelWatch::modelChanged, this, [this] {
        if (extractTask_)
            extractTask_->request_stop();
        setExtractTask(std::nullopt);
        setCurrentExtraction(std::nullopt);
        setModelWaiting(std::nullopt);
        startExtraction();
    });
    connect(&model_, &ModelWatch::available, this, &WorkScheduler::startExtraction);
}

WorkScheduler::~WorkScheduler()
{
    stopWork();
}

void WorkScheduler::setRequested(DocumentIDSet ids)
{
    assign(requested_, std::move(ids), this, &WorkScheduler::requestedChanged);
}

void WorkScheduler::setReadingNow(std::vector<ReadingScan> scans)
{
    if (scans == readingNow_)
        return;
    readingNow_ = std::move(scans);
    currentOCR_ = readingNow_.empty() ? std::nullopt : std::optional(readingNow_.back().file);
    Q_EMIT currentOCRChanged();
}

void WorkScheduler::setCurrentExtraction(std::optional<QString> name)
{
    assign(currentExtraction_, std::move(name), this, &WorkScheduler::currentExtractionChanged);
}

void WorkScheduler::setModelWaiting(std::optional<QString> reason)
{
    assign(modelWaiting_, std::move(reason), this, &WorkScheduler::modelWaitingChanged);
}

void WorkScheduler::startWork()
{
    if (held_ || !catalogue_.store())
        return;
    startRecognition();
    startExtraction();
}

void WorkScheduler::stopWork()
{
    stopReading();
    if (extractTask_)
        extractTask_->request_stop();
    setExtractTask(std::nullopt);
    setCurrentExtraction(std::nullopt);
    setModelWaiting(std::nullopt);
}

void WorkScheduler::setPaused(bool paused)
{
    assign(paused_, paused, this, &WorkScheduler::pausedChanged);
    QSettings().setValue(pausedKey, paused);
    ActivityEntry entry;
    entry.title = paused ? QStringLiteral("Paused") : QStringLiteral("Resumed");
    activity_.append(std::move(entry));
    if (paused) {
        setRequested({});
        stopWork();
    } else {
        startWork();
    }
}

void WorkScheduler::ignorePauseThisSession()
{
    assign(paused_, false, this, &WorkScheduler::pausedChanged);
}

void WorkScheduler::readingSettingsChanged()
{
    // The reader itself judges the languages on the next scan; only a problem the new ones no longer
    // have is dropped here, so that the status doesn't show it until then.
    if (ocrProblem_ && !OcrLanguages::problem(OcrLanguages::setting()))
        assign(ocrProblem_, std::optional<QString>(), this, &WorkScheduler::ocrProblemChanged);
    startWork();
}

void WorkScheduler::request(const DocumentIDSet &ids)
{
    DocumentIDSet requested = requested_;
    requested.insert(ids.begin(), ids.end());
    setRequested(std::move(requested));
    startWork();
}

void WorkScheduler::extractNow(const DocumentIDSet &ids)
{
    DocumentIDSet requested = requested_;
    for (const ScanDocument *document : catalogue_.present(ids)) {
        if (document->isProcessing())
            requested.insert(document->id);
    }
    setRequested(std::move(requested));
    startWork();
}

void WorkScheduler::clearRequested()
{
    setRequested({});
}

void WorkScheduler::trimRequested()
{
    DocumentIDSet kept;
    for (const std::int64_t id : requested_) {
        const auto found = catalogue_.documentsByID().find(id);
        if (found != catalogue_.documentsByID().end() && found->second.isProcessing())
            kept.insert(id);
    }
    setRequested(std::move(kept));
}

bool WorkScheduler::hasRequested(const std::function<bool(const ScanDocument &)> &predicate) const
{
    for (const std::int64_t id : requested_) {
        const auto found = catalogue_.documentsByID().find(id);
        if (found != catalogue_.documentsByID().end() && predicate(found->second))
            return true;
    }
    return false;
}
