#include "ui/LibraryView.h"

#include "library/Library.h"
#include "ui/DocumentTable.h"
#include "ui/Icons.h"
#include "ui/InspectorView.h"
#include "ui/SidebarView.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QSettings>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTableView>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

LibraryView::LibraryView(Library &library, Prompts &prompts, QWidget *parent)
    : QWidget(parent)
    , library_(library)
{
    setObjectName(QStringLiteral("library"));

    auto *toolbar = new QToolBar(this);
    toolbar->setObjectName(QStringLiteral("toolbar"));
    toolbar->setAccessibleName(QStringLiteral("Toolbar"));
    toolbar->setMovable(false);
    toolbar->setFloatable(false);
    toolbar->setIconSize(QSize(18, 18));

    search_ = new QLineEdit(toolbar);
    search_->setObjectName(QStringLiteral("search"));
    search_->setPlaceholderText(QStringLiteral("Search text, organizations, files"));
    search_->setAccessibleName(QStringLiteral("Search"));
    search_->setClearButtonEnabled(true);
    search_->addAction(Icons::symbol(u"magnifyingglass"), QLineEdit::LeadingPosition);
    search_->setMinimumWidth(260);
    search_->setMaximumWidth(420);
    connect(search_, &QLineEdit::textEdited, this, [this](const QString &text) { library_.setSearchText(text); });
    connect(&library_, &Library::searchTextChanged, this, [this] {
        if (search_->text() != library_.searchText())
            search_->setText(library_.searchText());
    });

    year_ = new QComboBox(toolbar);
    year_->setObjectName(QStringLiteral("yearPicker"));
    year_->setAccessibleName(QStringLiteral("Year"));
    year_->setToolTip(QStringLiteral("Show scans dated in one year"));
    year_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(year_, &QComboBox::activated, this, [this](int index) {
        const QVariant year = year_->itemData(index);
        library_.setYearFilter(year.isValid() ? std::optional<int>(year.toInt()) : std::nullopt);
    });

    kind_ = new QComboBox(toolbar);
    kind_->setObjectName(QStringLiteral("typePicker"));
    kind_->setAccessibleName(QStringLiteral("Type"));
    kind_->setToolTip(QStringLiteral("Show one type of document"));
    kind_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(kind_, &QComboBox::activated, this, [this](int index) {
        const QVariant kind = kind_->itemData(index);
        library_.setKindFilter(kind.isValid() ? std::optional<QString>(kind.toString()) : std::nullopt);
    });

    inspector_ = new QToolButton(toolbar);
    inspector_->setObjectName(QStringLiteral("inspectorToggle"));
    inspector_->setIcon(Icons::symbol(u"sidebar.right"));
    inspector_->setText(QStringLiteral("Inspector"));
    inspector_->setAccessibleName(QStringLiteral("Inspector"));
    inspector_->setCheckable(true);
    inspector_->setChecked(false);
    inspector_->setAutoRaise(true);

    toolbar->addWidget(search_);
    toolbar->addSeparator();
    auto *yearLabel = new QLabel(QStringLiteral("Year"), toolbar);
    yearLabel->setBuddy(year_);
    toolbar->addWidget(yearLabel);
    toolbar->addWidget(year_);
    auto *kindLabel = new QLabel(QStringLiteral("Type"), toolbar);
    kindLabel->setBuddy(kind_);
    toolbar->addWidget(kindLabel);
    toolbar->addWidget(kind_);
    auto *spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    toolbar->addWidget(inspector_);
    for (QLabel *label : { yearLabel, kindLabel })
        label->setContentsMargins(8, 0, 4, 0);

    sidebar_ = new SidebarView(library_, prompts, this);
    table_ = new DocumentTable(library_, prompts, this);
    inspectorPane_ = new InspectorView(library_, this);
    connect(inspectorPane_, &InspectorView::transcriptRequested, this, &LibraryView::transcriptRequested);
    connect(inspectorPane_, &InspectorView::instructionsRequested, this, &LibraryView::instructionsRequested);
    inspectorPane_->setMinimumWidth(300);

    auto *splitter = new QSplitter(Qt::Horizontal, this);
    splitter->setObjectName(QStringLiteral("columns"));
    splitter->addWidget(sidebar_);
    splitter->addWidget(table_);
    splitter->addWidget(inspectorPane_);
    splitter->setStretchFactor(0, 0);
    splitter->setStretchFactor(1, 1);
    splitter->setStretchFactor(2, 0);
    splitter->setCollapsible(1, false);
    splitter->setSizes({ 220, 700, 360 });
    inspectorPane_->setVisible(false);

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(toolbar);
    column->addWidget(splitter, 1);

    connect(inspector_, &QToolButton::toggled, this, [this](bool shown) {
        QSettings().setValue(inspectorShownKey, shown);
        inspectorPane_->setVisible(shown);
        updateInspectorToggle();
        Q_EMIT inspectorToggled(shown);
    });
    connect(table_, &DocumentTable::shownCountChanged, this, &LibraryView::shownCountChanged);
    connect(&library_, &Library::documentsChanged, this, [this] {
        updateYears();
        updateKinds();
    });
    connect(&library_, &Library::yearChanged, this, &LibraryView::updateYears);
    connect(&library_, &Library::kindChanged, this, &LibraryView::updateKinds);
    connect(&library_, &Library::folderChanged, this, [this] {
        updateYears();
        updateKinds();
    });
    setTabOrder(search_, year_);
    setTabOrder(year_, kind_);
    setTabOrder(kind_, inspector_);
    setTabOrder(inspector_, sidebar_);
    setTabOrder(sidebar_, table_->view());
    updateYears();
    updateKinds();
    updateInspectorToggle();
    // As the person left it last time.
    inspector_->setChecked(QSettings().value(inspectorShownKey, false).toBool());
}

void LibraryView::focusSearch()
{
    search_->setFocus(Qt::ShortcutFocusReason);
    search_->selectAll();
}

int LibraryView::shownCount() const
{
    return table_->shownCount();
}

void LibraryView::updateYears()
{
    const QSignalBlocker blocker(year_);
    year_->clear();
    year_->addItem(QStringLiteral("All Years"));
    for (int year : library_.years())
        year_->addItem(QString::number(year), year);
    const std::optional<int> chosen = library_.year();
    if (chosen && year_->findData(*chosen) < 0)
        year_->addItem(QString::number(*chosen), *chosen);
    year_->setCurrentIndex(chosen ? year_->findData(*chosen) : 0);
}

void LibraryView::updateKinds()
{
    const QSignalBlocker blocker(kind_);
    kind_->clear();
    kind_->addItem(QStringLiteral("All Types"));
    for (const QString &kind : library_.kinds())
        kind_->addItem(kind, kind);
    const std::optional<QString> &chosen = library_.kind();
    if (chosen && kind_->findData(*chosen) < 0)
        kind_->addItem(*chosen, *chosen);
    kind_->setCurrentIndex(chosen ? kind_->findData(*chosen) : 0);
}

void LibraryView::updateInspectorToggle()
{
    inspector_->setToolTip(
        inspector_->isChecked() ? QStringLiteral("Hide the inspector") : QStringLiteral("Show the inspector"));
}
