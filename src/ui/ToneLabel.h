#pragma once

#include <QLabel>

// A label in one of the app's tones, kept readable when the palette turns light or dark, in one of the
// text sizes the inspector speaks in.
class ToneLabel : public QLabel {
    Q_OBJECT
public:
    enum class Tone { normal, secondary, orange, red };
    enum class Size { body, callout, caption, headline, title };

    explicit ToneLabel(Tone tone = Tone::normal, Size size = Size::body, QWidget *parent = nullptr);

    Tone tone() const { return tone_; }
    void setTone(Tone tone);
    // Lets the reader select the text with mouse and keyboard.
    void makeSelectable();

protected:
    void changeEvent(QEvent *event) override;

private:
    void recolour();

    Tone tone_;
    bool recolouring_ = false;
};
