// The extraction side of the background work: the loop that files scans with the local model, the
// watch on the model's availability, and the instructions trial.
#include "core/Cancellation.h"
#include "extract/Failure.h"
#include "extract/ModelErrors.h"
#include "extract/model/ModelServerClient.h"
#include "extract/model/ModelSettings.h"
#include "library/Library.h"
#include "library/NextJob.h"
#include "library/SerialExecutor.h"

#include <QCoro/QCoroTimer>
#include <QDateTime>
#include <QFileInfo>
#include <QTimer>

#include <stop_token>

namespace {

using Extractor::Availability;
using Extractor::Failure;

QString errorText(const std::exception &error)
{
    if (const auto *generation = dynamic_cast<const Extractor::GenerationError *>(&error))
        return Extractor::describe(*generation);
    if (const auto *database = dynamic_cast<const Database::Error *>(&error))
        return database->message();
    return QString::fromUtf8(error.what());
}

ActivityEntry queueEntry(const std::optional<QString> &file, const QString &title, const QString &outcome = {})
{
    ActivityEntry entry;
    entry.kind = ActivityEntry::Kind::queue;
    entry.file = file;
    entry.title = title;
    entry.outcome = outcome;
    return entry;
}

// "Acme Water, Utility bill, 2024-03-12", with "no organization", "no type", "no date" for what's absent.
QString filedOutcome(const Extractor::Output &output)
{
    return QStringList { output.organization.value_or(QStringLiteral("no organization")),
        output.kind.value_or(QStringLiteral("no type")), output.date.value_or(QStringLiteral("no date")) }
        .join(QStringLiteral(", "));
}

std::optional<QString> encoded(const Extractor::Trace &trace)
{
    const std::optional<QByteArray> json = trace.encode();
    if (!json)
        return std::nullopt;
    return QString::fromUtf8(*json);
}

// Waits `duration`, or less when `stop` is requested meanwhile; true when it waited in full.
QCoro::Task<bool> waitUnlessStopped(std::chrono::milliseconds duration, std::stop_token stop)
{
    QTimer timer;
    timer.setSingleShot(true);
    timer.setInterval(duration);
    // Stops are requested on this thread, but the wake-up is queued so it never runs inside request_stop.
    const std::stop_callback wake(stop, [&timer] {
        QMetaObject::invokeMethod(
            &timer,
            [&timer] {
                timer.setInterval(0);
                timer.start();
            },
            Qt::QueuedConnection);
    });
    timer.start();
    co_await timer;
    co_return !stop.stop_requested();
}

// The inputs of one scan's extraction, read from the catalogue as the loop and the trial both need them.
struct ScanInputs {
    QStringList organizations;
    std::optional<ScanStore::SimilarDocument> similar;
};

// Read on the store's thread; a failing read gives no names or no similar scan.
ScanInputs readScanInputs(ScanStore &store, std::int64_t id)
{
    ScanInputs inputs;
    try {
        inputs.organizations = store.organizationNamesForPrompt(100);
    } catch (const std::exception &) {
    }
    try {
        inputs.similar = store.similarFiledDocument(id);
    } catch (const std::exception &) {
    }
    return inputs;
}

std::optional<Extractor::Similar> similarHint(const std::optional<ScanStore::SimilarDocument> &similar)
{
    if (!similar)
        return std::nullopt;
    return Extractor::Similar { similar->path, similar->organization };
}

} // namespace

void Library::setLanguageModel(std::shared_ptr<Extractor::LanguageModel> model)
{
    model_ = std::move(model);
    modelChecked_ = false;
}

std::shared_ptr<Extractor::LanguageModel> Library::languageModel()
{
    if (!model_)
        model_ = std::shared_ptr<Extractor::LanguageModel>(Extractor::ModelSettings::load().client());
    if (!modelThread_)
        modelThread_ = std::make_unique<SerialExecutor>();
    return model_;
}

