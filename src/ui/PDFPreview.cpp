#include "ui/PDFPreview.h"

#include "ui/Tones.h"

#include <QCoreApplication>
#include <QCoro/QCoroFuture>
#include <QHash>
#include <QKeyEvent>
#include <QLocale>
#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

// Around every page, so that pages are apart by twice this.
constexpr int margin = 10;
constexpr int mostInFlight = 2;
// Page pictures kept: a dozen or more pages of a pane's width on a double-density screen.
constexpr qint64 cacheBudget = 64 * 1024 * 1024;
constexpr auto settleDelay = std::chrono::milliseconds(150);
constexpr double smallestZoom = 0.25;
constexpr double largestZoom = 4;
constexpr double zoomStep = 1.25;
// A page without area still takes a page's place.
const QSizeF letter(612, 792);

// Keys whose render hung or ended the renderer, with what the preview said; previews are made anew for
// every scan shown, and none of them should hang on it again.
QHash<QString, QString> &refused()
{
    static QHash<QString, QString> keys;
    return keys;
}

std::shared_ptr<RenderPool> sharedPool()
{
    // Goes with the application, taking its readers with it.
    struct Holder : QObject {
        using QObject::QObject;
        std::shared_ptr<RenderPool> pool = std::make_shared<RenderPool>(RenderPool::Options { .readers = 2 });
    };
    static Holder *const holder = new Holder(QCoreApplication::instance());
    return holder->pool;
}

QString failure(RenderPool::Outcome outcome)
{
    return outcome == RenderPool::Outcome::timedOut
        ? QStringLiteral("This scan couldn't be shown: the PDF took too long to render.")
        : QStringLiteral("This scan couldn't be shown: the PDF stopped the renderer.");
}

int rotationOf(const std::vector<int> &rotations, std::size_t index)
{
    return index < rotations.size() ? rotations[index] : 0;
}

} // namespace

PDFPreview::PDFPreview(QWidget *parent)
    : PDFPreview(sharedPool(), parent)
{
}

PDFPreview::PDFPreview(std::shared_ptr<RenderPool> pool, QWidget *parent)
    : QAbstractScrollArea(parent)
    , pool_(std::move(pool))
{
    setObjectName(QStringLiteral("preview"));
    setAccessibleName(QStringLiteral("Preview"));
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::StrongFocus);
    // A scroll bar that came and went with the width it takes would lay the pages out back and forth.
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    viewport()->setBackgroundRole(QPalette::Window);
    viewport()->setAutoFillBackground(false);
    verticalScrollBar()->setSingleStep(20);
    horizontalScrollBar()->setSingleStep(20);
    settle_.setSingleShot(true);
    settle_.setInterval(settleDelay);
    connect(&settle_, &QTimer::timeout, this, [this] {
        settleScale();
        requestPages();
    });
}

PDFPreview::~PDFPreview() = default;

QString PDFPreview::key(const QString &path, const QDateTime &modified, const std::vector<int> &rotations)
{
    const double seconds = double(modified.toMSecsSinceEpoch()) / 1000;
    QStringList turns;
    for (int rotation : rotations)
        turns << QString::number(rotation);
    return path + QLatin1Char('|') + QString::number(seconds, 'f', QLocale::FloatingPointShortest) + QLatin1Char('|')
        + QLatin1Char('[') + turns.join(QStringLiteral(", ")) + QLatin1Char(']');
}

void PDFPreview::show(const QString &path, const QDateTime &modified, const std::vector<int> &rotations)
{
    const QString key = PDFPreview::key(path, modified, rotations);
    if (key == loaded_)
        return;
    loaded_ = key;
    path_ = path;
    rotations_ = rotations;
    // Whatever is still under way for the last key is dropped as it arrives.
    ++generation_;
    pages_.clear();
    tops_.clear();
    images_.clear();
    cachedBytes_ = 0;
    inFlight_.clear();
    blank_.clear();
    message_.clear();
    zoom_ = 1;
    scale_ = 0;
    renderScale_ = 0;
    settle_.stop();
    loading_ = false;
    if (const auto why = refused().constFind(key); why != refused().constEnd())
        message_ = *why;
    else {
        loading_ = true;
        awaitSizes(this, generation_, pool_->measure(path));
    }
    relayout();
    viewport()->update();
}

QCoro::Task<> PDFPreview::awaitSizes(
    QPointer<PDFPreview> self, quint64 generation, QFuture<RenderPool::Measured> future)
{
    const RenderPool::Measured result = co_await future;
    if (self && self->generation_ == generation)
        self->measured(result);
}

QCoro::Task<> PDFPreview::awaitPage(
    QPointer<PDFPreview> self, quint64 generation, int index, int maxPixel, QFuture<RenderPool::Result> future)
{
    const RenderPool::Result result = co_await future;
    if (self && self->generation_ == generation)
        self->rendered(index, maxPixel, result);
}

