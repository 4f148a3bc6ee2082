#include "ui/TraceView.h"

#include "core/DocDate.h"
#include "ui/AttemptView.h"
#include "ui/ToneLabel.h"

#include <QClipboard>
#include <QFrame>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

using Tone = ToneLabel::Tone;
using Size = ToneLabel::Size;

ToneLabel *label(const QString &text, Tone tone, Size size, QWidget *parent)
{
    auto *made = new ToneLabel(tone, size, parent);
    made->setText(text);
    made->setWordWrap(true);
    // An empty cell has nothing to select, and would be a control without a name.
    if (!text.isEmpty()) {
        made->makeSelectable();
        made->setAccessibleName(text);
    }
    return made;
}

QFrame *separator(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

} // namespace

TraceView::TraceView(Extractor::Trace trace, QWidget *parent)
    : QScrollArea(parent)
    , trace_(std::move(trace))
{
    setObjectName(QStringLiteral("traceView"));
    setAccessibleName(QStringLiteral("Transcript"));
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    auto *content = new QWidget(this);
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(16, 12, 16, 16);
    column->setSpacing(8);

    auto *header = new QHBoxLayout;
    auto *facts = new QVBoxLayout;
    QString system = trace_.system;
    if (trace_.customInstructions)
        system += QStringLiteral(" • custom instructions");
    auto *systemLine = label(system, Tone::secondary, Size::callout, content);
    systemLine->setObjectName(QStringLiteral("traceSystem"));
    facts->addWidget(systemLine);
    if (trace_.hint) {
        auto *hint = label(QStringLiteral("Hint: ") + *trace_.hint, Tone::normal, Size::callout, content);
        hint->setObjectName(QStringLiteral("traceHint"));
        facts->addWidget(hint);
    }
    auto *copyAll = new QPushButton(QStringLiteral("Copy All"), content);
    copyAll->setObjectName(QStringLiteral("copyTranscript"));
    copyAll->setToolTip(QStringLiteral("Copy the whole transcript as text"));
    // In a dialog, Return belongs to its default button, even while this one has the focus.
    copyAll->setAutoDefault(false);
    connect(copyAll, &QPushButton::clicked, this, [this] { QGuiApplication::clipboard()->setText(trace_.fullText()); });
    header->addLayout(facts, 1);
    header->addWidget(copyAll, 0, Qt::AlignTop);
    column->addLayout(header);

    column->addWidget(separator(content));
    column->addWidget(label(QStringLiteral("Pages and consensus"), Tone::normal, Size::headline, content));
    column->addWidget(pagesGrid(content));
    if (trace_.consensus) {
        auto *consensus = label(*trace_.consensus, Tone::normal, Size::callout, content);
        consensus->setObjectName(QStringLiteral("traceConsensus"));
        column->addWidget(consensus);
    }
    int number = 0;
    for (const Extractor::Trace::Attempt &attempt : trace_.attempts) {
        column->addWidget(separator(content));
        column->addWidget(new AttemptView(++number, attempt, content));
    }
    column->addStretch();
    setWidget(content);
}

QWidget *TraceView::pagesGrid(QWidget *parent) const
{
    auto *holder = new QWidget(parent);
    holder->setObjectName(QStringLiteral("tracePages"));
    auto *grid = new QGridLayout(holder);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setHorizontalSpacing(18);
    grid->setVerticalSpacing(4);
    const QStringList headings
        = { QStringLiteral("Page"), QStringLiteral("Organization"), QStringLiteral("Type"), QStringLiteral("Date") };
    for (int column = 0; column < headings.size(); ++column) {
        auto *heading = new ToneLabel(Tone::secondary, Size::callout, holder);
        heading->setText(headings[column]);
        grid->addWidget(heading, 0, column);
    }
    int row = 1;
    for (const PageAnswer &answer : trace_.pages) {
        QString page = QString::number(answer.page + 1);
        if (answer.firstPage)
            page += QStringLiteral(" (first)");
        grid->addWidget(label(page, Tone::normal, Size::body, holder), row, 0);
        grid->addWidget(label(answer.organization.value_or(QString()), Tone::normal, Size::body, holder), row, 1);
        grid->addWidget(label(answer.kind.value_or(QString()), Tone::normal, Size::body, holder), row, 2);
        QString shown = DocDate::display(answer.date);
        if (shown.isEmpty())
            shown = answer.date.value_or(QString());
        auto *date = label(shown, answer.dateInText ? Tone::normal : Tone::orange, Size::body, holder);
        date->setObjectName(QStringLiteral("pageDate"));
        date->setWordWrap(false);
        if (!answer.dateInText && answer.date)
            date->setToolTip(QStringLiteral("This date isn’t written on the page"));
        grid->addWidget(date, row, 3);
        ++row;
    }
    // The columns sit side by side at their own widths; the space left over goes to the right.
    grid->setColumnStretch(headings.size(), 1);
    return holder;
}
