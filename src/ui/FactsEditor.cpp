#include "ui/FactsEditor.h"

#include "core/DocDate.h"
#include "core/DocumentKind.h"
#include "library/Library.h"
#include "ui/Icons.h"
#include "ui/Tones.h"

#include <QComboBox>
#include <QCompleter>
#include <QDateEdit>
#include <QEvent>
#include <QFocusEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QStringListModel>
#include <QToolButton>

namespace {

constexpr int suggestionLimit = 8;

QFont scaled(QFont font, qreal factor)
{
    font.setPointSizeF(font.pointSizeF() * factor);
    return font;
}

// The locale's short date, with the year in full so that typing one is unambiguous.
QString dayFormat()
{
    QString format = QLocale().dateFormat(QLocale::ShortFormat);
    if (!format.contains(QLatin1String("yyyy")))
        format.replace(QLatin1String("yy"), QLatin1String("yyyy"));
    return format;
}

} // namespace

FactsEditor::FactsEditor(Library &library, std::vector<ScanDocument> documents, QWidget *parent)
    : QWidget(parent)
    , library_(library)
    , facts_(documents)
    , organization_(new QLineEdit(this))
    , suggestions_(new QStringListModel(this))
    , organizationMenuButton_(new QToolButton(this))
    , organizationMenu_(new QMenu(this))
    , kind_(new QComboBox(this))
    , date_(new QDateEdit(this))
    , dateText_(new QLabel(this))
    , clearDate_(new QToolButton(this))
    , dateState_(new QLabel(this))
    , dateButton_(new QPushButton(this))
{
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setColumnStretch(1, 1);
    const auto label = [&](const QString &text, QWidget *buddy, int row) {
        auto *name = new QLabel(text, this);
        name->setBuddy(buddy);
        secondary_.push_back(name);
        grid->addWidget(name, row, 0, Qt::AlignLeft | Qt::AlignVCenter);
    };

    organization_->setObjectName(QStringLiteral("organizationField"));
    organization_->setAccessibleName(QStringLiteral("Organization"));
    organization_->setText(facts_.commonOrg.value_or(QString()));
    auto *completer = new QCompleter(suggestions_, organization_);
    completer->setCompletionMode(QCompleter::UnfilteredPopupCompletion);
    completer->setCaseSensitivity(Qt::CaseInsensitive);
    completer->setMaxVisibleItems(suggestionLimit);
    organization_->setCompleter(completer);
    // Installed after the completer, so that it sees the field's focus leave before the completer does.
    organization_->installEventFilter(this);
    connect(organization_, &QLineEdit::textEdited, this, &FactsEditor::suggest);
    connect(organization_, &QLineEdit::returnPressed, this, &FactsEditor::commitOrganization);

    organizationMenuButton_->setObjectName(QStringLiteral("organizationMenu"));
    organizationMenuButton_->setIcon(Icons::symbol(u"building.columns"));
    organizationMenuButton_->setToolTip(QStringLiteral("Choose an existing organization"));
    organizationMenuButton_->setAccessibleName(QStringLiteral("Choose an existing organization"));
    organizationMenuButton_->setAutoRaise(true);
    organizationMenuButton_->setPopupMode(QToolButton::InstantPopup);
    organizationMenuButton_->setMenu(organizationMenu_);
    // Filled when opened: an inspector is made for every scan shown, and most are never asked.
    connect(organizationMenu_, &QMenu::aboutToShow, this, [this] {
        if (menuStale_)
            fillOrganizationMenu();
    });
    connect(&library_, &Library::organizationsChanged, this, [this] { menuStale_ = true; });

    auto *organizationRow = new QHBoxLayout;
    organizationRow->addWidget(organization_, 1);
    organizationRow->addWidget(organizationMenuButton_);
    label(QStringLiteral("Organization"), organization_, 0);
    grid->addLayout(organizationRow, 0, 1);

    kind_->setObjectName(QStringLiteral("kindPicker"));
    kind_->setAccessibleName(QStringLiteral("Type"));
    connect(kind_, &QComboBox::activated, this, &FactsEditor::pickKind);
    label(QStringLiteral("Type"), kind_, 1);
    grid->addWidget(kind_, 1, 1, Qt::AlignLeft);

    date_->setObjectName(QStringLiteral("datePicker"));
    date_->setAccessibleName(QStringLiteral("Date"));
    date_->setCalendarPopup(true);
    date_->setTimeSpec(Qt::UTC);
    date_->setDisplayFormat(dayFormat());
    // A day typed digit by digit is stored once, when it is complete.
    date_->setKeyboardTracking(false);
    connect(date_, &QDateEdit::dateChanged, this, [this](QDate day) {
        if (DocDate::parse(facts_.commonDate.value_or(QString())) != day)
            library_.setDate(facts_.ids, day);
    });
    dateText_->setObjectName(QStringLiteral("dateText"));
    dateText_->setFont(scaled(dateText_->font(), 0.95));
    dateText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    secondary_.push_back(dateText_);
    clearDate_->setObjectName(QStringLiteral("clearDate"));
    clearDate_->setIcon(Icons::symbol(u"xmark.circle.fill"));
    clearDate_->setToolTip(QStringLiteral("Clear the date"));
    clearDate_->setAccessibleName(QStringLiteral("Clear the date"));
    clearDate_->setAutoRaise(true);
    connect(clearDate_, &QToolButton::clicked, this, [this] { library_.setDate(facts_.ids, std::nullopt); });
    dateState_->setObjectName(QStringLiteral("dateState"));
    secondary_.push_back(dateState_);
    dateButton_->setObjectName(QStringLiteral("dateButton"));
    dateButton_->setFont(scaled(dateButton_->font(), 0.9));
    connect(dateButton_, &QPushButton::clicked, this,
        [this] { library_.setDate(facts_.ids, DocDate::parse(DocDate::today())); });

    auto *dateRow = new QHBoxLayout;
    for (QWidget *widget : std::initializer_list<QWidget *> { date_, dateText_, clearDate_, dateState_, dateButton_ })
        dateRow->addWidget(widget);
    dateRow->addStretch();
    label(QStringLiteral("Date"), date_, 2);
    grid->addLayout(dateRow, 2, 1);

    recolour();
    refresh();
}

