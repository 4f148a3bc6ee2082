#include "ui/PromptSettingsView.h"

#include "core/DocDate.h"
#include "extract/Instructions.h"
#include "extract/model/ModelSettings.h"
#include "library/Library.h"
#include "store/ScanStore.h"
#include "ui/EmptyState.h"
#include "ui/Icons.h"
#include "ui/ToneLabel.h"

#include <QClipboard>
#include <QCoro/QCoroTask>
#include <QFileInfo>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHostAddress>
#include <QPlainTextEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedLayout>
#include <QSysInfo>
#include <QTextCursor>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

using Tone = ToneLabel::Tone;
using Size = ToneLabel::Size;

QPushButton *button(const QString &name, const QString &text, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(name);
    button->setAccessibleName(text);
    return button;
}

// A host name without the suffixes a local network adds, for comparing names of this computer.
QString bareHostName(QString name)
{
    name = name.toLower();
    if (name.endsWith(u'.'))
        name.chop(1);
    for (const QLatin1StringView suffix : { QLatin1StringView(".localdomain"), QLatin1StringView(".local") }) {
        if (name.endsWith(suffix)) {
            name.chop(suffix.size());
            break;
        }
    }
    return name;
}

} // namespace

QString PromptSettingsView::modelLocation(const QUrl &server, const QString &localHostName)
{
    const QString thisComputer = QStringLiteral("this computer");
    const QString host = server.host();
    const QString name = bareHostName(host);
    if (name.isEmpty() || name == u"localhost" || name.endsWith(u".localhost"))
        return thisComputer;
    const QHostAddress address(host);
    if (!address.isNull()
        && (address.isLoopback() || address == QHostAddress(QHostAddress::AnyIPv4)
            || address == QHostAddress(QHostAddress::AnyIPv6)))
        return thisComputer;
    if (!localHostName.isEmpty() && name == bareHostName(localHostName))
        return thisComputer;
    return host;
}

PromptSettingsView::PromptSettingsView(Library &library, QWidget *parent)
    : QWidget(parent)
    , library_(library)
{
    setObjectName(QStringLiteral("promptSettings"));
    setAccessibleName(QStringLiteral("Instructions"));

    empty_ = new EmptyState(this);
    empty_->setObjectName(QStringLiteral("noFolder"));
    empty_->show(QStringLiteral("folder"), QStringLiteral("No Folder Open"),
        QStringLiteral("The instructions are saved per scans folder. Open one first."));
    content_ = makeEditor();
    stack_ = new QStackedLayout(this);
    stack_->addWidget(empty_);
    stack_->addWidget(content_);

    connect(&library_, &Library::folderChanged, this, &PromptSettingsView::showFolder);
    // The explanation names where the model runs.
    connect(&library_, &Library::modelChanged, this, &PromptSettingsView::refreshExplanation);
    connect(&library_, &Library::customInstructionsChanged, this, [this] {
        // A draft nobody has touched follows the stored text, which arrives only after the folder opened.
        const QString current = currentInstructions();
        if (draft() == loadedText_ && draft() != current)
            editor_->setPlainText(current);
        loadedText_ = current;
        refreshStatus();
        refreshControls();
    });
    connect(&library_, &Library::selectionChanged, this, &PromptSettingsView::refreshControls);
    connect(&library_, &Library::documentsChanged, this, [this] {
        refreshControls();
        // A page out of sight counts again when it is shown, not at every scan filed meanwhile.
        if (library_.folder() && isVisible())
            readCount();
    });
    connect(editor_, &QPlainTextEdit::textChanged, this, &PromptSettingsView::refreshControls);
    showFolder();
}