void PDFPreview::measured(const RenderPool::Measured &result)
{
    loading_ = false;
    if (result.outcome == RenderPool::Outcome::timedOut || result.outcome == RenderPool::Outcome::crashed)
        return fail(failure(result.outcome));
    // Anything else without sizes is no PDF to show: the preview stays empty.
    for (qsizetype index = 0; index < result.sizes.size(); ++index) {
        QSizeF size = result.sizes[index];
        if (size.isEmpty())
            size = letter;
        const int turn = ((rotationOf(rotations_, std::size_t(index)) % 360) + 360) % 360;
        if (turn == 90 || turn == 270)
            size.transpose();
        pages_.push_back(size);
    }
    relayout();
    requestPages();
    viewport()->update();
}

void PDFPreview::rendered(int index, int maxPixel, const RenderPool::Result &result)
{
    inFlight_.erase(index);
    switch (result.outcome) {
    case RenderPool::Outcome::rendered: {
        auto [place, added] = images_.try_emplace(index);
        if (!added)
            cachedBytes_ -= place->second.image.sizeInBytes();
        place->second = { result.image, maxPixel };
        cachedBytes_ += result.image.sizeInBytes();
        trimCache();
        viewport()->update(pageRect(index).translated(-horizontalScrollBar()->value(), -verticalScrollBar()->value()));
        break;
    }
    case RenderPool::Outcome::noImage:
        blank_.insert(index);
        break;
    case RenderPool::Outcome::timedOut:
    case RenderPool::Outcome::crashed:
        return fail(failure(result.outcome));
    }
    requestPages();
}

void PDFPreview::fail(const QString &why)
{
    refused().insert(loaded_, why);
    ++generation_;
    pages_.clear();
    images_.clear();
    cachedBytes_ = 0;
    inFlight_.clear();
    scale_ = 0;
    message_ = why;
    relayout();
    viewport()->update();
}

std::optional<QImage> PDFPreview::pageImage(int index) const
{
    if (const auto found = images_.find(index); found != images_.end())
        return found->second.image;
    return std::nullopt;
}

QSize PDFPreview::pageSize(int index, double scale) const
{
    const QSizeF &points = pages_[std::size_t(index)];
    return { std::max(1, int(std::lround(points.width() * scale))),
        std::max(1, int(std::lround(points.height() * scale))) };
}

QRect PDFPreview::pageRect(int index) const
{
    const QSize size = pageSize(index, scale_);
    return { (content_.width() - size.width()) / 2, tops_[std::size_t(index)], size.width(), size.height() };
}

int PDFPreview::wantedPixels(int index) const
{
    const double ratio = devicePixelRatioF();
    const QSize size = pageSize(index, renderScale_ / ratio);
    return int(std::lround(std::max(size.width(), size.height()) * ratio));
}

QRect PDFPreview::visibleContent() const
{
    return { QPoint(horizontalScrollBar()->value(), verticalScrollBar()->value()), viewport()->size() };
}

std::pair<int, int> PDFPreview::pagesBetween(int top, int bottom) const
{
    // A page's rectangle ends before the next one's top, so the last top at or above `top` is the first.
    const auto first = std::upper_bound(tops_.begin(), tops_.end(), top);
    const auto last = std::lower_bound(tops_.begin(), tops_.end(), bottom);
    return { int(std::max<std::ptrdiff_t>(first - tops_.begin() - 1, 0)), int(last - tops_.begin()) };
}

void PDFPreview::relayout(QPointF anchor)
{
    const double oldScale = scale_;
    const QPointF anchorInContent = QPointF(visibleContent().topLeft()) + anchor;

    widest_ = 0;
    for (const QSizeF &page : pages_)
        widest_ = std::max(widest_, page.width());
    const int available = std::max(viewport()->width() - 2 * margin, 1);
    scale_ = widest_ > 0 ? available / widest_ * zoom_ : 0;
    tops_.resize(pages_.size());
    int y = margin;
    int widest = 0;
    for (std::size_t index = 0; index < pages_.size(); ++index) {
        tops_[index] = y;
        const QSize size = pageSize(int(index), scale_);
        y += size.height() + 2 * margin;
        widest = std::max(widest, size.width());
    }
    content_ = pages_.empty() ? QSize() : QSize(std::max(widest + 2 * margin, viewport()->width()), y - margin);

    verticalScrollBar()->setRange(0, std::max(content_.height() - viewport()->height(), 0));
    verticalScrollBar()->setPageStep(viewport()->height());
    horizontalScrollBar()->setRange(0, std::max(content_.width() - viewport()->width(), 0));
    horizontalScrollBar()->setPageStep(viewport()->width());
    if (oldScale > 0 && scale_ > 0 && scale_ != oldScale) {
        const QPointF moved = anchorInContent * (scale_ / oldScale) - anchor;
        horizontalScrollBar()->setValue(int(std::lround(moved.x())));
        verticalScrollBar()->setValue(int(std::lround(moved.y())));
    }

    if (pages_.empty() || !isVisible())
        return;
    // The first pictures come at once; later changes of scale wait until it settles.
    if (renderScale_ == 0) {
        settleScale();
        requestPages();
    } else if (std::abs(renderScale_ - scale_ * devicePixelRatioF()) > 1e-9)
        settle_.start();
}

void PDFPreview::settleScale()
{
    renderScale_ = scale_ * devicePixelRatioF();
}

