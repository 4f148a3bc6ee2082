#include "library/RenderPool.h"

#include "core/Cancellation.h"

#include <QSettings>

namespace RenderSettings {

std::chrono::milliseconds timeout()
{
    bool ok = false;
    const double seconds = QSettings().value(timeoutKey).toDouble(&ok);
    return std::chrono::milliseconds(qint64((ok && seconds > 0 ? seconds : defaultTimeoutSeconds) * 1000));
}

} // namespace RenderSettings

RenderPool::RenderPool()
    : RenderPool(Options {})
{
}

RenderPool::RenderPool(Options options)
    : options_(std::move(options))
{
    for (int thread = 0; thread < std::max(options_.readers, 1); ++thread)
        threads_.emplace_back([this](const std::stop_token &stop) { serve(stop); });
}

RenderPool::~RenderPool()
{
    // A stop kills a reader in the middle of a render, so joining never waits for one.
    for (std::jthread &thread : threads_)
        thread.request_stop();
    threads_.clear();
    for (Job &job : jobs_) {
        job.promise.addResult(Result { Outcome::noImage, {}, 0, QStringLiteral("Rendering stopped") });
        job.promise.finish();
    }
}

QFuture<RenderPool::Result> RenderPool::render(QString path, int index, int maxPixel, int rotation)
{
    Job job { std::move(path), index, maxPixel, rotation, {} };
    QFuture<Result> future = job.promise.future();
    job.promise.start();
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    jobAdded_.notify_one();
    return future;
}

void RenderPool::serve(const std::stop_token &stop)
{
    ReaderWorker worker({ QStringLiteral("eng"), options_.timeout, options_.memoryLimitMB, options_.program, true });
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            if (!jobAdded_.wait(lock, stop, [this] { return !jobs_.empty(); }))
                return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job.promise.addResult(renderWith(worker, job, stop));
        job.promise.finish();
    }
}

RenderPool::Result RenderPool::renderWith(ReaderWorker &worker, const Job &job, const std::stop_token &stop)
{
    try {
        ReaderWorker::Rendered rendered = worker.render(job.path, job.index, job.maxPixel, job.rotation, stop);
        return { Outcome::rendered, std::move(rendered.image), rendered.pageCount, {} };
    } catch (const ReaderUnavailable &unavailable) {
        return { Outcome::noImage, {}, 0, unavailable.message() };
    } catch (const OCR::Failure &failure) {
        if (failure.message() == ReaderWorker::tookTooLong)
            return { Outcome::timedOut, {}, 0, failure.message() };
        if (failure.message() == ReaderWorker::stoppedTheReader || failure.message() == ReaderProtocol::tooLarge)
            return { Outcome::crashed, {}, 0, failure.message() };
        return { Outcome::noImage, {}, 0, failure.message() };
    } catch (const Cancelled &) {
        return { Outcome::noImage, {}, 0, QStringLiteral("Rendering stopped") };
    } catch (const std::exception &error) {
        return { Outcome::noImage, {}, 0, messageOf(error) };
    }
}
