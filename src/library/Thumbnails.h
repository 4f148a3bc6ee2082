#pragma once

#include "library/RenderPool.h"

#include <QCache>
#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QFuture>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QPromise>
#include <QSet>
#include <QString>

#include <deque>
#include <memory>
#include <optional>

// Pictures of the first pages of scans for the document table, rendered by a RenderPool and kept in
// memory. A picture is known by its file's path, modification time and rotation; the first render for
// a key serves every size asked for later. At most three renders run at once and a key is never
// rendered twice at once: later requests wait for the render under way. Requests beyond three wait, the
// newest served first: after a quick scroll the rows on screen are the ones asked for last. Those that
// waited longest beyond a couple of screenfuls are given up without rendering (`skipped`), so that
// scrolling through thousands of rows leaves no thousands of renders behind; the table asks for them
// again when it paints their rows. A render that gives no image is tried again on the next request, except one that
// timed out or ended its reader: that key is not rendered again until the file changes or turns (its key changes), so
// that a file that hangs the renderer doesn't hang it at every redraw. Main thread only.
class Thumbnails : public QObject {
    Q_OBJECT

public:
    static constexpr int cacheLimit = 2000;
    static constexpr int maxConcurrent = 3;
    static constexpr int maxWaiting = 100;

    // Made on first use, over a RenderPool of the default reader and settings.
    static Thumbnails &shared();

    explicit Thumbnails(std::shared_ptr<RenderPool> pool, QObject *parent = nullptr);

    static QString key(const QString &path, const QDateTime &modified, int rotation);

    // The finished thumbnail for the key, if cached.
    std::optional<QImage> cached(const QString &key) const;

    // The first page of the file, its larger side `maxPixel` pixels, turned `rotation` degrees clockwise;
    // absent when there is no image, or when the request was given up (then `skipped` says so first).
    // Never throws.
    QCoro::Task<std::optional<QImage>> image(QString path, QDateTime modified, int rotation, int maxPixel);

Q_SIGNALS:
    // The key's request waited too long behind newer ones and was given up unrendered.
    void skipped(const QString &key);

private:
    QCoro::Task<std::optional<QImage>> render(QString path, int rotation, int maxPixel, QString key);
    // Resumes with true once this caller holds one of the render slots, or with false when it was given
    // up for newer requests.
    QCoro::Task<bool> acquire();
    // Hands the slot to the newest waiter, or frees it.
    void release();

    std::shared_ptr<RenderPool> pool_;
    QCache<QString, QImage> cache_ { cacheLimit };
    QHash<QString, QFuture<std::optional<QImage>>> inFlight_;
    // Keys whose render hung or ended the renderer.
    QSet<QString> refused_;
    int running_ = 0;
    std::deque<std::shared_ptr<QPromise<bool>>> waiters_;
};
