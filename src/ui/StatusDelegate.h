#pragma once

#include <QStyledItemDelegate>

// Draws a scan's status with its icon and colour: red for what went wrong, orange for what needs a look.
class StatusDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};
