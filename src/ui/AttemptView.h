#pragma once

#include "extract/Trace.h"

#include <QWidget>

class Disclosure;
class QLabel;

// One request to the model, in full: how it went, what came back, and the instructions and prompt sent,
// each with a button that copies it.
class AttemptView : public QWidget {
    Q_OBJECT
public:
    // `number` counts from 1.
    AttemptView(int number, Extractor::Trace::Attempt attempt, QWidget *parent = nullptr);

    int number() const { return number_; }
    const Extractor::Trace::Attempt &attempt() const { return attempt_; }
    Disclosure *instructions() const { return instructions_; }
    Disclosure *prompt() const { return prompt_; }

protected:
    void changeEvent(QEvent *event) override;

private:
    void drawStatus();

    int number_;
    Extractor::Trace::Attempt attempt_;
    QLabel *status_;
    Disclosure *instructions_;
    Disclosure *prompt_;
};
