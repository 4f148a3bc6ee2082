#include "ui/DocumentTable.h"

#include "core/DocumentKind.h"
#include "library/DocumentTableModel.h"
#include "library/Library.h"
#include "ui/DesktopIntegration.h"
#include "ui/EmptyState.h"
#include "ui/Icons.h"
#include "ui/StatusDelegate.h"
#include "ui/ThumbnailDelegate.h"

#include <QContextMenuEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenu>
#include <QStackedLayout>
#include <QTableView>

namespace {

using Column = DocumentTableModel::Column;

std::optional<int> columnOf(SortComparator::Key key)
{
    switch (key) {
    case SortComparator::Key::date:
        return Column::date;
    case SortComparator::Key::organization:
        return Column::organization;
    case SortComparator::Key::kind:
        return Column::type;
    case SortComparator::Key::file:
        return Column::file;
    case SortComparator::Key::pages:
        return Column::pages;
    case SortComparator::Key::status:
        return Column::status;
    }
    return std::nullopt;
}

} // namespace

DocumentTable::DocumentTable(Library &library, Prompts &prompts, QWidget *parent)
    : QWidget(parent)
    , library_(library)
    , prompts_(prompts)
    , model_(new DocumentTableModel(library, this))
    , view_(new QTableView(this))
    , empty_(new EmptyState(this))
{
    view_->setObjectName(QStringLiteral("documents"));
    view_->setAccessibleName(QStringLiteral("Scans"));
    view_->setModel(model_);
    view_->setSelectionBehavior(QAbstractItemView::SelectRows);
    view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    view_->setDragEnabled(true);
    view_->setDragDropMode(QAbstractItemView::DragOnly);
    view_->setDefaultDropAction(Qt::CopyAction);
    view_->setShowGrid(false);
    view_->setAlternatingRowColors(true);
    view_->setWordWrap(false);
    view_->setTextElideMode(Qt::ElideMiddle);
    view_->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    view_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    view_->setContextMenuPolicy(Qt::CustomContextMenu);
    view_->setFrameShape(QFrame::NoFrame);
    view_->setItemDelegateForColumn(Column::thumbnail, new ThumbnailDelegate(view_));
    view_->setItemDelegateForColumn(Column::status, new StatusDelegate(view_));

    QHeaderView *rows = view_->verticalHeader();
    rows->hide();
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(ThumbnailDelegate::rowHeight);

    QHeaderView *header = view_->horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setStretchLastSection(false);
    header->setMinimumSectionSize(28);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(Column::thumbnail, QHeaderView::Fixed);
    // The three texts of any length share the width, so that none is squeezed to nothing when the
    // inspector takes its place beside the table.
    for (int column : { Column::organization, Column::type, Column::file })
        header->setSectionResizeMode(column, QHeaderView::Stretch);
    header->resizeSection(Column::thumbnail, ThumbnailDelegate::columnWidth);
    header->resizeSection(Column::date, 100);
    header->resizeSection(Column::pages, 54);
    header->resizeSection(Column::status, 120);
    connect(header, &QHeaderView::sectionClicked, this, &DocumentTable::sortBy);

    stack_ = new QStackedLayout(this);
    stack_->setContentsMargins(0, 0, 0, 0);
    stack_->addWidget(view_);
    stack_->addWidget(empty_);

    connect(view_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &DocumentTable::selectionEdited);
    connect(&library_, &Library::selectionChanged, this, &DocumentTable::applySelection);
    connect(model_, &QAbstractItemModel::modelReset, this, [this] {
        // A reset clears the view's selection: the Library's is applied again whatever it is.
        reselect_ = true;
        applySelection();
    });
    for (auto signal : { &QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved })
        connect(model_, signal, this, &DocumentTable::rowsChanged);
    connect(model_, &QAbstractItemModel::modelReset, this, &DocumentTable::rowsChanged);
    connect(model_, &QAbstractItemModel::layoutChanged, this, &DocumentTable::rowsChanged);
    connect(&library_, &Library::sortOrderChanged, this, &DocumentTable::showSortOrder);
    connect(view_, &QWidget::customContextMenuRequested, this, &DocumentTable::showMenu);
    connect(view_, &QAbstractItemView::activated, this, [this](const QModelIndex &index) {
        DesktopIntegration::openInPreview(library_, { model_->idAt(index.row()) });
    });
    showSortOrder();
    rowsChanged();
}

