// The extraction loop: each scan whose text is read is filed with the local model, retried while the
// model is busy and waited for while it is away; and the instructions trial, which stores nothing.
#include "core/Cancellation.h"
#include "core/Error.h"
#include "extract/Failure.h"
#include "library/Fields.h"
#include "library/NextJob.h"
#include "library/WorkScheduler.h"

#include <QFileInfo>
#include <QPointer>

namespace {

using Extractor::Availability;
using Extractor::Failure;

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

Extractor::AttemptObserver WorkScheduler::activityObserver(const QString &file)
{
    QPointer<WorkScheduler> self(this);
    return [self, file](const Extractor::Trace::Attempt &attempt) {
        QMetaObject::invokeMethod(
            self,
            [self, file, attempt] {
                if (self)
                    self->activity_.model(attempt, file);
            },
            Qt::QueuedConnection);
    };
}

bool WorkScheduler::extractionWanted() const
{
    return catalogue_.pendingExtraction() >= 1 && (!paused_ || hasRequested([](const ScanDocument &document) {
        return document.ocrStatus == OCRStatus::done && document.extractStatus == ExtractStatus::pending;
    }));
}

void WorkScheduler::setExtractTask(std::optional<std::stop_source> task)
{
    const bool was = isExtracting();
    extractTask_ = std::move(task);
    if (was != isExtracting())
        Q_EMIT extractingChanged();
}

void WorkScheduler::startExtraction()
{
    if (!extraction_ || held_ || !catalogue_.store() || model_.watching() || checkingModel_ || extractTask_)
        return;
    // The model is asked over the network, so only when there is work for it, and once when a folder
    // opens so that the reason it can't be used shows before any scan waits for it.
    if (model_.checked() && !extractionWanted())
        return;
    checkingModel_ = true;
    Q_EMIT extractingChanged();
    [](QPointer<WorkScheduler> self, std::shared_ptr<Catalogue::Store> store) -> QCoro::Task<> {
        try {
            co_await self->checkModel(store);
        } catch (...) {
            if (self) {
                self->checkingModel_ = false;
                Q_EMIT self->extractingChanged();
                reportEscaped(self->activity_, QStringLiteral("Checking the local model"));
            }
        }
    }(this, catalogue_.store());
}

QCoro::Task<> WorkScheduler::checkModel(std::shared_ptr<Catalogue::Store> store)
{
    QPointer<WorkScheduler> self(this);
    const std::optional<Availability> availability = co_await model_.check();
    if (!self)
        co_return;
    checkingModel_ = false;
    if (!availability || catalogue_.store() != store) {
        // Another model or folder came meanwhile; its own start was held back by this check.
        Q_EMIT extractingChanged();
        startExtraction();
        co_return;
    }
    if (model_.problem()) {
        Q_EMIT extractingChanged();
        model_.startWatch();
        co_return;
    }
    if (!extractionWanted() || held_) {
        Q_EMIT extractingChanged();
        co_return;
    }
    std::stop_source stop;
    extractTask_ = stop;
    [](QPointer<WorkScheduler> self, std::stop_source stop) -> QCoro::Task<> {
        try {
            co_await self->runExtraction(stop.get_token());
        } catch (...) {
            if (self && !stop.stop_requested())
                reportEscaped(self->activity_, QStringLiteral("Filing with the local model"));
        }
        if (self && self->extractTask_ == stop) {
            self->setCurrentExtraction(std::nullopt);
            self->setModelWaiting(std::nullopt);
            self->trimRequested();
            self->setExtractTask(std::nullopt);
        }
    }(this, stop);
}

QCoro::Task<> WorkScheduler::runExtraction(std::stop_token stop)
{
    QPointer<WorkScheduler> self(this);
    const std::shared_ptr<Catalogue::Store> store = catalogue_.store();
    if (!store)
        co_return;
    const std::shared_ptr<Extractor::LanguageModel> model = model_.model();

    while (!stop.stop_requested()) {
        const std::optional<ScanStore::ExtractionJob> job
            = co_await nextJob(store, requested_, paused_, &ScanStore::nextExtractionJob);
        if (!self || stop.stop_requested())
            co_return;
        if (!job)
            break;
        const QString name = QFileInfo(job->path).fileName();
        setCurrentExtraction(name);

        const ScanInputs inputs = co_await store->run([id = job->id](ScanStore &s) { return readScanInputs(s, id); });
        if (!self || stop.stop_requested())
            co_return;
        const std::optional<std::int64_t> similarID
            = inputs.similar ? std::optional(inputs.similar->id) : std::optional<std::int64_t>();
        const Extractor::ExtractionInput input { job->pages, inputs.organizations, similarHint(inputs.similar),
            catalogue_.customInstructions(), {} };

        std::optional<Extractor::Output> output;
        std::optional<QString> retryMessage;
        std::optional<QString> gaveUp;
        std::optional<Extractor::Trace> failedTrace;
        try {
            ModelGate::Lease lease = co_await model_.gate().acquire();
            throwIfCancelled(stop);
            output = co_await model_.thread().run([model, input, stop, observer = activityObserver(name)] {
                return Extractor::extract(*model, input, stop, observer);
            });
        } catch (const Cancelled &) {
            co_return;
        } catch (const Failure &failure) {
            if (failure.kind == Failure::Kind::retryLater) {
                retryMessage = failure.message();
            } else {
                gaveUp = failure.message();
                failedTrace = failure.trace;
            }
        } catch (const std::exception &error) {
            gaveUp = messageOf(error);
        }
        if (!self)
            co_return;

        if (retryMessage) {
            activity_.append(queueEntry(name, QStringLiteral("Model busy, retrying in 15 s"), *retryMessage));
            // A server that stopped, or lost its model, is waited for like one that was never there,
            // rather than asked about the scan again and again.
            Availability availability { true, std::nullopt };
            try {
                availability = co_await model_.thread().run([model, stop] { return model->availability(stop); });
            } catch (const std::exception &) {
            }
            if (!self || stop.stop_requested())
                co_return;
            if (!availability.available) {
                model_.apply(availability);
                model_.startWatch();
                co_return;
            }
            setModelWaiting(retryMessage);
            if (!co_await waitUnlessStopped(timing_.retry, stop) || !self)
                co_return;
            continue;
        }

        if (output) {
            // A result that arrives after a pause or a close is dropped: the scan stays pending.
            if (stop.stop_requested())
                co_return;
            activity_.append(queueEntry(name, QStringLiteral("Filed"), filedOutcome(*output)));
            try {
                co_await store->run([id = job->id, output = *output, similarID](ScanStore &s) {
                    s.saveExtraction(id, output.organization, output.date, output.kind, output.trace.summary(),
                        encoded(output.trace), similarID);
                });
            } catch (const std::exception &error) {
                gaveUp = messageOf(error);
            }
            if (!self)
                co_return;
        }

        if (gaveUp) {
            activity_.append(queueEntry(name, QStringLiteral("Gave up"), *gaveUp));
            bool marked = true;
            try {
                co_await store->run([id = job->id, error = *gaveUp, trace = failedTrace, similarID](ScanStore &s) {
                    s.markExtractionFailed(id, error, trace ? std::optional(trace->summary()) : std::nullopt,
                        trace ? encoded(*trace) : std::nullopt, similarID);
                });
            } catch (const std::exception &) {
                marked = false;
            }
            if (!self || !marked)
                co_return;
        } else {
            setModelWaiting(std::nullopt);
        }
        DocumentIDSet requested = requested_;
        requested.erase(job->id);
        setRequested(std::move(requested));
        co_await catalogue_.refresh({ job->id }, true);
        if (!self)
            co_return;
    }
}

QCoro::Task<WorkScheduler::Trial> WorkScheduler::tryExtraction(std::int64_t id, QString instructions)
{
    QPointer<WorkScheduler> self(this);
    const std::shared_ptr<Catalogue::Store> store = catalogue_.store();
    if (!store)
        co_return Trial { std::nullopt, std::nullopt, QStringLiteral("No folder open") };
    const std::shared_ptr<Extractor::LanguageModel> model = model_.model();
    Availability availability;
    try {
        availability = co_await model_.thread().run([model] { return model->availability(); });
    } catch (const std::exception &error) {
        availability = { false, messageOf(error) };
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
    if (const auto found = catalogue_.documentsByID().find(id); found != catalogue_.documentsByID().end())
        file = QFileInfo(found->second.path).fileName();
    const Extractor::ExtractionInput input { pages, inputs.organizations, similarHint(inputs.similar), instructions,
        {} };
    try {
        ModelGate::Lease lease = co_await model_.gate().acquire();
        Extractor::Output output = co_await model_.thread().run(
            [model, input, observer = activityObserver(file + QStringLiteral(" (Try)"))] {
                return Extractor::extract(*model, input, {}, observer);
            });
        Extractor::Trace trace = output.trace;
        co_return Trial { std::move(output), std::move(trace), std::nullopt };
    } catch (const Failure &failure) {
        if (failure.kind == Failure::Kind::failed)
            co_return Trial { std::nullopt, failure.trace, failure.message() };
        co_return Trial { std::nullopt, std::nullopt, failure.message() };
    } catch (const std::exception &error) {
        co_return Trial { std::nullopt, std::nullopt, messageOf(error) };
    }
}