QWidget *PromptSettingsView::makeEditor()
{
    auto *page = new QWidget(this);
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(20, 20, 20, 20);
    column->setSpacing(10);

    auto *title = new ToneLabel(Tone::normal, Size::headline, page);
    title->setObjectName(QStringLiteral("instructionsTitle"));
    title->setText(QStringLiteral("Instructions for the Local Model"));
    column->addWidget(title);

    explanation_ = new ToneLabel(Tone::secondary, Size::callout, page);
    explanation_->setObjectName(QStringLiteral("instructionsExplanation"));
    explanation_->setWordWrap(true);
    explanation_->makeSelectable();
    explanation_->setAccessibleName(QStringLiteral("About the instructions"));
    column->addWidget(explanation_);

    editor_ = new QPlainTextEdit(page);
    editor_->setObjectName(QStringLiteral("instructionsEditor"));
    editor_->setAccessibleName(QStringLiteral("Instructions"));
    // Tab leaves the editor, so that the buttons below are reachable from the keyboard.
    editor_->setTabChangesFocus(true);
    editor_->setMinimumHeight(editor_->fontMetrics().lineSpacing() * 10);
    column->addWidget(editor_, 1);

    status_ = new ToneLabel(Tone::secondary, Size::caption, page);
    status_->setObjectName(QStringLiteral("instructionsStatus"));
    column->addWidget(status_);

    auto *controls = new QHBoxLayout;
    restore_ = button(QStringLiteral("restoreDefault"), QStringLiteral("Restore Default"), page);
    connect(restore_, &QPushButton::clicked, this, [this] {
        // Replaced through the cursor rather than set, so that an undo brings the draft back.
        QTextCursor cursor(editor_->document());
        cursor.select(QTextCursor::Document);
        cursor.insertText(Extractor::defaultInstructions());
    });
    try_ = button(QStringLiteral("tryInstructions"), QString(), page);
    connect(try_, &QPushButton::clicked, this, &PromptSettingsView::tryIt);
    progress_ = new QProgressBar(page);
    progress_->setObjectName(QStringLiteral("trialProgress"));
    progress_->setAccessibleName(QStringLiteral("Trying"));
    progress_->setRange(0, 0);
    progress_->setTextVisible(false);
    progress_->setFixedSize(48, 8);
    save_ = button(QStringLiteral("saveInstructions"), QStringLiteral("Save"), page);
    connect(save_, &QPushButton::clicked, this, [this] { save(false); });
    saveAndReextract_ = button(QStringLiteral("saveAndReextract"), QString(), page);
    saveAndReextract_->setToolTip(
        QStringLiteral("Ask the model again for every scan it filed. Scans you edited by hand are left alone."));
    connect(saveAndReextract_, &QPushButton::clicked, this, [this] { save(true); });
    controls->addWidget(restore_);
    controls->addWidget(try_);
    controls->addWidget(progress_);
    controls->addStretch();
    controls->addWidget(save_);
    controls->addWidget(saveAndReextract_);
    column->addLayout(controls);

    column->addWidget(makeResultPanel());
    return page;
}

QWidget *PromptSettingsView::makeResultPanel()
{
    resultPanel_ = new QFrame(this);
    resultPanel_->setObjectName(QStringLiteral("trialResult"));
    resultPanel_->setFrameShape(QFrame::StyledPanel);
    auto *row = new QHBoxLayout(resultPanel_);
    row->setContentsMargins(10, 8, 8, 8);
    row->setSpacing(8);

    resultTitle_ = new ToneLabel(Tone::normal, Size::headline, resultPanel_);
    resultTitle_->setObjectName(QStringLiteral("trialTitle"));
    resultTitle_->makeSelectable();
    resultTitle_->setAccessibleName(QStringLiteral("Trial result"));
    resultDetail_ = new ToneLabel(Tone::normal, Size::body, resultPanel_);
    resultDetail_->setObjectName(QStringLiteral("trialDetail"));
    resultDetail_->setWordWrap(true);
    resultDetail_->makeSelectable();
    resultDetail_->setAccessibleName(QStringLiteral("Trial result details"));

    resultIcon_ = new QLabel(resultPanel_);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(2);
    texts->addWidget(resultTitle_);
    texts->addWidget(resultDetail_);

    copy_ = new QToolButton(resultPanel_);
    copy_->setObjectName(QStringLiteral("copyTrialResult"));
    copy_->setIcon(Icons::symbol(u"doc.on.doc"));
    copy_->setToolTip(QStringLiteral("Copy the shown rows as text"));
    copy_->setAccessibleName(QStringLiteral("Copy the shown rows as text"));
    copy_->setAutoRaise(true);
    connect(copy_, &QToolButton::clicked, this, [this] {
        if (result_)
            QGuiApplication::clipboard()->setText(result_->rows.join(u'\n'));
    });

    row->addWidget(resultIcon_, 0, Qt::AlignTop);
    row->addLayout(texts, 1);
    row->addWidget(copy_, 0, Qt::AlignTop);
    return resultPanel_;
}

