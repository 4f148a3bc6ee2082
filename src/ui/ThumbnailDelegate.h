#pragma once

#include <QSet>
#include <QStyledItemDelegate>

// Draws a scan's first page as the table's thumbnail: the picture once the confined renderer has made
// it, a placeholder of the page's shape until then. Painting never waits for a render.
class ThumbnailDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    // The thumbnail's height, in device-independent pixels; its frame is 0.78 of that wide.
    static constexpr int height = 30;
    static constexpr int rowHeight = height + 8;
    static constexpr int columnWidth = 36;
    // Rendered at twice the size on screen, at two pixels per point.
    static constexpr int maxPixel = height * 4;

    explicit ThumbnailDelegate(QAbstractItemView *view);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    void load(const QString &key, const QString &path, const QDateTime &modified, int rotation) const;

    QAbstractItemView *view_;
    // Keys asked for once already: a render that gave no picture isn't asked for again on every paint.
    mutable QSet<QString> requested_;
};