int DocumentTable::shownCount() const
{
    return model_->rowCount();
}

void DocumentTable::rowsChanged()
{
    if (model_->rowCount() > 0) {
        stack_->setCurrentWidget(view_);
    } else {
        if (library_.count(SidebarItem::all()) == 0)
            empty_->show(QStringLiteral("doc.viewfinder"), QStringLiteral("No PDFs Yet"),
                QStringLiteral("Scans saved to this folder show up here."));
        else
            empty_->show(QStringLiteral("line.3.horizontal.decrease.circle"), QStringLiteral("Nothing Here"),
                QStringLiteral("No scans match this filter."));
        stack_->setCurrentWidget(empty_);
    }
    Q_EMIT shownCountChanged();
}

void DocumentTable::selectionEdited()
{
    if (applying_)
        return;
    DocumentIDSet ids;
    for (const QItemSelectionRange &range : view_->selectionModel()->selection()) {
        for (int row = range.top(); row <= range.bottom(); ++row)
            ids.insert(model_->idAt(row));
    }
    shown_ = ids;
    library_.setSelection(std::move(ids));
}

void DocumentTable::applySelection()
{
    // What the view itself just chose needs no applying: selecting again costs a pass over the rows.
    if (library_.selection() == shown_ && !reselect_)
        return;
    reselect_ = false;
    shown_ = library_.selection();
    std::vector<int> rows;
    rows.reserve(shown_.size());
    for (std::int64_t id : shown_) {
        if (const std::optional<int> row = model_->rowOf(id))
            rows.push_back(*row);
    }
    std::ranges::sort(rows);
    // One range per run of neighbouring rows: every scan selected is one range, not one per row, which
    // the selection model would compare with each other at every change.
    QItemSelection selection;
    for (std::size_t first = 0; first < rows.size();) {
        std::size_t last = first;
        while (last + 1 < rows.size() && rows[last + 1] == rows[last] + 1)
            ++last;
        selection.append(
            QItemSelectionRange(model_->index(rows[first], 0), model_->index(rows[last], Column::columnTotal - 1)));
        first = last + 1;
    }
    applying_ = true;
    view_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    // One scan chosen elsewhere (the inspector's "Show") is brought into view, and the arrow keys go on
    // from it.
    if (rows.size() == 1 && shown_.size() == 1) {
        const QModelIndex chosen = model_->index(rows.front(), 0);
        if (view_->selectionModel()->currentIndex().row() != chosen.row())
            view_->selectionModel()->setCurrentIndex(chosen, QItemSelectionModel::NoUpdate);
        view_->scrollTo(chosen);
    }
    applying_ = false;
}

