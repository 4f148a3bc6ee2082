#include "ui/ActivityView.h"

#include "library/ActivityTableModel.h"
#include "library/Library.h"
#include "ui/AttemptView.h"
#include "ui/Disclosure.h"
#include "ui/EmptyState.h"
#include "ui/Icons.h"
#include "ui/ToneLabel.h"
#include "ui/Tones.h"

#include <QAction>
#include <QClipboard>
#include <QGuiApplication>
#include <QHeaderView>
#include <QPainter>
#include <QScrollArea>
#include <QScrollBar>
#include <QSplitter>
#include <QStackedWidget>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QToolBar>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int spinnerTicks = 8;

// A small turning indicator: ticks round a circle, the one at `phase` darkest.
QPixmap spinner(const QColor &colour, int phase, int size, qreal pixelRatio)
{
    QPixmap pixmap(QSize(size, size) * pixelRatio);
    pixmap.setDevicePixelRatio(pixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF centre(size / 2.0, size / 2.0);
    for (int tick = 0; tick < spinnerTicks; ++tick) {
        const double angle = 2 * std::numbers::pi * tick / spinnerTicks;
        const QPointF direction(std::sin(angle), -std::cos(angle));
        // The ticks behind the leading one fade out.
        const int behind = (phase - tick + spinnerTicks) % spinnerTicks;
        QColor shade = colour;
        shade.setAlphaF(1.0 - 0.8 * behind / (spinnerTicks - 1));
        painter.setPen(QPen(shade, size / 8.0, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(centre + direction * (size * 0.22), centre + direction * (size * 0.45));
    }
    return pixmap;
}

// The kind in the secondary colour, failed outcomes in orange and running ones with their indicator.
class ActivityDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void advance() { phase_ = (phase_ + 1) % spinnerTicks; }

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        if (index.column() == ActivityTableModel::kind) {
            option->palette.setColor(QPalette::Text, Tones::secondary(option->palette));
        } else if (index.column() == ActivityTableModel::outcome) {
            if (index.data(ActivityTableModel::FailedRole).toBool())
                option->palette.setColor(QPalette::Text, Tones::orange(option->palette));
            if (index.data(ActivityTableModel::RunningRole).toBool()) {
                const qreal ratio = option->widget ? option->widget->devicePixelRatioF() : 1.0;
                option->icon = QIcon(spinner(option->palette.color(QPalette::Text), phase_, 12, ratio));
                option->features |= QStyleOptionViewItem::HasDecoration;
                option->decorationSize = QSize(12, 12);
            }
        }
    }

private:
    int phase_ = 0;
};

bool anyRunning(const ActivityLog &log)
{
    return std::any_of(log.entries().begin(), log.entries().end(),
        [](const ActivityEntry &entry) { return entry.outcome == QLatin1String("Running"); });
}

} // namespace