Extractor::AttemptObserver Library::activityObserver(const QString &file)
{
    QPointer<Library> self(this);
    return [self, file](const Extractor::Trace::Attempt &attempt) {
        QMetaObject::invokeMethod(
            self,
            [self, file, attempt] {
                if (self)
                    self->activity_->model(attempt, file);
            },
            Qt::QueuedConnection);
    };
}

bool Library::extractionWanted() const
{
    return pendingExtraction_ >= 1 && (!paused_ || hasRequested([](const ScanDocument &document) {
        return document.ocrStatus == OCRStatus::done && document.extractStatus == ExtractStatus::pending;
    }));
}

void Library::setExtractTask(std::optional<std::stop_source> task)
{
    const bool was = isExtracting();
    extractTask_ = std::move(task);
    if (was != isExtracting())
        Q_EMIT extractingChanged();
}

void Library::startExtraction()
{
    if (!extractionEnabled_ || !store_ || modelWatchTask_ || checkingModel_ || extractTask_)
        return;
    // The model is asked over the network, so only when there is work for it, and once when a folder
    // opens so that the reason it can't be used shows before any scan waits for it.
    if (modelChecked_ && !extractionWanted())
        return;
    checkingModel_ = true;
    Q_EMIT extractingChanged();
    checkModel(store_);
}

QCoro::Task<> Library::checkModel(std::shared_ptr<Store> store)
{
    QPointer<Library> self(this);
    const std::shared_ptr<Extractor::LanguageModel> model = languageModel();
    Availability availability;
    try {
        availability = co_await modelThread_->run([model] { return model->availability(); });
    } catch (const std::exception &error) {
        availability = { false, errorText(error) };
    }
    if (!self)
        co_return;
    checkingModel_ = false;
    if (store_ != store) {
        // Another folder was opened meanwhile; its own start was held back by this check.
        Q_EMIT extractingChanged();
        startExtraction();
        co_return;
    }
    modelChecked_ = true;
    applyAvailability(availability);
    if (modelProblem_) {
        Q_EMIT extractingChanged();
        startModelWatch();
        co_return;
    }
    if (!extractionWanted()) {
        Q_EMIT extractingChanged();
        co_return;
    }
    const int generation = workGeneration_;
    std::stop_source stop;
    extractTask_ = stop;
    [](QPointer<Library> self, std::stop_token token, int generation) -> QCoro::Task<> {
        co_await self->runExtraction(token);
        if (self && self->workGeneration_ == generation && self->extractTask_)
            self->setExtractTask(std::nullopt);
    }(this, stop.get_token(), generation);
}

void Library::applyAvailability(const Availability &availability)
{
    std::optional<QString> problem;
    if (!availability.available)
        problem = availability.problem.value_or(QStringLiteral("The local model is unavailable"));
    if (problem == modelProblem_)
        return;
    if (problem)
        activity_->append(queueEntry(std::nullopt, QStringLiteral("Local model unavailable: ") + *problem));
    else
        activity_->append(queueEntry(std::nullopt, QStringLiteral("Local model available")));
    assign(modelProblem_, problem, &Library::modelProblemChanged);
}

void Library::startModelWatch()
{
    if (modelWatchTask_)
        return;
    std::stop_source stop;
    modelWatchTask_ = stop;
    watchModelAvailability(stop.get_token());
}

QCoro::Task<> Library::watchModelAvailability(std::stop_token stop)
{
    QPointer<Library> self(this);
    const std::shared_ptr<Extractor::LanguageModel> model = languageModel();
    while (true) {
        if (!co_await waitUnlessStopped(modelTiming_.availabilityPoll, stop) || !self)
            co_return;
        Availability availability;
        try {
            availability = co_await modelThread_->run([model, stop] { return model->availability(stop); });
        } catch (const std::exception &) {
            availability = {};
        }
        if (!self || stop.stop_requested())
            co_return;
        if (availability.available)
            break;
    }
    modelWatchTask_.reset();
    startExtraction();
}

QCoro::Task<std::optional<ScanStore::ExtractionJob>> Library::nextExtractionJob(std::shared_ptr<Store> store)
{
    return nextJob(std::move(store), requested_, paused_, &ScanStore::nextExtractionJob);
}

