#pragma once

#include "core/ScanDocument.h"
#include "extract/Trace.h"

#include <QDialog>

#include <optional>

class EmptyState;
class Library;
class QStackedWidget;
class TraceView;

// The stored transcript of one scan, over the window that asked for it. Loads it once, when first shown.
class TraceSheet : public QDialog {
    Q_OBJECT
public:
    TraceSheet(Library &library, ScanDocument document, QWidget *parent);

    bool loaded() const { return loaded_; }
    const std::optional<Extractor::Trace> &trace() const { return trace_; }

Q_SIGNALS:
    // The transcript, or the lack of one, is shown.
    void traceLoaded();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void load();
    void present(std::optional<Extractor::Trace> trace);

    Library &library_;
    ScanDocument document_;
    std::optional<Extractor::Trace> trace_;
    bool loaded_ = false;
    bool loading_ = false;
    QStackedWidget *stack_;
    EmptyState *empty_;
};