FactsEditor::~FactsEditor()
{
    // The field loses its focus as it goes; that is no commit.
    organization_->removeEventFilter(this);
}

void FactsEditor::setDocuments(std::vector<ScanDocument> documents)
{
    Facts facts(documents);
    const bool otherScans = facts.ids != facts_.ids;
    facts_ = std::move(facts);
    if (otherScans)
        committed_ = false;
    if (otherScans || !organization_->hasFocus()) {
        organization_->setText(facts_.commonOrg.value_or(QString()));
        suggestions_->setStringList({});
    }
    refresh();
}

bool FactsEditor::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == organization_ && event->type() == QEvent::FocusOut) {
        // A menu or the completer's list opening, or another window coming to the front, leaves the
        // typing cursor where it is.
        const Qt::FocusReason reason = static_cast<QFocusEvent *>(event)->reason();
        if (reason != Qt::PopupFocusReason && reason != Qt::ActiveWindowFocusReason)
            commitOrganization();
    }
    return QWidget::eventFilter(watched, event);
}

void FactsEditor::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        recolour();
}

void FactsEditor::refresh()
{
    organization_->setPlaceholderText(
        facts_.organizationsDiffer() ? QStringLiteral("Multiple") : QStringLiteral("Unknown"));
    refreshKinds();
    refreshDate();
}

