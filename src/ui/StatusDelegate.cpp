#include "ui/StatusDelegate.h"

#include "library/DocumentTableModel.h"
#include "library/StatusLabel.h"
#include "ui/Icons.h"
#include "ui/Tones.h"

void StatusDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    option->icon = Icons::symbol(index.data(DocumentTableModel::StatusIconRole).toString());
    option->features |= QStyleOptionViewItem::HasDecoration;
    option->decorationSize = QSize(14, 14);
    QColor colour;
    switch (StatusLabel::Tone(index.data(DocumentTableModel::StatusToneRole).toInt())) {
    case StatusLabel::Tone::red:
        colour = Tones::red(option->palette);
        break;
    case StatusLabel::Tone::orange:
        colour = Tones::orange(option->palette);
        break;
    case StatusLabel::Tone::secondary:
        colour = Tones::secondary(option->palette);
        break;
    }
    option->palette.setColor(QPalette::Text, colour);
}
