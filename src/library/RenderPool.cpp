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
    for (Job &job : jobs_)
        job.drop();
}

namespace {

const QString stopped = QStringLiteral("Rendering stopped");

// What the reader's work came to, with why when it gave nothing.
std::pair<RenderPool::Outcome, QString> attempt(const std::function<void()> &work)
{
    using Outcome = RenderPool::Outcome;
    try {
        work();
        return { Outcome::rendered, {} };
    } catch (const ReaderUnavailable &unavailable) {
        return { Outcome::noImage, unavailable.message() };
    } catch (const OCR::Failure &failure) {
        if (failure.message() == ReaderWorker::tookTooLong)
            return { Outcome::timedOut, failure.message() };
        if (failure.message() == ReaderWorker::stoppedTheReader || failure.message() == ReaderProtocol::tooLarge)
            return { Outcome::crashed, failure.message() };
        return { Outcome::noImage, failure.message() };
    } catch (const Cancelled &) {
        return { Outcome::noImage, stopped };
    } catch (const std::exception &error) {
        return { Outcome::noImage, messageOf(error) };
    }
}

// The promise answered once, shared by the job's two ways of ending.
template <typename Answer> std::shared_ptr<QPromise<Answer>> started()
{
    auto promise = std::make_shared<QPromise<Answer>>();
    promise->start();
    return promise;
}

template <typename Answer> void answer(QPromise<Answer> &promise, Answer result)
{
    promise.addResult(std::move(result));
    promise.finish();
}

} // namespace

QFuture<RenderPool::Result> RenderPool::render(QString path, int index, int maxPixel, int rotation)
{
    const std::shared_ptr<QPromise<Result>> promise = started<Result>();
    add({ [=](ReaderWorker &worker, const std::stop_token &stop) {
             ReaderWorker::Rendered rendered;
             const auto [outcome, why]
                 = attempt([&] { rendered = worker.render(path, index, maxPixel, rotation, stop); });
             answer(*promise, Result { outcome, std::move(rendered.image), rendered.pageCount, why });
         },
        [=] {
            answer(*promise, Result { Outcome::noImage, {}, 0, stopped });
        } });
    return promise->future();
}

QFuture<RenderPool::Measured> RenderPool::measure(QString path)
{
    const std::shared_ptr<QPromise<Measured>> promise = started<Measured>();
    add({ [=](ReaderWorker &worker, const std::stop_token &stop) {
             QList<QSizeF> sizes;
             const auto [outcome, why] = attempt([&] { sizes = worker.measure(path, stop); });
             answer(*promise, Measured { outcome, std::move(sizes), why });
         },
        [=] {
            answer(*promise, Measured { Outcome::noImage, {}, stopped });
        } });
    return promise->future();
}

void RenderPool::add(Job job)
{
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    jobAdded_.notify_one();
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
        job.run(worker, stop);
    }
}
