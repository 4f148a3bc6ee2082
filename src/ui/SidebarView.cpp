#include "ui/SidebarView.h"

#include "library/Library.h"
#include "library/SidebarModel.h"
#include "ui/Icons.h"
#include "ui/RenameDialog.h"
#include "ui/Tones.h"

#include <QApplication>
#include <QHeaderView>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QStyledItemDelegate>

namespace {

const Organization *organizationWith(const Library &library, std::int64_t id)
{
    for (const Organization &organization : library.organizations()) {
        if (organization.id == id)
            return &organization;
    }
    return nullptr;
}

// A row with its icon and name, and its count on the right; a section's title in small capitals.
class SidebarDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        size.setHeight(std::max(size.height(), index.parent().isValid() ? 26 : 30));
        return size;
    }

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QStyleOptionViewItem item = option;
        if (!index.parent().isValid()) {
            // A section's title.
            item.font.setBold(true);
            item.font.setPointSizeF(item.font.pointSizeF() * 0.9);
            item.palette.setColor(QPalette::Text, Tones::secondary(option.palette));
            item.state &= ~(QStyle::State_Selected | QStyle::State_MouseOver | QStyle::State_HasFocus);
            QStyledItemDelegate::paint(painter, item, index);
            return;
        }
        const QVariant count = index.data(SidebarModel::CountRole);
        const QString text = count.isValid() ? QString::number(count.toInt()) : QString();
        const int countWidth = text.isEmpty() ? 0 : option.fontMetrics.horizontalAdvance(text) + 16;
        QStyleOptionViewItem named = item;
        initStyleOption(&named, index);
        named.icon = Icons::symbol(index.data(SidebarModel::IconRole).toString());
        named.features |= QStyleOptionViewItem::HasDecoration;
        named.decorationSize = QSize(16, 16);
        // The name gives way to the count: elided before it rather than drawn under it.
        const int nameWidth = option.rect.width() - named.decorationSize.width() - countWidth - 16;
        named.text = option.fontMetrics.elidedText(named.text, Qt::ElideRight, std::max(nameWidth, 0));
        QStyle *style = option.widget ? option.widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ItemViewItem, &named, painter, option.widget);
        if (!text.isEmpty()) {
            painter->save();
            const bool selected = option.state & QStyle::State_Selected;
            painter->setPen(
                selected ? option.palette.color(QPalette::HighlightedText) : Tones::secondary(option.palette));
            QRect countRect = option.rect.adjusted(0, 0, -8, 0);
            painter->drawText(countRect, Qt::AlignRight | Qt::AlignVCenter, text);
            painter->restore();
        }
    }
};

} // namespace

SidebarView::SidebarView(Library &library, Prompts &prompts, QWidget *parent)
    : QTreeView(parent)
    , library_(library)
    , prompts_(prompts)
    , model_(new SidebarModel(library, this))
{
    setObjectName(QStringLiteral("sidebar"));
    setAccessibleName(QStringLiteral("Sidebar"));
    setModel(model_);
    setItemDelegate(new SidebarDelegate(this));
    setHeaderHidden(true);
    setRootIsDecorated(false);
    setItemsExpandable(false);
    setIndentation(8);
    setUniformRowHeights(false);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(true);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDefaultDropAction(Qt::CopyAction);
    // A drop lands on the row under the pointer, never between two rows.
    setDragDropOverwriteMode(true);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setFrameShape(QFrame::NoFrame);
    setMinimumWidth(180);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    expandAll();
    connect(model_, &QAbstractItemModel::rowsInserted, this, [this] { expandAll(); });
    connect(model_, &QAbstractItemModel::modelReset, this, [this] {
        expandAll();
        showSidebarItem();
    });
    connect(model_, &SidebarModel::mergeRequested, this, &SidebarView::confirmMerge);
    connect(&library_, &Library::sidebarChanged, this, &SidebarView::showSidebarItem);
    connect(this, &QWidget::customContextMenuRequested, this, &SidebarView::showMenu);
    showSidebarItem();
}

