#include "ui/ToneLabel.h"

#include "ui/Tones.h"

#include <QEvent>

namespace {

void applySize(QLabel &label, ToneLabel::Size size)
{
    QFont font = label.font();
    switch (size) {
    case ToneLabel::Size::body:
        return;
    case ToneLabel::Size::callout:
        font.setPointSizeF(font.pointSizeF() * 0.93);
        break;
    case ToneLabel::Size::caption:
        font.setPointSizeF(font.pointSizeF() * 0.86);
        break;
    case ToneLabel::Size::headline:
        font.setBold(true);
        break;
    case ToneLabel::Size::title:
        font.setPointSizeF(font.pointSizeF() * 1.35);
        font.setBold(true);
        break;
    }
    label.setFont(font);
}

} // namespace

ToneLabel::ToneLabel(Tone tone, Size size, QWidget *parent)
    : QLabel(parent)
    , tone_(tone)
{
    setTextFormat(Qt::PlainText);
    applySize(*this, size);
    recolour();
}

void ToneLabel::setTone(Tone tone)
{
    if (tone == tone_)
        return;
    tone_ = tone;
    recolour();
}

void ToneLabel::makeSelectable()
{
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setCursor(Qt::IBeamCursor);
}

void ToneLabel::changeEvent(QEvent *event)
{
    QLabel::changeEvent(event);
    // Recolouring changes the label's own palette, which sends another PaletteChange: only a change
    // coming from the parent is followed.
    if (event->type() == QEvent::ParentChange || (event->type() == QEvent::PaletteChange && !recolouring_))
        recolour();
}

void ToneLabel::recolour()
{
    const QPalette inherited = parentWidget() ? parentWidget()->palette() : QPalette();
    QColor colour;
    switch (tone_) {
    case Tone::normal:
        colour = inherited.color(QPalette::WindowText);
        break;
    case Tone::secondary:
        colour = Tones::secondary(inherited);
        break;
    case Tone::orange:
        colour = Tones::orange(inherited);
        break;
    case Tone::red:
        colour = Tones::red(inherited);
        break;
    }
    recolouring_ = true;
    QPalette own = palette();
    own.setColor(QPalette::WindowText, colour);
    own.setColor(QPalette::Text, colour);
    setPalette(own);
    recolouring_ = false;
}
