#include "ui/DocumentInspector.h"

#include "library/Library.h"
#include "ui/DesktopIntegration.h"
#include "ui/Disclosure.h"
#include "ui/EmptyState.h"
#include "ui/FactsEditor.h"
#include "ui/Icons.h"
#include "ui/PDFPreview.h"
#include "ui/PageTextView.h"
#include "ui/ToneLabel.h"

#include <QCoro/QCoroTask>
#include <QFontDatabase>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLocale>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QVBoxLayout>

namespace {

using Tone = ToneLabel::Tone;
using Size = ToneLabel::Size;

QFrame *divider(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

ToneLabel *wrapping(Tone tone, Size size, QWidget *parent)
{
    auto *label = new ToneLabel(tone, size, parent);
    label->setWordWrap(true);
    label->makeSelectable();
    return label;
}

QPushButton *button(const QString &name, const QString &text, const QString &help, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(name);
    button->setAccessibleName(text);
    button->setToolTip(help);
    return button;
}

} // namespace

DocumentInspector::DocumentInspector(Library &library, ScanDocument document, QWidget *parent)
    : QWidget(parent)
    , library_(library)
    , document_(std::move(document))
    , showLog_(document_.extractStatus == ExtractStatus::failed)
{
    setObjectName(QStringLiteral("documentInspector"));

    topHolder_ = new QWidget(this);
    topHolder_->setMinimumHeight(200);
    auto *topColumn = new QVBoxLayout(topHolder_);
    topColumn->setContentsMargins(0, 0, 0, 0);

    auto *body = new QWidget(this);
    auto *column = new QVBoxLayout(body);
    column->setContentsMargins(14, 14, 14, 14);
    column->setSpacing(14);
    facts_ = new FactsEditor(library_, { document_ }, body);
    column->addWidget(facts_);
    column->addWidget(makeProvenance());

    auto *fileButtons = new QHBoxLayout;
    openFile_ = button(QStringLiteral("openInViewer"), QStringLiteral("Open in PDF Viewer"), QString(), body);
    showFile_ = button(QStringLiteral("showInFileManager"), QStringLiteral("Show in File Manager"), QString(), body);
    connect(openFile_, &QPushButton::clicked, this,
        [this] { DesktopIntegration::openInPreview(library_, { document_.id }); });
    connect(showFile_, &QPushButton::clicked, this,
        [this] { DesktopIntegration::revealInFinder(library_, { document_.id }); });
    fileButtons->addWidget(openFile_);
    fileButtons->addWidget(showFile_);
    fileButtons->addStretch();
    column->addLayout(fileButtons);
    column->addWidget(divider(body));
    column->addWidget(makeDetails());
    column->addWidget(divider(body));

    auto *heading = new ToneLabel(Tone::normal, Size::headline, body);
    heading->setText(QStringLiteral("Recognized Text"));
    column->addWidget(heading);
    auto *text = new QWidget(body);
    text_ = new QVBoxLayout(text);
    text_->setContentsMargins(0, 0, 0, 0);
    text_->setSpacing(6);
    column->addWidget(text);
    column->addStretch();

    auto *scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("inspectorDetails"));
    scroll->setAccessibleName(QStringLiteral("Details"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setMinimumHeight(200);
    scroll->setWidget(body);

    auto *splitter = new QSplitter(Qt::Vertical, this);
    splitter->setChildrenCollapsible(false);
    splitter->addWidget(topHolder_);
    splitter->addWidget(scroll);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({ 380, 420 });
    auto *whole = new QVBoxLayout(this);
    whole->setContentsMargins(0, 0, 0, 0);
    whole->addWidget(splitter);

    for (auto signal : { &Library::currentExtractionChanged, &Library::modelProblemChanged, &Library::requestedChanged,
             &Library::pausedChanged, &Library::pendingCountsChanged, &Library::documentsChanged })
        connect(&library_, signal, this, &DocumentInspector::refreshProvenance);

    refreshTop();
    refreshProvenance();
    refreshDetails();
    loadPages();
}

QWidget *DocumentInspector::makeProvenance()
{
    auto *block = new QWidget(this);
    block->setObjectName(QStringLiteral("provenance"));
    auto *column = new QVBoxLayout(block);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);

    auto *statusRow = new QHBoxLayout;
    status_ = wrapping(Tone::secondary, Size::callout, block);
    status_->setObjectName(QStringLiteral("provenanceStatus"));
    status_->setAccessibleName(QStringLiteral("Where the facts came from"));
    statusAction_ = button(QStringLiteral("provenanceAction"), QString(), QString(), block);
    connect(statusAction_, &QPushButton::clicked, this, [this] {
        if (action_ == Provenance::Action::extractAgain)
            library_.reextract({ document_.id });
        else if (action_ == Provenance::Action::extractNow)
            library_.extractNow({ document_.id });
    });
    statusRow->addWidget(status_, 1);
    statusRow->addWidget(statusAction_, 0, Qt::AlignTop);
    column->addLayout(statusRow);

    similarRow_ = new QWidget(block);
    auto *similarLine = new QHBoxLayout(similarRow_);
    similarLine->setContentsMargins(0, 0, 0, 0);
    auto *icon = new QLabel(similarRow_);
    icon->setPixmap(Icons::symbol(u"doc.on.doc").pixmap(16, 16));
    similar_ = wrapping(Tone::secondary, Size::callout, similarRow_);
    similar_->setObjectName(QStringLiteral("similarScan"));
    similar_->setAccessibleName(QStringLiteral("Similar scan"));
    auto *show = button(QStringLiteral("showSimilar"), QStringLiteral("Show"),
        QStringLiteral("Select the scan this one looked like"), similarRow_);
    connect(show, &QPushButton::clicked, this, [this] {
        if (document_.similarID)
            library_.reveal(*document_.similarID);
    });
    similarLine->addWidget(icon, 0, Qt::AlignTop);
    similarLine->addWidget(similar_, 1);
    similarLine->addWidget(show, 0, Qt::AlignTop);
    column->addWidget(similarRow_);

    auto *details = new QWidget(block);
    auto *detailsColumn = new QVBoxLayout(details);
    detailsColumn->setContentsMargins(0, 0, 0, 0);
    log_ = wrapping(Tone::normal, Size::caption, details);
    log_->setObjectName(QStringLiteral("modelLog"));
    log_->setAccessibleName(QStringLiteral("Model details"));
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    mono.setPointSizeF(log_->font().pointSizeF());
    log_->setFont(mono);
    auto *links = new QHBoxLayout;
    auto *transcript = button(QStringLiteral("showTranscript"), QStringLiteral("Show Transcript…"),
        QStringLiteral("Every request sent to the model for this scan, and its answers"), details);
    connect(transcript, &QPushButton::clicked, this, [this] { Q_EMIT transcriptRequested(document_.id); });
    auto *editPrompt = new QLabel(QStringLiteral("<a href=\"instructions\">Edit Prompt…</a>"), details);
    editPrompt->setObjectName(QStringLiteral("editPrompt"));
    editPrompt->setAccessibleName(QStringLiteral("Edit Prompt…"));
    editPrompt->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    connect(editPrompt, &QLabel::linkActivated, this, &DocumentInspector::instructionsRequested);
    links->addWidget(transcript);
    links->addWidget(editPrompt);
    links->addStretch();
    detailsColumn->addWidget(log_);
    detailsColumn->addLayout(links);
    modelDetails_ = new Disclosure(QStringLiteral("Model details"), details, block);
    modelDetails_->setObjectName(QStringLiteral("modelDetails"));
    modelDetails_->setExpanded(showLog_);
    connect(modelDetails_, &Disclosure::expandedChanged, this, [this](bool expanded) { showLog_ = expanded; });
    column->addWidget(modelDetails_);
    return block;
}

QWidget *DocumentInspector::makeDetails()
{
    auto *grid = new QWidget(this);
    grid->setObjectName(QStringLiteral("fileDetails"));
    auto *layout = new QGridLayout(grid);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setHorizontalSpacing(12);
    layout->setVerticalSpacing(6);
    layout->setColumnStretch(1, 1);
    int row = 0;
    const auto add = [&](const QString &name, const QString &title, Tone tone) {
        auto *label = new ToneLabel(Tone::secondary, Size::body, grid);
        label->setText(title);
        auto *value = wrapping(tone, Size::body, grid);
        value->setObjectName(name);
        label->setBuddy(value);
        value->setAccessibleName(title);
        layout->addWidget(label, row, 0, Qt::AlignTop | Qt::AlignLeft);
        layout->addWidget(value, row, 1, Qt::AlignTop);
        ++row;
        return std::pair { label, value };
    };
    file_ = add(QStringLiteral("fileValue"), QStringLiteral("File"), Tone::normal).second;
    size_ = add(QStringLiteral("sizeValue"), QStringLiteral("Size"), Tone::normal).second;
    modified_ = add(QStringLiteral("modifiedValue"), QStringLiteral("Modified"), Tone::normal).second;
    std::tie(errorLabel_, error_) = add(QStringLiteral("errorValue"), QStringLiteral("Error"), Tone::red);
    return grid;
}

void DocumentInspector::setDocument(const ScanDocument &document)
{
    if (document == document_)
        return;
    const ScanDocument old = std::exchange(document_, document);
    facts_->setDocuments({ document_ });
    refreshTop();
    refreshProvenance();
    refreshDetails();
    if (old.ocrStatus != document_.ocrStatus)
        loadPages();
    else if (old.pageRotations != document_.pageRotations || old.pageCount != document_.pageCount)
        refreshText();
}

void DocumentInspector::refreshTop()
{
    const std::optional<QString> file = document_.missing ? std::nullopt : library_.url(document_);
    const QString kind = file ? QStringLiteral("preview") : QStringLiteral("missing");
    if (kind != topKey_) {
        delete top_;
        if (file)
            top_ = new PDFPreview(topHolder_);
        else
            top_ = new EmptyState(topHolder_);
        topHolder_->layout()->addWidget(top_);
        top_->show();
        topKey_ = kind;
    }
    if (auto *preview = qobject_cast<PDFPreview *>(top_)) {
        preview->show(*file, document_.fileModified, document_.pageRotations);
    } else if (auto *missing = qobject_cast<EmptyState *>(top_)) {
        missing->setObjectName(QStringLiteral("fileMissing"));
        missing->show(QStringLiteral("questionmark.folder"), QStringLiteral("File Missing"), document_.path);
    }
}

void DocumentInspector::refreshProvenance()
{
    const Provenance said = provenance(document_, ProvenanceState::of(library_, document_));
    status_->setVisible(said.status.has_value());
    status_->setText(said.status.value_or(QString()));
    status_->setTone(said.failed ? Tone::orange : Tone::secondary);
    action_ = said.action;
    statusAction_->setVisible(said.action != Provenance::Action::none);
    if (said.action == Provenance::Action::extractAgain) {
        statusAction_->setText(QStringLiteral("Extract Again"));
        statusAction_->setToolTip(QStringLiteral(
            "Ask the model again, replacing the organization and date. Runs right away, even while paused."));
    } else if (said.action == Provenance::Action::extractNow) {
        statusAction_->setText(QStringLiteral("Extract Now"));
        statusAction_->setToolTip(QStringLiteral("Do this scan next, even while paused"));
    }
    statusAction_->setAccessibleName(statusAction_->text());
    similarRow_->setVisible(said.similar.has_value());
    similar_->setText(said.similar.value_or(QString()));
    modelDetails_->setVisible(said.showsLog);
    log_->setText(document_.extractLog.value_or(QString()));
}

void DocumentInspector::refreshDetails()
{
    const bool present = !document_.missing && library_.url(document_).has_value();
    openFile_->setEnabled(present);
    showFile_->setEnabled(present);
    file_->setText(document_.path);
    size_->setText(sizeText(document_.fileSize, document_.pageCount));
    modified_->setText(QLocale().toString(document_.fileModified.toLocalTime(), QLocale::ShortFormat));
    const bool failed = document_.ocrStatus == OCRStatus::failed && document_.error && !document_.error->isEmpty();
    errorLabel_->setVisible(failed);
    error_->setVisible(failed);
    error_->setText(failed ? *document_.error : QString());
}

void DocumentInspector::refreshText()
{
    QWidget *holder = text_->parentWidget();
    while (QLayoutItem *item = text_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const auto note = [&](const QString &text) {
        auto *label = new ToneLabel(Tone::secondary, Size::body, holder);
        label->setText(text);
        return label;
    };
    if (document_.ocrStatus == OCRStatus::pending) {
        auto *row = new QWidget(holder);
        row->setObjectName(QStringLiteral("reading"));
        auto *line = new QHBoxLayout(row);
        line->setContentsMargins(0, 0, 0, 0);
        auto *spinner = new QProgressBar(row);
        spinner->setRange(0, 0);
        spinner->setTextVisible(false);
        spinner->setFixedSize(48, 8);
        spinner->setAccessibleName(QStringLiteral("Reading"));
        line->addWidget(spinner);
        line->addWidget(note(QStringLiteral("Reading…")));
        line->addStretch();
        text_->addWidget(row);
        row->show();
        return;
    }
    if (!pages_)
        return;
    if (pages_->isEmpty()) {
        QLabel *none = note(QStringLiteral("No text found."));
        text_->addWidget(none);
        none->show();
        return;
    }
    auto *view = new PageTextView(holder);
    view->setPages(*pages_, document_.pageCount.value_or(int(pages_->size())), document_.pageRotations);
    text_->addWidget(view);
    view->show();
}

void DocumentInspector::loadPages()
{
    const int load = ++loads_;
    pages_.reset();
    refreshText();
    if (document_.ocrStatus == OCRStatus::pending)
        return;
    [](QPointer<DocumentInspector> self, int load, QCoro::Task<QStringList> loading) -> QCoro::Task<> {
        QStringList pages = co_await std::move(loading);
        if (!self || self->loads_ != load)
            co_return;
        self->pages_ = std::move(pages);
        self->refreshText();
    }(this, load, library_.pages(document_));
}