void SidebarView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QTreeView::currentChanged(current, previous);
    if (applying_)
        return;
    if (const std::optional<SidebarItem> item = model_->itemAt(current))
        library_.setSidebar(*item);
}

void SidebarView::showSidebarItem()
{
    const std::optional<SidebarItem> &item = library_.sidebar();
    const QModelIndex index = item ? model_->indexOf(*item) : QModelIndex();
    if (index == currentIndex())
        return;
    applying_ = true;
    if (index.isValid())
        setCurrentIndex(index);
    else
        selectionModel()->clearSelection();
    applying_ = false;
}

void SidebarView::showMenu(const QPoint &position)
{
    const QModelIndex index = indexAt(position);
    const std::optional<SidebarItem> item = model_->itemAt(index);
    if (!item || item->kind != SidebarItem::Kind::organization)
        return;
    QMenu *menu = menuFor(item->organizationID, this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(viewport()->mapToGlobal(position));
}

QMenu *SidebarView::menuFor(std::int64_t organization, QWidget *parent)
{
    auto *menu = new QMenu(parent);
    menu->setObjectName(QStringLiteral("organizationMenu"));
    QAction *rename = menu->addAction(QStringLiteral("Rename…"));
    rename->setObjectName(QStringLiteral("rename"));
    connect(rename, &QAction::triggered, this, [this, organization] { this->rename(organization); });
    QMenu *merge = menu->addMenu(QStringLiteral("Merge Into"));
    merge->setObjectName(QStringLiteral("mergeInto"));
    for (const Organization &other : library_.organizations()) {
        if (other.id == organization)
            continue;
        const std::int64_t target = other.id;
        connect(merge->addAction(other.name), &QAction::triggered, this,
            [this, organization, target] { confirmMerge(organization, target); });
    }
    merge->setEnabled(!merge->isEmpty());
    QAction *remove = menu->addAction(QStringLiteral("Delete…"));
    remove->setObjectName(QStringLiteral("delete"));
    connect(remove, &QAction::triggered, this, [this, organization] { confirmDelete(organization); });
    return menu;
}

void SidebarView::rename(std::int64_t organization)
{
    const Organization *found = organizationWith(library_, organization);
    if (!found)
        return;
    RenameDialog dialog(found->name, this);
    if (prompts_.run(dialog) != QDialog::Accepted)
        return;
    library_.renameOrganization(organization, dialog.name());
}

void SidebarView::confirmMerge(std::int64_t source, std::int64_t target)
{
    const Organization *from = organizationWith(library_, source);
    const Organization *into = organizationWith(library_, target);
    if (!from || !into || source == target)
        return;
    QMessageBox box(QMessageBox::Question, QStringLiteral("Merge Organizations"),
        QStringLiteral("Merge “") + from->name + QStringLiteral("” into “") + into->name + QStringLiteral("”?"),
        QMessageBox::NoButton, this);
    box.setObjectName(QStringLiteral("mergeConfirmation"));
    box.setInformativeText(QString::number(from->documentCount) + QStringLiteral(" scans move to “") + into->name
        + QStringLiteral("”, and scans the model calls “") + from->name
        + QStringLiteral("” will be filed there from now on."));
    QPushButton *merge = box.addButton(QStringLiteral("Merge"), QMessageBox::AcceptRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(merge);
    prompts_.run(box);
    if (box.clickedButton() == merge)
        library_.mergeOrganization(source, target);
}

void SidebarView::confirmDelete(std::int64_t organization)
{
    const Organization *found = organizationWith(library_, organization);
    if (!found)
        return;
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Delete Organization"),
        QStringLiteral("Delete “") + found->name + QStringLiteral("”?"), QMessageBox::NoButton, this);
    box.setObjectName(QStringLiteral("deleteConfirmation"));
    box.setInformativeText(QStringLiteral("Its scans will have no organization. The PDFs aren't affected."));
    QPushButton *remove = box.addButton(QStringLiteral("Delete"), QMessageBox::DestructiveRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(QMessageBox::Cancel);
    prompts_.run(box);
    if (box.clickedButton() == remove)
        library_.deleteOrganization(organization);
}