void DocumentTable::showSortOrder()
{
    const SortOrder &order = library_.sortOrder();
    if (order.empty())
        return;
    if (const std::optional<int> column = columnOf(order.front().key))
        view_->horizontalHeader()->setSortIndicator(
            *column, order.front().ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
}

void DocumentTable::sortBy(int column)
{
    if (column == Column::thumbnail) {
        showSortOrder();
        return;
    }
    const SortOrder &order = library_.sortOrder();
    Qt::SortOrder direction = Qt::AscendingOrder;
    if (!order.empty() && columnOf(order.front().key) == column)
        direction = order.front().ascending ? Qt::DescendingOrder : Qt::AscendingOrder;
    else if (column == Column::date)
        direction = Qt::DescendingOrder;
    model_->sort(column, direction);
    showSortOrder();
}

void DocumentTable::showMenu(const QPoint &position)
{
    const QModelIndex clicked = view_->indexAt(position);
    if (!clicked.isValid())
        return;
    const std::int64_t id = model_->idAt(clicked.row());
    DocumentIDSet ids = library_.selection();
    if (!ids.contains(id)) {
        view_->selectRow(clicked.row());
        ids = { id };
    }
    QMenu *menu = menuFor(ids, this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(view_->viewport()->mapToGlobal(position));
}

QMenu *DocumentTable::menuFor(const DocumentIDSet &ids, QWidget *parent)
{
    auto *menu = new QMenu(parent);
    menu->setObjectName(QStringLiteral("documentMenu"));
    menu->setToolTipsVisible(true);
    auto add = [menu](QMenu *to, const QString &name, const QString &text) {
        QAction *action = (to ? to : menu)->addAction(text);
        action->setObjectName(name);
        return action;
    };
    connect(add(nullptr, QStringLiteral("openInViewer"), QStringLiteral("Open in PDF Viewer")), &QAction::triggered,
        this, [this, ids] { DesktopIntegration::openInPreview(library_, ids); });
    connect(add(nullptr, QStringLiteral("showInFileManager"), QStringLiteral("Show in File Manager")),
        &QAction::triggered, this, [this, ids] { DesktopIntegration::revealInFinder(library_, ids); });
    menu->addSeparator();

    QMenu *organizations = menu->addMenu(QStringLiteral("Set Organization"));
    organizations->setObjectName(QStringLiteral("setOrganizationMenu"));
    connect(add(organizations, QStringLiteral("noOrganization"), QStringLiteral("None")), &QAction::triggered, this,
        [this, ids] { library_.setOrganization(ids, std::nullopt); });
    organizations->addSeparator();
    for (const Organization &organization : library_.organizations()) {
        const QString name = organization.name;
        connect(organizations->addAction(name), &QAction::triggered, this,
            [this, ids, name] { library_.setOrganization(ids, name); });
    }
    QMenu *kinds = menu->addMenu(QStringLiteral("Set Type"));
    kinds->setObjectName(QStringLiteral("setTypeMenu"));
    connect(add(kinds, QStringLiteral("noType"), QStringLiteral("None")), &QAction::triggered, this,
        [this, ids] { library_.setKind(ids, std::nullopt); });
    kinds->addSeparator();
    for (const QString &kind : DocumentKind::all())
        connect(kinds->addAction(kind), &QAction::triggered, this, [this, ids, kind] { library_.setKind(ids, kind); });
    menu->addSeparator();

    connect(add(nullptr, QStringLiteral("extractAgain"), QStringLiteral("Extract Again")), &QAction::triggered, this,
        [this, ids] { library_.reextract(ids); });
    QAction *extractNow = add(nullptr, QStringLiteral("extractNow"), QStringLiteral("Extract Now"));
    extractNow->setToolTip(QStringLiteral("Do these next, even while paused"));
    connect(extractNow, &QAction::triggered, this, [this, ids] { library_.extractNow(ids); });
    connect(add(nullptr, QStringLiteral("readTextAgain"), QStringLiteral("Read Text Again")), &QAction::triggered, this,
        [this, ids] { library_.rerunOCR(ids); });
    menu->addSeparator();

    DocumentIDSet missing;
    for (std::int64_t id : ids) {
        const auto found = library_.documentsByID().find(id);
        if (found != library_.documentsByID().end() && found->second.missing)
            missing.insert(id);
    }
    QAction *remove
        = add(nullptr, QStringLiteral("removeMissing"), QStringLiteral("Remove Missing Files from Library"));
    // Only files that are gone can be removed; present ones would come back with the next look at the folder.
    remove->setEnabled(!missing.empty());
    connect(remove, &QAction::triggered, this, [this, missing] { library_.removeMissing(missing); });
    return menu;
}
