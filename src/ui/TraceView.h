#pragma once

#include "extract/Trace.h"

#include <QScrollArea>

// A stored transcript, frozen: the model's description, the hint, the page answers with the consensus,
// and every request in full.
class TraceView : public QScrollArea {
    Q_OBJECT
public:
    explicit TraceView(Extractor::Trace trace, QWidget *parent = nullptr);

    const Extractor::Trace &trace() const { return trace_; }

private:
    QWidget *pagesGrid(QWidget *parent) const;

    Extractor::Trace trace_;
};
