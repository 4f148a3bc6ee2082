#pragma once

#include "library/RenderPool.h"

#include <QAbstractScrollArea>
#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QFuture>
#include <QImage>
#include <QPointer>
#include <QSizeF>
#include <QString>
#include <QTimer>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

// A scan's pages in one column, fitted to the width, each turned by its stored rotation on top of its own
// /Rotate, with a gap and a shadow between pages, on the window's background. The app never opens the
// PDF: a confined reader measures the pages, so that a long scan is laid out at once, and renders only
// the pages in or near the view, at the view's width in device pixels. A new width or zoom scales the
// pictures at hand at once and renders them again once it has settled. At most two renders are asked
// for at a time, the nearest wanted pages first, so that scrolling far or moving to another scan leaves
// nothing queued. A file that is no PDF shows nothing; one whose render hangs or ends the renderer
// shows why, and is not rendered again while its key stays the same. Main thread only.
class PDFPreview : public QAbstractScrollArea {
    Q_OBJECT

public:
    // Over a pool of two readers, made on first use and shared by every preview.
    explicit PDFPreview(QWidget *parent = nullptr);
    explicit PDFPreview(std::shared_ptr<RenderPool> pool, QWidget *parent = nullptr);
    ~PDFPreview() override;

    // The pages of the file, page i turned rotations[i] degrees clockwise (0 beyond the list). Nothing
    // happens when its key is the one loaded; another key loads the file anew.
    void show(const QString &path, const QDateTime &modified, const std::vector<int> &rotations);
    using QWidget::show;

    // The path, "|", the modification time in seconds since 1970 in its shortest decimal form (whole
    // seconds without a point), "|", and the rotations as "[0, 90]".
    static QString key(const QString &path, const QDateTime &modified, const std::vector<int> &rotations);
    QString loadedKey() const { return loaded_; }

    // Whether the pages are still being measured.
    bool isLoading() const { return loading_; }
    int pageCount() const { return int(pages_.size()); }
    // The picture shown for page `index`, possibly of an earlier width, if one has arrived.
    std::optional<QImage> pageImage(int index) const;
    // Why the scan can't be shown, or empty.
    QString message() const { return message_; }

    // Relative to fitting the widest page to the width.
    double zoom() const { return zoom_; }
    void setZoom(double zoom);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    struct Rendered {
        QImage image;
        int maxPixel = 0; // the larger side asked for
    };

    static QCoro::Task<> awaitSizes(
        QPointer<PDFPreview> self, quint64 generation, QFuture<RenderPool::Measured> future);
    static QCoro::Task<> awaitPage(
        QPointer<PDFPreview> self, quint64 generation, int index, int maxPixel, QFuture<RenderPool::Result> future);
    void measured(const RenderPool::Measured &result);
    void rendered(int index, int maxPixel, const RenderPool::Result &result);
    void fail(const QString &why);

    // Places the pages for the view's width and zoom, keeping the content under `anchor` (in the
    // viewport) where it is.
    void relayout(QPointF anchor = {});
    void zoomAround(double zoom, QPointF anchor);
    // Pictures are asked for at the scale of now.
    void settleScale();
    // Asks for the nearest wanted pages while fewer than the most renders are under way.
    void requestPages();
    void trimCache();

    QSize pageSize(int index, double scale) const;
    QRect pageRect(int index) const; // in content coordinates
    int wantedPixels(int index) const;
    // Pages that overlap the content rows [top, bottom).
    std::pair<int, int> pagesBetween(int top, int bottom) const;
    QRect visibleContent() const;

    std::shared_ptr<RenderPool> pool_;
    QString loaded_;
    QString path_;
    quint64 generation_ = 0;
    bool loading_ = false;
    QString message_;

    std::vector<QSizeF> pages_; // in points, as shown: turned by /Rotate and the stored rotation
    std::vector<int> rotations_; // per page
    std::vector<int> tops_; // of each page's rectangle, in content pixels
    double widest_ = 0; // in points
    QSize content_;
    double zoom_ = 1;
    double scale_ = 0; // logical pixels per point, as shown now
    double renderScale_ = 0; // device pixels per point, as asked for; 0 until first laid out

    std::map<int, Rendered> images_;
    qint64 cachedBytes_ = 0;
    std::map<int, int> inFlight_; // page → larger side asked for
    std::set<int> blank_; // pages that give no picture
    QTimer settle_;
};