ActivityView::ActivityView(Library &library, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , library_(library)
    , model_(new ActivityTableModel(library.activity(), this))
    , table_(new QTableView(this))
    , detail_(new QStackedWidget(this))
    , empty_(new EmptyState(detail_))
    , attemptArea_(new QScrollArea(detail_))
    , footer_(new ToneLabel(ToneLabel::Tone::secondary, ToneLabel::Size::callout, this))
{
    setObjectName(QStringLiteral("activity"));
    setWindowTitle(QStringLiteral("Activity"));
    setWindowIcon(Icons::application());
    resize(1100, 700);
    // A window of its own, closed like one.
    auto *close = new QAction(this);
    close->setShortcut(QKeySequence::Close);
    connect(close, &QAction::triggered, this, &QWidget::close);
    addAction(close);

    auto *toolbar = new QToolBar(this);
    toolbar->setObjectName(QStringLiteral("activityToolbar"));
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar->setIconSize(QSize(16, 16));
    toolbar->addAction(toggle(QStringLiteral("showModel"), QStringLiteral("Model"), &ActivityTableModel::setShowModel));
    toolbar->addAction(toggle(QStringLiteral("showOCR"), QStringLiteral("Text"), &ActivityTableModel::setShowOCR));
    toolbar->addAction(toggle(QStringLiteral("showQueue"), QStringLiteral("Queue"), &ActivityTableModel::setShowQueue));
    toolbar->addSeparator();
    QAction *failures
        = toggle(QStringLiteral("failuresOnly"), QStringLiteral("Failures Only"), &ActivityTableModel::setFailuresOnly);
    failures->setChecked(false);
    failures->setIcon(Icons::symbol(u"exclamationmark.triangle"));
    failures->setToolTip(QStringLiteral("Show only failed requests"));
    toolbar->addAction(failures);
    auto *spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    QAction *copy = toolbar->addAction(Icons::symbol(u"doc.on.doc"), QStringLiteral("Copy"), this,
        [this] { QGuiApplication::clipboard()->setText(model_->shownLines().join(QLatin1Char('\n'))); });
    copy->setObjectName(QStringLiteral("copyActivity"));
    copy->setToolTip(QStringLiteral("Copy the shown rows as text"));
    QAction *clear = toolbar->addAction(
        Icons::symbol(u"trash"), QStringLiteral("Clear"), this, [this] { library_.activity().clear(); });
    clear->setObjectName(QStringLiteral("clearActivity"));
    clear->setToolTip(QStringLiteral("Clear the log"));

    auto *delegate = new ActivityDelegate(table_);
    table_->setObjectName(QStringLiteral("activityTable"));
    table_->setAccessibleName(QStringLiteral("Activity"));
    table_->setModel(model_);
    table_->setItemDelegate(delegate);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setShowGrid(false);
    table_->setAlternatingRowColors(true);
    table_->setWordWrap(false);
    table_->setTextElideMode(Qt::ElideRight);
    table_->verticalHeader()->hide();
    table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 8);
    QHeaderView *header = table_->horizontalHeader();
    header->setHighlightSections(false);
    header->setStretchLastSection(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(ActivityTableModel::outcome, QHeaderView::Stretch);
    // Narrow columns for the figures and names, so that the outcome, often a long error, gets the rest.
    const QFontMetrics metrics = table_->fontMetrics();
    const auto fit = [&](const QString &sample) { return metrics.horizontalAdvance(sample) + 16; };
    table_->setColumnWidth(ActivityTableModel::time,
        fit(ActivityEntry { .date = QDateTime(QDate(2024, 12, 28), QTime(23, 58, 58)) }.timeOfDay()));
    table_->setColumnWidth(ActivityTableModel::kind, fit(QStringLiteral("Queue")));
    table_->setColumnWidth(ActivityTableModel::file, fit(QStringLiteral("Invoice 2024-03-01.pdf")));
    table_->setColumnWidth(ActivityTableModel::request, fit(QStringLiteral("Page 10, plain text")));
    table_->setColumnWidth(ActivityTableModel::seconds, fit(QStringLiteral("Seconds")));
    table_->setColumnWidth(ActivityTableModel::tokens, fit(QStringLiteral("Tokens")));

    empty_->show(QStringLiteral("list.bullet.rectangle"), QStringLiteral("Select a Row"),
        QStringLiteral("Model rows show the exact instructions, prompt and response."));
    empty_->setObjectName(QStringLiteral("activityEmpty"));
    attemptArea_->setObjectName(QStringLiteral("activityDetail"));
    attemptArea_->setAccessibleName(QStringLiteral("Request"));
    attemptArea_->setWidgetResizable(true);
    attemptArea_->setFrameShape(QFrame::NoFrame);
    detail_->addWidget(empty_);
    detail_->addWidget(attemptArea_);

    auto *splitter = new QSplitter(Qt::Horizontal, this);
    splitter->setObjectName(QStringLiteral("activitySplitter"));
    splitter->setChildrenCollapsible(false);
    splitter->addWidget(table_);
    splitter->addWidget(detail_);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    splitter->setSizes({ 720, 380 });

    footer_->setObjectName(QStringLiteral("activityFooter"));
    footer_->setAccessibleName(QStringLiteral("Summary"));
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(toolbar);
    column->addWidget(splitter, 1);
    auto *footerRow = new QHBoxLayout;
    footerRow->setContentsMargins(10, 5, 10, 6);
    footerRow->addWidget(footer_);
    column->addLayout(footerRow);

    connect(
        table_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &ActivityView::selectionFollowsTable);
    // Removed rows may take the selection with them without a word from the selection model.
    connect(model_, &QAbstractItemModel::rowsRemoved, this, &ActivityView::selectionFollowsTable);
    connect(model_, &QAbstractItemModel::dataChanged, this, [this](const QModelIndex &first, const QModelIndex &last) {
        const std::optional<int> row = selection_ ? model_->rowOf(*selection_) : std::nullopt;
        if (row && *row >= first.row() && *row <= last.row())
            showDetail();
    });
    connect(&library_.activity(), &ActivityLog::changed, this, &ActivityView::logChanged);
    spinning_.setInterval(100);
    connect(&spinning_, &QTimer::timeout, this, [this, delegate] {
        if (!isVisible())
            return;
        delegate->advance();
        table_->viewport()->update();
    });
    logChanged();
    showDetail();
}

QAction *ActivityView::toggle(const QString &name, const QString &text, void (ActivityTableModel::*set)(bool))
{
    auto *action = new QAction(text, this);
    action->setObjectName(name);
    action->setCheckable(true);
    action->setChecked(true);
    connect(action, &QAction::toggled, model_, set);
    return action;
}

void ActivityView::selectionFollowsTable()
{
    const QModelIndexList rows = table_->selectionModel()->selectedRows();
    std::optional<QUuid> selected;
    if (!rows.isEmpty())
        selected = model_->entry(rows.front().row()).id;
    if (selected == selection_)
        return;
    selection_ = selected;
    showDetail();
}

void ActivityView::showDetail()
{
    const std::optional<int> row = selection_ ? model_->rowOf(*selection_) : std::nullopt;
    const ActivityEntry *entry = row ? &model_->entry(*row) : nullptr;
    if (!entry || entry->kind != ActivityEntry::Kind::model || !entry->attempt) {
        detail_->setCurrentWidget(empty_);
        delete attemptArea_->takeWidget();
        attempt_ = nullptr;
        return;
    }
    if (attempt_ && attempt_->attempt() == *entry->attempt) {
        detail_->setCurrentWidget(attemptArea_);
        return;
    }
    // The request in its finished form keeps the sections the reader opened on its running form.
    const bool sameRequest = attempt_ && attempt_->attempt().id == entry->attempt->id;
    const bool instructionsOpen = sameRequest && attempt_->instructions()->isExpanded();
    const bool promptOpen = sameRequest && attempt_->prompt()->isExpanded();
    // Numbered as the session's requests are.
    const auto &entries = library_.activity().entries();
    const auto until = std::find_if(
        entries.begin(), entries.end(), [&](const ActivityEntry &logged) { return logged.id == entry->id; });
    const auto number = std::count_if(entries.begin(), until, [](const ActivityEntry &logged) {
        return logged.kind == ActivityEntry::Kind::model;
    }) + 1;
    auto *view = new AttemptView(int(number), *entry->attempt);
    view->instructions()->setExpanded(instructionsOpen);
    view->prompt()->setExpanded(promptOpen);
    auto *holder = new QWidget;
    auto *column = new QVBoxLayout(holder);
    column->setContentsMargins(14, 12, 14, 12);
    column->addWidget(view);
    column->addStretch();
    delete attemptArea_->takeWidget();
    attemptArea_->setWidget(holder);
    attempt_ = view;
    detail_->setCurrentWidget(attemptArea_);
}

void ActivityView::logChanged()
{
    footer_->setText(model_->footer());
    if (anyRunning(library_.activity())) {
        if (!spinning_.isActive())
            spinning_.start();
    } else {
        spinning_.stop();
    }
}
