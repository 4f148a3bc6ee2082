#include "ui/MultipleInspector.h"

#include "library/Library.h"
#include "ui/DesktopIntegration.h"
#include "ui/FactsEditor.h"
#include "ui/ToneLabel.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

MultipleInspector::MultipleInspector(Library &library, std::vector<ScanDocument> documents, QWidget *parent)
    : QWidget(parent)
    , library_(library)
    , title_(new ToneLabel(ToneLabel::Tone::normal, ToneLabel::Size::title, this))
{
    setObjectName(QStringLiteral("multipleInspector"));
    title_->setObjectName(QStringLiteral("selectionCount"));

    auto *buttons = new QHBoxLayout;
    auto *extract = new QPushButton(QStringLiteral("Extract Again"), this);
    extract->setObjectName(QStringLiteral("extractAgain"));
    extract->setToolTip(QStringLiteral(
        "Ask the model again, replacing the organizations and dates. Runs right away, even while paused."));
    connect(extract, &QPushButton::clicked, this, [this] { library_.reextract(ids_); });
    auto *show = new QPushButton(QStringLiteral("Show in File Manager"), this);
    show->setObjectName(QStringLiteral("showInFileManager"));
    connect(show, &QPushButton::clicked, this, [this] { DesktopIntegration::revealInFinder(library_, ids_); });
    buttons->addWidget(extract);
    buttons->addWidget(show);
    buttons->addStretch();

    auto *hint = new ToneLabel(ToneLabel::Tone::secondary, ToneLabel::Size::callout, this);
    hint->setText(QStringLiteral("Tip: drag scans onto an organization in the sidebar to file them there."));
    hint->setWordWrap(true);

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(14, 14, 14, 14);
    column->setSpacing(14);
    column->addWidget(title_);
    showCount(documents);
    facts_ = new FactsEditor(library_, std::move(documents), this);
    column->addWidget(facts_);
    column->addLayout(buttons);
    column->addWidget(hint);
    column->addStretch();
}

void MultipleInspector::setDocuments(std::vector<ScanDocument> documents)
{
    showCount(documents);
    facts_->setDocuments(std::move(documents));
}

void MultipleInspector::showCount(const std::vector<ScanDocument> &documents)
{
    ids_.clear();
    for (const ScanDocument &document : documents)
        ids_.insert(ids_.end(), document.id);
    title_->setText(QString::number(documents.size()) + u" Scans Selected");
}
