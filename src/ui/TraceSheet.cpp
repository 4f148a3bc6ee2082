#include "ui/TraceSheet.h"

#include "library/Library.h"
#include "ui/EmptyState.h"
#include "ui/ToneLabel.h"
#include "ui/TraceView.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

TraceSheet::TraceSheet(Library &library, ScanDocument document, QWidget *parent)
    : QDialog(parent)
    , library_(library)
    , document_(std::move(document))
    , stack_(new QStackedWidget(this))
    , empty_(new EmptyState(stack_))
{
    setObjectName(QStringLiteral("transcript"));
    setWindowModality(Qt::WindowModal);
    const QString title = QStringLiteral("Model Transcript: ") + QFileInfo(document_.path).fileName();
    setWindowTitle(title);
    resize(780, 640);

    auto *heading = new ToneLabel(ToneLabel::Tone::normal, ToneLabel::Size::headline, this);
    heading->setObjectName(QStringLiteral("transcriptTitle"));
    heading->setText(title);

    auto *busy = new QProgressBar(stack_);
    busy->setObjectName(QStringLiteral("transcriptLoading"));
    busy->setAccessibleName(QStringLiteral("Loading the transcript"));
    busy->setRange(0, 0);
    busy->setTextVisible(false);
    busy->setMaximumWidth(160);
    auto *waiting = new QWidget(stack_);
    auto *centred = new QVBoxLayout(waiting);
    centred->addStretch();
    centred->addWidget(busy, 0, Qt::AlignHCenter);
    centred->addStretch();
    stack_->addWidget(waiting);
    empty_->setObjectName(QStringLiteral("transcriptEmpty"));
    stack_->addWidget(empty_);

    auto *buttons = new QDialogButtonBox(this);
    QPushButton *done = buttons->addButton(QStringLiteral("Done"), QDialogButtonBox::AcceptRole);
    done->setObjectName(QStringLiteral("transcriptDone"));
    done->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

    auto *column = new QVBoxLayout(this);
    column->addWidget(heading);
    column->addWidget(stack_, 1);
    column->addWidget(buttons);
}

void TraceSheet::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    if (!loaded_ && !loading_)
        load();
}

void TraceSheet::load()
{
    loading_ = true;
    [](QPointer<TraceSheet> self, QCoro::Task<std::optional<Extractor::Trace>> loading) -> QCoro::Task<> {
        std::optional<Extractor::Trace> trace;
        try {
            trace = co_await std::move(loading);
        } catch (...) {
            // A catalogue that can't be read (closed, gone) has no transcript to show.
        }
        if (self)
            self->present(std::move(trace));
    }(this, library_.trace(document_.id));
}

void TraceSheet::present(std::optional<Extractor::Trace> trace)
{
    trace_ = std::move(trace);
    loaded_ = true;
    loading_ = false;
    if (trace_) {
        auto *view = new TraceView(*trace_, stack_);
        stack_->addWidget(view);
        stack_->setCurrentWidget(view);
    } else {
        empty_->show(QStringLiteral("text.bubble"), QStringLiteral("No Transcript"),
            QStringLiteral("This scan was extracted before Vellumark kept transcripts. Use Extract Again."));
        stack_->setCurrentWidget(empty_);
    }
    Q_EMIT traceLoaded();
}