void PDFPreview::requestPages()
{
    if (pages_.empty() || renderScale_ == 0 || !isVisible())
        return;
    const QRect visible = visibleContent();
    const auto [first, last] = pagesBetween(visible.top(), visible.bottom() + 1);
    const auto [nearFirst, nearLast]
        = pagesBetween(visible.top() - visible.height(), visible.bottom() + visible.height());
    // The pages in view from the top, then those just below, then those just above.
    std::vector<int> order;
    for (int index = first; index < last; ++index)
        order.push_back(index);
    for (int index = last; index < nearLast; ++index)
        order.push_back(index);
    for (int index = first - 1; index >= nearFirst; --index)
        order.push_back(index);
    for (int index : order) {
        if (int(inFlight_.size()) >= mostInFlight)
            return;
        const int pixels = wantedPixels(index);
        const auto image = images_.find(index);
        if (inFlight_.contains(index) || blank_.contains(index)
            || (image != images_.end() && image->second.maxPixel == pixels))
            continue;
        inFlight_.emplace(index, pixels);
        awaitPage(this, generation_, index, pixels,
            pool_->render(path_, index, pixels, rotationOf(rotations_, std::size_t(index))));
    }
}

void PDFPreview::trimCache()
{
    if (cachedBytes_ <= cacheBudget)
        return;
    // The pictures farthest from the view go first; those in view stay whatever they take.
    const QRect visible = visibleContent();
    const auto [first, last] = pagesBetween(visible.top(), visible.bottom() + 1);
    std::vector<std::pair<int, int>> byDistance;
    for (const auto &[index, rendered] : images_) {
        if (index < first || index >= last)
            byDistance.emplace_back(std::max(first - index, index - last + 1), index);
    }
    std::ranges::sort(byDistance, std::greater());
    for (const auto &[distance, index] : byDistance) {
        if (cachedBytes_ <= cacheBudget)
            return;
        const auto found = images_.find(index);
        cachedBytes_ -= found->second.image.sizeInBytes();
        images_.erase(found);
    }
}

void PDFPreview::setZoom(double zoom)
{
    zoomAround(zoom, QPointF(viewport()->width() / 2.0, viewport()->height() / 2.0));
}

void PDFPreview::zoomAround(double zoom, QPointF anchor)
{
    zoom = std::clamp(zoom, smallestZoom, largestZoom);
    if (zoom == zoom_)
        return;
    zoom_ = zoom;
    relayout(anchor);
    viewport()->update();
}

void PDFPreview::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    painter.fillRect(event->rect(), palette().color(QPalette::Window));
    if (pages_.empty()) {
        if (!message_.isEmpty()) {
            painter.setPen(Tones::secondary(palette()));
            painter.drawText(viewport()->rect().adjusted(2 * margin, 0, -2 * margin, 0),
                Qt::AlignCenter | Qt::TextWordWrap, message_);
        }
        return;
    }
    const QPoint offset(horizontalScrollBar()->value(), verticalScrollBar()->value());
    const QRect exposed = event->rect().translated(offset);
    const auto [first, last] = pagesBetween(exposed.top() - margin, exposed.bottom() + margin + 1);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    for (int index = first; index < last; ++index) {
        const QRect page = pageRect(index).translated(-offset);
        // A soft shadow below the paper, wider as it fades.
        for (int spread = 3; spread >= 1; --spread)
            painter.fillRect(page.adjusted(-spread, -spread + 1, spread, spread + 1), QColor(0, 0, 0, 14));
        const auto image = images_.find(index);
        if (image != images_.end())
            painter.drawImage(page, image->second.image);
        else
            painter.fillRect(page, Qt::white);
    }
}

void PDFPreview::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    relayout();
}

void PDFPreview::showEvent(QShowEvent *event)
{
    QAbstractScrollArea::showEvent(event);
    relayout();
}

void PDFPreview::scrollContentsBy(int, int)
{
    viewport()->update();
    requestPages();
}

void PDFPreview::wheelEvent(QWheelEvent *event)
{
    if (!event->modifiers().testFlag(Qt::ControlModifier))
        return QAbstractScrollArea::wheelEvent(event);
    // A notch of the wheel (120) is a fifth larger or smaller; touchpads send smaller steps.
    zoomAround(zoom_ * std::pow(1.2, event->angleDelta().y() / 120.0), event->position());
    event->accept();
}

void PDFPreview::keyPressEvent(QKeyEvent *event)
{
    const bool control = event->modifiers().testFlag(Qt::ControlModifier);
    // Plus is shifted on many keyboards, so the key it shares is taken as well.
    if (event->matches(QKeySequence::ZoomIn)
        || (control && (event->key() == Qt::Key_Plus || event->key() == Qt::Key_Equal)))
        setZoom(zoom_ * zoomStep);
    else if (event->matches(QKeySequence::ZoomOut) || (control && event->key() == Qt::Key_Minus))
        setZoom(zoom_ / zoomStep);
    else if (control && event->key() == Qt::Key_0)
        setZoom(1);
    else
        return QAbstractScrollArea::keyPressEvent(event);
    event->accept();
}