void FactsEditor::refreshKinds()
{
    // An item without data is "Multiple", which stands for no kind at all; "None" has the empty text.
    struct Item {
        QString text;
        QVariant kind;
    };
    std::vector<Item> items;
    if (facts_.kindsDiffer() && facts_.ids.size() > 1)
        items.push_back({ QStringLiteral("Multiple"), QVariant() });
    items.push_back({ QStringLiteral("None"), QString() });
    for (const QString &kind : DocumentKind::all())
        items.push_back({ kind, kind });
    // A kind from before the list was what it is still shows.
    if (facts_.commonKind && !facts_.commonKind->isEmpty() && !DocumentKind::all().contains(*facts_.commonKind))
        items.push_back({ *facts_.commonKind, *facts_.commonKind });

    bool same = kind_->count() == int(items.size());
    for (int index = 0; same && index < kind_->count(); ++index)
        same = kind_->itemText(index) == items[index].text;
    if (!same) {
        const QSignalBlocker quiet(kind_);
        kind_->clear();
        for (const Item &item : items)
            kind_->addItem(item.text, item.kind);
    }
    const int current = facts_.commonKind ? kind_->findData(*facts_.commonKind) : 0;
    kind_->setCurrentIndex(current < 0 ? 0 : current);
}

void FactsEditor::refreshDate()
{
    const bool shared = facts_.commonDate && !facts_.commonDate->isEmpty();
    if (shared) {
        const QSignalBlocker quiet(date_);
        date_->setDate(DocDate::parse(*facts_.commonDate));
        dateText_->setText(DocDate::display(facts_.commonDate));
    } else {
        const QString state = facts_.commonDate ? QStringLiteral("None") : QStringLiteral("Multiple");
        const QString action = facts_.commonDate ? QStringLiteral("Add Date") : QStringLiteral("Set Date");
        dateState_->setText(state);
        dateButton_->setText(action);
        dateButton_->setAccessibleName(action);
    }
    for (QWidget *widget : std::initializer_list<QWidget *> { date_, dateText_, clearDate_ })
        widget->setVisible(shared);
    for (QWidget *widget : std::initializer_list<QWidget *> { dateState_, dateButton_ })
        widget->setVisible(!shared);
}

void FactsEditor::fillOrganizationMenu()
{
    menuStale_ = false;
    organizationMenu_->clear();
    for (const Organization &organization : library_.organizations()) {
        // A menu item reads "&" as the mark of its shortcut letter.
        QString text = organization.name;
        QAction *item = organizationMenu_->addAction(text.replace(QLatin1Char('&'), QLatin1String("&&")));
        connect(item, &QAction::triggered, this, [this, name = organization.name] { chooseOrganization(name); });
    }
    organizationMenu_->addSeparator();
    QAction *none = organizationMenu_->addAction(QStringLiteral("None"));
    connect(none, &QAction::triggered, this, [this] { chooseOrganization(std::nullopt); });
}

void FactsEditor::suggest(const QString &typed)
{
    committed_ = false;
    suggestions_->setStringList(organizationSuggestions(typed, facts_.commonOrg, library_.organizations()));
}

void FactsEditor::commitOrganization()
{
    if (committed_)
        return;
    const std::optional<OrganizationChange> change = organizationCommit(organization_->text(), facts_);
    if (!change)
        return;
    committed_ = true;
    library_.setOrganization(facts_.ids, change->name);
}

void FactsEditor::chooseOrganization(const std::optional<QString> &name)
{
    // What was typed gives way to the choice, so that leaving the field later doesn't undo it.
    organization_->setText(name.value_or(QString()));
    suggestions_->setStringList({});
    committed_ = true;
    library_.setOrganization(facts_.ids, name);
}

void FactsEditor::pickKind(int index)
{
    const QVariant kind = kind_->itemData(index);
    if (!kind.isValid() || facts_.commonKind == kind.toString())
        return;
    const QString text = kind.toString();
    library_.setKind(facts_.ids, text.isEmpty() ? std::nullopt : std::optional(text));
}

void FactsEditor::recolour()
{
    for (QLabel *label : secondary_) {
        QPalette secondary = label->palette();
        secondary.setColor(QPalette::WindowText, Tones::secondary(palette()));
        label->setPalette(secondary);
    }
}