void Library::trimRequested()
{
    DocumentIDSet kept;
    for (std::int64_t id : requested_) {
        const auto found = documentsByID_.find(id);
        if (found != documentsByID_.end() && found->second.isProcessing())
            kept.insert(id);
    }
    setRequested(std::move(kept));
}

QCoro::Task<> Library::runExtraction(std::stop_token stop)
{
    QPointer<Library> self(this);
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return;
    const std::shared_ptr<Extractor::LanguageModel> model = languageModel();
    const auto setCurrent = [this](std::optional<QString> name) {
        assign(currentExtraction_, std::move(name), &Library::currentExtractionChanged);
    };
    const auto setWaiting = [this](std::optional<QString> reason) {
        assign(modelWaiting_, std::move(reason), &Library::modelWaitingChanged);
    };
    const auto endLoop = [&] {
        setCurrent(std::nullopt);
        setWaiting(std::nullopt);
        trimRequested();
    };

    while (!stop.stop_requested()) {
        const std::optional<ScanStore::ExtractionJob> job = co_await nextExtractionJob(store);
        if (!self || stop.stop_requested())
            co_return;
        if (!job)
            break;
        const QString name = QFileInfo(job->path).fileName();
        setCurrent(name);

        const ScanInputs inputs = co_await store->run([id = job->id](ScanStore &s) { return readScanInputs(s, id); });
        if (!self || stop.stop_requested())
            co_return;
        const std::optional<std::int64_t> similarID
            = inputs.similar ? std::optional(inputs.similar->id) : std::optional<std::int64_t>();
        const Extractor::ExtractionInput input { job->pages, inputs.organizations, similarHint(inputs.similar),
            customInstructions_, {} };

        std::optional<Extractor::Output> output;
        std::optional<QString> retryMessage;
        std::optional<QString> gaveUp;
        std::optional<Extractor::Trace> failedTrace;
        try {
            ModelGate::Lease lease = co_await modelGate_.acquire();
            throwIfCancelled(stop);
            output = co_await modelThread_->run([model, input, stop, observer = activityObserver(name)] {
                return Extractor::extract(*model, input, stop, observer);
            });
        } catch (const Cancelled &) {
            co_return;
        } catch (const Failure &failure) {
            if (failure.kind == Failure::Kind::retryLater) {
                retryMessage = failure.message;
            } else {
                gaveUp = failure.message;
                failedTrace = failure.trace;
            }
        } catch (const std::exception &error) {
            gaveUp = errorText(error);
        }
        if (!self)
            co_return;

        if (retryMessage) {
            activity_->append(queueEntry(name, QStringLiteral("Model busy, retrying in 15 s"), *retryMessage));
            // A server that stopped, or lost its model, is waited for like one that was never there,
            // rather than asked about the scan again and again.
            Availability availability { true, std::nullopt };
            try {
                availability = co_await modelThread_->run([model, stop] { return model->availability(stop); });
            } catch (const std::exception &) {
            }
            if (!self || stop.stop_requested())
                co_return;
            if (!availability.available) {
                applyAvailability(availability);
                setCurrent(std::nullopt);
                setWaiting(std::nullopt);
                startModelWatch();
                co_return;
            }
            setWaiting(retryMessage);
            if (!co_await waitUnlessStopped(modelTiming_.retry, stop) || !self)
                co_return;
            continue;
        }

        if (output) {
            // A result that arrives after a pause or a close is dropped: the scan stays pending.
            if (stop.stop_requested())
                co_return;
            activity_->append(queueEntry(name, QStringLiteral("Filed"), filedOutcome(*output)));
            try {
                co_await store->run([id = job->id, output = *output, similarID](ScanStore &s) {
                    s.saveExtraction(id, output.organization, output.date, output.kind, output.trace.summary(),
                        encoded(output.trace), similarID);
                });
            } catch (const std::exception &error) {
                gaveUp = errorText(error);
            }
            if (!self)
                co_return;
        }

        if (gaveUp) {
            activity_->append(queueEntry(name, QStringLiteral("Gave up"), *gaveUp));
            bool marked = true;
            try {
                co_await store->run([id = job->id, error = *gaveUp, trace = failedTrace, similarID](ScanStore &s) {
                    s.markExtractionFailed(id, error, trace ? std::optional(trace->summary()) : std::nullopt,
                        trace ? encoded(*trace) : std::nullopt, similarID);
                });
            } catch (const std::exception &) {
                marked = false;
            }
            if (!self)
                co_return;
            if (!marked) {
                if (!stop.stop_requested())
                    endLoop();
                co_return;
            }
        } else {
            setWaiting(std::nullopt);
        }
        DocumentIDSet requested = requested_;
        requested.erase(job->id);
        setRequested(std::move(requested));
        co_await refresh({ job->id }, true);
        if (!self)
            co_return;
    }
    if (self && !stop.stop_requested())
        endLoop();
}

