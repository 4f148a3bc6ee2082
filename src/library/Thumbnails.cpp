#include "library/Thumbnails.h"

#include <QCoreApplication>
#include <QCoro/QCoroFuture>

Thumbnails &Thumbnails::shared()
{
    // Goes with the application, taking its readers with it.
    static Thumbnails *const instance = new Thumbnails(std::make_shared<RenderPool>(), QCoreApplication::instance());
    return *instance;
}

Thumbnails::Thumbnails(std::shared_ptr<RenderPool> pool, QObject *parent)
    : QObject(parent)
    , pool_(std::move(pool))
{
}

QString Thumbnails::key(const QString &path, const QDateTime &modified, int rotation)
{
    const double seconds = double(modified.toMSecsSinceEpoch()) / 1000;
    return path + QLatin1Char('|') + QString::number(seconds, 'f', QLocale::FloatingPointShortest) + QLatin1Char('|')
        + QString::number(rotation);
}

std::optional<QImage> Thumbnails::cached(const QString &key) const
{
    if (const QImage *image = cache_.object(key))
        return *image;
    return std::nullopt;
}

QCoro::Task<std::optional<QImage>> Thumbnails::image(QString path, QDateTime modified, int rotation, int maxPixel)
{
    const QString key = Thumbnails::key(path, modified, rotation);
    if (std::optional<QImage> hit = cached(key))
        co_return hit;
    if (refused_.contains(key))
        co_return std::nullopt;
    if (const auto flight = inFlight_.constFind(key); flight != inFlight_.constEnd()) {
        const QFuture<std::optional<QImage>> result = *flight;
        co_return co_await result;
    }

    QPromise<std::optional<QImage>> promise;
    promise.start();
    inFlight_.insert(key, promise.future());
    std::optional<QImage> result;
    try {
        result = co_await render(path, rotation, maxPixel, key);
    } catch (...) {
        // Nothing here throws but memory running out; the answer is then no image.
    }
    inFlight_.remove(key);
    if (result)
        cache_.insert(key, new QImage(*result));
    promise.addResult(result);
    promise.finish();
    co_return result;
}

QCoro::Task<std::optional<QImage>> Thumbnails::render(QString path, int rotation, int maxPixel, QString key)
{
    if (!co_await acquire()) {
        Q_EMIT skipped(key);
        co_return std::nullopt;
    }
    RenderPool::Result result;
    try {
        result = co_await pool_->render(path, 0, maxPixel, rotation);
    } catch (...) {
        release();
        throw;
    }
    release();
    if (result.outcome == RenderPool::Outcome::timedOut || result.outcome == RenderPool::Outcome::crashed)
        refused_.insert(key);
    if (result.outcome != RenderPool::Outcome::rendered)
        co_return std::nullopt;
    co_return result.image;
}

QCoro::Task<bool> Thumbnails::acquire()
{
    if (running_ < maxConcurrent) {
        ++running_;
        co_return true;
    }
    auto turn = std::make_shared<QPromise<bool>>();
    turn->start();
    waiters_.push_back(turn);
    if (waiters_.size() > std::size_t(maxWaiting)) {
        const std::shared_ptr<QPromise<bool>> oldest = waiters_.front();
        waiters_.pop_front();
        oldest->addResult(false);
        oldest->finish();
    }
    // Resumed from the event loop, never inside the caller that hands the slot over.
    co_return co_await turn->future();
}

void Thumbnails::release()
{
    if (waiters_.empty()) {
        --running_;
        return;
    }
    // The slot passes straight to the newest waiter; `running_` stays.
    const std::shared_ptr<QPromise<bool>> next = waiters_.back();
    waiters_.pop_back();
    next->addResult(true);
    next->finish();
}