void PromptSettingsView::showFolder()
{
    if (!library_.folder()) {
        ++generation_;
        loadedFor_.reset();
        trying_ = false;
        result_.reset();
        stack_->setCurrentWidget(empty_);
        return;
    }
    stack_->setCurrentWidget(content_);
    if (loadedFor_ != library_.folder())
        reload();
}

void PromptSettingsView::reload()
{
    ++generation_;
    trying_ = false;
    result_.reset();
    loadedFor_ = library_.folder();
    loadedText_ = currentInstructions();
    editor_->setPlainText(loadedText_);
    reextractCount_ = 0;
    if (loadedFor_)
        readCount();
    refreshExplanation();
    refreshStatus();
    refreshControls();
    refreshResult();
}

void PromptSettingsView::refreshExplanation()
{
    const QString folderName = library_.folder() ? QFileInfo(*library_.folder()).fileName() : QString();
    const QString location = modelLocation(Extractor::ModelSettings::load().server, QSysInfo::machineHostName());
    explanation_->setText(QStringLiteral("Used for every scan in “") + folderName
        + QStringLiteral("” and saved in its ") + ScanStore::fileName
        + QStringLiteral(". After them Vellumark adds the organizations already on file. Each page is asked "
                         "about separately (up to ")
        + QString::number(Extractor::pagesReadPerScan)
        + QStringLiteral(") and the answers are combined; the prompt is today’s date, a hint if the scan looks "
                         "like one already filed, the page number, and that page’s text (never the file name). "
                         "The answer format (organization, type, date and its label, whether it’s the first "
                         "page) is fixed. The model runs on ")
        + location + u'.');
}

void PromptSettingsView::refreshStatus()
{
    status_->setText(library_.customInstructions() ? QStringLiteral("Using custom instructions.")
                                                   : QStringLiteral("Using the default instructions."));
}

void PromptSettingsView::refreshControls()
{
    const QString text = draft();
    restore_->setEnabled(text != Extractor::defaultInstructions());
    save_->setEnabled(text != currentInstructions());

    const std::optional<std::int64_t> scan = selectedScan();
    QString label = QStringLiteral("Try on Selected Scan");
    if (scan)
        label = QStringLiteral("Try on “") + QFileInfo(library_.documentsByID().at(*scan).path).fileName()
            + QStringLiteral("”");
    try_->setText(label);
    try_->setAccessibleName(label);
    try_->setToolTip(scan
            ? QStringLiteral("Run the model on the selected scan with these instructions; nothing is saved")
            : QStringLiteral("Select one scan in the main window to try these instructions on it"));
    try_->setEnabled(scan && !trying_);
    progress_->setVisible(trying_);

    const QString reextract
        = QStringLiteral("Save and Re-extract ") + QString::number(reextractCount_) + QStringLiteral(" Scans");
    saveAndReextract_->setText(reextract);
    saveAndReextract_->setAccessibleName(reextract);
    saveAndReextract_->setEnabled(reextractCount_ > 0);
}

