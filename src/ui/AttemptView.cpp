#include "ui/AttemptView.h"

#include "core/Graphemes.h"
#include "ui/Disclosure.h"
#include "ui/Icons.h"
#include "ui/ToneLabel.h"
#include "ui/Tones.h"

#include <QClipboard>
#include <QEvent>
#include <QFontDatabase>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPainter>
#include <QToolButton>
#include <QVBoxLayout>

#include <limits>

namespace {

using Tone = ToneLabel::Tone;
using Size = ToneLabel::Size;

const QString ok = QStringLiteral("OK");

ToneLabel *wrapping(const QString &text, Tone tone, Size size, QWidget *parent)
{
    auto *label = new ToneLabel(tone, size, parent);
    label->setText(text);
    label->setWordWrap(true);
    label->makeSelectable();
    label->setAccessibleName(text);
    return label;
}

// A text as sent or received: monospaced and selectable, with a borderless button that copies it.
QWidget *block(const QString &name, const QString &text, QWidget *parent)
{
    auto *frame = new QFrame(parent);
    frame->setObjectName(name.toLower() + QStringLiteral("Block"));
    frame->setFrameShape(QFrame::StyledPanel);
    frame->setAutoFillBackground(true);
    frame->setBackgroundRole(QPalette::Base);
    auto *row = new QHBoxLayout(frame);
    row->setContentsMargins(8, 6, 4, 6);
    auto *body = new QLabel(frame);
    body->setObjectName(name.toLower() + QStringLiteral("Text"));
    body->setTextFormat(Qt::PlainText);
    body->setText(text);
    body->setWordWrap(true);
    body->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    body->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    body->setCursor(Qt::IBeamCursor);
    body->setAccessibleName(name);
    body->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    auto *copy = new QToolButton(frame);
    copy->setObjectName(QStringLiteral("copy") + name);
    copy->setAutoRaise(true);
    copy->setIcon(Icons::symbol(u"doc.on.doc"));
    copy->setToolTip(QStringLiteral("Copy"));
    copy->setAccessibleName(QStringLiteral("Copy ") + name);
    QObject::connect(copy, &QToolButton::clicked, frame, [text] { QGuiApplication::clipboard()->setText(text); });
    row->addWidget(body, 1);
    row->addWidget(copy, 0, Qt::AlignTop);
    return frame;
}

QString characters(const QString &title, const QString &text)
{
    return title + QStringLiteral(" (") + QString::number(Graphemes::count(text, std::numeric_limits<qsizetype>::max()))
        + QStringLiteral(" characters)");
}

QColor green(const QPalette &palette)
{
    return Tones::isDark(palette) ? QColor(0x5f, 0xd0, 0x68) : QColor(0x1d, 0x80, 0x33);
}

// The symbol's shape, filled with one colour.
QPixmap tinted(QStringView symbol, const QColor &colour, int size, qreal pixelRatio)
{
    QPixmap pixmap = Icons::symbol(symbol).pixmap(QSize(size, size), pixelRatio);
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(pixmap.rect(), colour);
    return pixmap;
}

} // namespace

AttemptView::AttemptView(int number, Extractor::Trace::Attempt attempt, QWidget *parent)
    : QWidget(parent)
    , number_(number)
    , attempt_(std::move(attempt))
    , status_(new QLabel(this))
{
    setObjectName(QStringLiteral("attempt"));
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);

    auto *header = new QHBoxLayout;
    status_->setObjectName(QStringLiteral("attemptStatus"));
    drawStatus();
    auto *title = wrapping(
        QString::number(number_) + QStringLiteral(". ") + attempt_.label, Tone::normal, Size::headline, this);
    title->setObjectName(QStringLiteral("attemptTitle"));
    QString figures = QString::number(attempt_.seconds, 'f', 1) + QStringLiteral(" s");
    if (attempt_.tokens)
        figures += QStringLiteral(" • ") + QString::number(*attempt_.tokens) + QStringLiteral(" tokens");
    auto *stats = new ToneLabel(Tone::secondary, Size::callout, this);
    stats->setObjectName(QStringLiteral("attemptFigures"));
    stats->setText(figures);
    header->addWidget(status_);
    header->addWidget(title, 1);
    header->addWidget(stats);
    column->addLayout(header);

    auto *mode = wrapping(attempt_.mode, Tone::secondary, Size::callout, this);
    mode->setObjectName(QStringLiteral("attemptMode"));
    column->addWidget(mode);
    auto *outcome = wrapping(attempt_.outcome, attempt_.outcome == ok ? Tone::normal : Tone::orange, Size::body, this);
    outcome->setObjectName(QStringLiteral("attemptOutcome"));
    column->addWidget(outcome);
    if (attempt_.refusalExplanation) {
        auto *explanation
            = wrapping(QStringLiteral("Model’s explanation: “") + *attempt_.refusalExplanation + QStringLiteral("”"),
                Tone::normal, Size::body, this);
        explanation->setObjectName(QStringLiteral("attemptExplanation"));
        column->addWidget(explanation);
    }
    if (attempt_.response) {
        auto *title = new ToneLabel(Tone::secondary, Size::headline, this);
        title->setText(QStringLiteral("Response"));
        column->addWidget(title);
        column->addWidget(block(QStringLiteral("Response"), *attempt_.response, this));
    }
    instructions_ = new Disclosure(characters(QStringLiteral("Instructions"), attempt_.instructions),
        block(QStringLiteral("Instructions"), attempt_.instructions, this), this);
    instructions_->setObjectName(QStringLiteral("attemptInstructions"));
    column->addWidget(instructions_);
    prompt_ = new Disclosure(characters(QStringLiteral("Prompt"), attempt_.prompt),
        block(QStringLiteral("Prompt"), attempt_.prompt, this), this);
    prompt_->setObjectName(QStringLiteral("attemptPrompt"));
    column->addWidget(prompt_);
}

void AttemptView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        drawStatus();
}

void AttemptView::drawStatus()
{
    const bool succeeded = attempt_.outcome == ok;
    status_->setPixmap(tinted(succeeded ? u"checkmark.circle.fill" : u"xmark.octagon.fill",
        succeeded ? green(palette()) : Tones::orange(palette()), 16, devicePixelRatio()));
    status_->setAccessibleName(succeeded ? QStringLiteral("Succeeded") : QStringLiteral("Failed"));
}