void Library::extractNow(const DocumentIDSet &ids)
{
    DocumentIDSet requested = requested_;
    for (std::int64_t id : ids) {
        const auto found = documentsByID_.find(id);
        if (found != documentsByID_.end() && found->second.isProcessing())
            requested.insert(id);
    }
    setRequested(std::move(requested));
    startWork();
}

QCoro::Task<Library::Trial> Library::tryExtraction(std::int64_t id, QString instructions)
{
    QPointer<Library> self(this);
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return Trial { std::nullopt, std::nullopt, QStringLiteral("No folder open") };
    const std::shared_ptr<Extractor::LanguageModel> model = languageModel();
    Availability availability;
    try {
        availability = co_await modelThread_->run([model] { return model->availability(); });
    } catch (const std::exception &error) {
        availability = { false, errorText(error) };
    }
    if (!availability.available)
        co_return Trial { std::nullopt, std::nullopt,
            availability.problem.value_or(QStringLiteral("The local model is unavailable")) };

    QStringList pages;
    try {
        pages = co_await store->run([id](ScanStore &s) { return s.pages(id); });
    } catch (const std::exception &) {
    }
    const ScanInputs inputs = co_await store->run([id](ScanStore &s) { return readScanInputs(s, id); });
    if (!self)
        co_return Trial {};
    QString file;
    if (const auto found = documentsByID_.find(id); found != documentsByID_.end())
        file = QFileInfo(found->second.path).fileName();
    const Extractor::ExtractionInput input { pages, inputs.organizations, similarHint(inputs.similar), instructions,
        {} };
    try {
        ModelGate::Lease lease = co_await modelGate_.acquire();
        Extractor::Output output
            = co_await modelThread_->run([model, input, observer = activityObserver(file + QStringLiteral(" (Try)"))] {
                  return Extractor::extract(*model, input, {}, observer);
              });
        Extractor::Trace trace = output.trace;
        co_return Trial { std::move(output), std::move(trace), std::nullopt };
    } catch (const Failure &failure) {
        if (failure.kind == Failure::Kind::failed)
            co_return Trial { std::nullopt, failure.trace, failure.message };
        co_return Trial { std::nullopt, std::nullopt, failure.message };
    } catch (const std::exception &error) {
        co_return Trial { std::nullopt, std::nullopt, errorText(error) };
    }
}

QCoro::Task<std::optional<Extractor::Trace>> Library::trace(std::int64_t id)
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return std::nullopt;
    std::optional<QString> text;
    try {
        text = co_await store->run([id](ScanStore &s) { return s.trace(id); });
    } catch (const std::exception &) {
    }
    if (!text)
        co_return std::nullopt;
    co_return Extractor::Trace::decode(text->toUtf8());
}

QCoro::Task<int> Library::modelExtractionCount()
{
    const std::shared_ptr<Store> store = store_;
    if (!store)
        co_return 0;
    try {
        co_return co_await store->run([](ScanStore &s) { return s.modelExtractionCount(); });
    } catch (const std::exception &) {
    }
    co_return 0;
}
