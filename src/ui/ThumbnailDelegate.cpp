#include "ui/ThumbnailDelegate.h"

#include "library/DocumentTableModel.h"
#include "library/Thumbnails.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QCoro/QCoroTask>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>

namespace {

// Width over height of the placeholder, a page's shape.
constexpr double pageAspect = 0.773;
constexpr double frameAspect = 0.78;
constexpr double cornerRadius = 2;

QRectF fitted(const QRectF &frame, double aspect)
{
    QSizeF size(frame.height() * aspect, frame.height());
    if (size.width() > frame.width())
        size = QSizeF(frame.width(), frame.width() / aspect);
    QRectF rect(QPointF(), size);
    rect.moveCenter(frame.center());
    return rect;
}

} // namespace

ThumbnailDelegate::ThumbnailDelegate(QAbstractItemView *view)
    : QStyledItemDelegate(view)
    , view_(view)
{
    // A request given up for newer ones is made again when its row is painted next.
    connect(&Thumbnails::shared(), &Thumbnails::skipped, this, [this](const QString &key) { requested_.remove(key); });
}

QSize ThumbnailDelegate::sizeHint(const QStyleOptionViewItem &, const QModelIndex &) const
{
    return { columnWidth, rowHeight };
}

void ThumbnailDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    background.text.clear();
    background.icon = QIcon();
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, option.widget);

    QRectF frame(QPointF(), QSizeF(height * frameAspect, height));
    frame.moveCenter(QRectF(option.rect).center());

    const QString path = index.data(DocumentTableModel::PathRole).toString();
    std::optional<QImage> image;
    if (!path.isEmpty()) {
        const QDateTime modified = index.data(DocumentTableModel::ModifiedRole).toDateTime();
        const int rotation = index.data(DocumentTableModel::RotationRole).toInt();
        const QString key = Thumbnails::key(path, modified, rotation);
        image = Thumbnails::shared().cached(key);
        if (!image && !requested_.contains(key)) {
            requested_.insert(key);
            load(key, path, modified, rotation);
        }
    }

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    const QPalette &palette = option.palette;
    if (image && !image->isNull()) {
        const QRectF rect = fitted(frame, double(image->width()) / image->height());
        QPainterPath shape;
        shape.addRoundedRect(rect, cornerRadius, cornerRadius);
        QColor shadow(0, 0, 0, 31);
        painter->fillPath(shape.translated(0, 0.5), shadow);
        painter->setClipPath(shape);
        painter->drawImage(rect, *image);
        painter->setClipping(false);
        QColor separator = palette.color(QPalette::WindowText);
        separator.setAlphaF(0.2);
        painter->setPen(QPen(separator, 0.5));
        painter->setBrush(Qt::NoBrush);
        painter->drawPath(shape);
    } else {
        const QRectF rect = fitted(frame, pageAspect);
        QColor fill = palette.color(QPalette::WindowText);
        fill.setAlphaF(0.08);
        painter->setPen(Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(rect, cornerRadius, cornerRadius);
    }
    painter->restore();
}

void ThumbnailDelegate::load(const QString &key, const QString &path, const QDateTime &modified, int rotation) const
{
    Q_UNUSED(key);
    [](QPointer<QAbstractItemView> view, QString path, QDateTime modified, int rotation) -> QCoro::Task<> {
        const std::optional<QImage> image = co_await Thumbnails::shared().image(path, modified, rotation, maxPixel);
        if (view && image)
            view->viewport()->update();
    }(view_, path, modified, rotation);
}