void PromptSettingsView::refreshResult()
{
    resultPanel_->setVisible(result_.has_value());
    if (!result_)
        return;
    const int side = resultTitle_->fontMetrics().height();
    resultIcon_->setPixmap(
        Icons::symbol(result_->failed ? u"exclamationmark.triangle" : u"sparkles").pixmap(side, side));
    if (result_->failed) {
        resultTitle_->hide();
        resultDetail_->setTone(Tone::orange);
        resultDetail_->setText(result_->rows.join(u'\n'));
        return;
    }
    resultTitle_->show();
    resultTitle_->setText(result_->rows.value(0));
    resultDetail_->setTone(Tone::secondary);
    resultDetail_->setText(result_->rows.value(1));
}

void PromptSettingsView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (library_.folder())
        readCount();
}

void PromptSettingsView::readCount()
{
    // One count at a time; changes meanwhile ask for one more afterwards.
    if (countInFlight_) {
        countAgain_ = true;
        return;
    }
    countInFlight_ = true;
    [](QPointer<PromptSettingsView> self, int generation, QCoro::Task<int> counting) -> QCoro::Task<> {
        const int count = co_await std::move(counting);
        if (!self)
            co_return;
        self->countInFlight_ = false;
        if (self->generation_ == generation) {
            self->reextractCount_ = count;
            self->refreshControls();
        }
        if (self->countAgain_ && self->library_.folder()) {
            self->countAgain_ = false;
            self->readCount();
        }
    }(this, generation_, library_.modelExtractionCount());
}

void PromptSettingsView::tryIt()
{
    const std::optional<std::int64_t> scan = selectedScan();
    if (!scan || trying_)
        return;
    trying_ = true;
    result_.reset();
    refreshControls();
    refreshResult();
    [](QPointer<PromptSettingsView> self, int generation, QCoro::Task<Library::Trial> trial) -> QCoro::Task<> {
        const Library::Trial answer = co_await std::move(trial);
        // A result for a folder or a page no longer shown is dropped.
        if (!self || self->generation_ != generation)
            co_return;
        self->trying_ = false;
        if (answer.output) {
            const Extractor::Output &output = *answer.output;
            const QString date = DocDate::display(output.date);
            self->result_
                = Result { { QStringLiteral("Organization: ") + output.organization.value_or(QStringLiteral("none")),
                               output.kind.value_or(QStringLiteral("No type")) + QStringLiteral(" • ")
                                   + (date.isEmpty() ? QStringLiteral("no date") : date) },
                      false };
        } else if (answer.message) {
            self->result_ = Result { { *answer.message }, true };
        }
        self->refreshControls();
        self->refreshResult();
    }(this, generation_, library_.tryExtraction(*scan, draft()));
}

void PromptSettingsView::save(bool reextract)
{
    const QString text = draft();
    [](QPointer<PromptSettingsView> self, QCoro::Task<> saving) -> QCoro::Task<> {
        co_await std::move(saving);
        if (self && self->library_.folder())
            self->readCount();
    }(this, library_.setCustomInstructions(text, reextract));
    // Blank instructions mean the defaults, which the editor shows from now on.
    if (text.trimmed().isEmpty()) {
        loadedText_ = currentInstructions();
        editor_->setPlainText(loadedText_);
    }
    refreshStatus();
    refreshControls();
}

std::optional<std::int64_t> PromptSettingsView::selectedScan() const
{
    if (library_.selection().size() != 1)
        return std::nullopt;
    const std::int64_t id = *library_.selection().begin();
    const auto found = library_.documentsByID().find(id);
    if (found == library_.documentsByID().end() || found->second.ocrStatus != OCRStatus::done)
        return std::nullopt;
    return id;
}

QString PromptSettingsView::currentInstructions() const
{
    return library_.customInstructions().value_or(Extractor::defaultInstructions());
}

QString PromptSettingsView::draft() const
{
    return editor_->toPlainText();
}
