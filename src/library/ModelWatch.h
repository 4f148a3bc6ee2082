#pragma once

#include "extract/ActivityLog.h"
#include "extract/model/LanguageModel.h"
#include "library/ModelGate.h"
#include "library/SerialExecutor.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>
#include <stop_token>

// The local model that files the scans and whether it can be used. Each change of availability is one
// queue entry in the activity log ("Local model unavailable: " and why, "Local model available"); while
// the model can't be used, it is asked again at every poll until it answers.
class ModelWatch : public QObject {
    Q_OBJECT
public:
    ModelWatch(ActivityLog &activity, std::chrono::milliseconds poll, QObject *parent = nullptr);
    ~ModelWatch() override;

    // Why the model can't be used; absent while it can (or before it was asked).
    const std::optional<QString> &problem() const { return problem_; }
    // Whether it was asked since the folder opened or the model changed.
    bool checked() const { return checked_; }
    // Whether it is being polled for its return.
    bool watching() const { return watch_.has_value(); }

    // The model, made from the settings when none was given. Its calls block: run them on `thread()`.
    std::shared_ptr<Extractor::LanguageModel> model();
    SerialExecutor &thread() { return thread_; }
    // One user of the model at a time, for a whole scan.
    ModelGate &gate() { return gate_; }

    // Another model (a front end's choice, a test's script), or null for the one the settings name now.
    // A running watch stops, and the next check asks the new model at once.
    void setLanguageModel(std::shared_ptr<Extractor::LanguageModel> model);
    // Asks the model whether it can be used and records the answer; absent when the model was changed
    // meanwhile (that answer is of no use).
    QCoro::Task<std::optional<Extractor::Availability>> check();
    // Records an answer: one activity entry when it differs from the last.
    void apply(const Extractor::Availability &availability);
    // Polls the model until it is back, then announces `available`.
    void startWatch();
    // Forgets the answer and stops polling (the folder closed).
    void reset();

Q_SIGNALS:
    void problemChanged();
    // The model changed: whatever waits on the old one should ask the new one.
    void modelChanged();
    // A watched model answered again.
    void available();

private:
    QCoro::Task<> watch(std::stop_token stop);
    void stopWatch();

    ActivityLog &activity_;
    std::chrono::milliseconds poll_;
    std::shared_ptr<Extractor::LanguageModel> model_;
    std::optional<QString> problem_;
    bool checked_ = false;
    // Raised by every change of model, so that an answer of the old one is dropped.
    int generation_ = 0;
    std::optional<std::stop_source> watch_;
    ModelGate gate_;
    // Last, so that the calls still queued finish before the rest goes.
    SerialExecutor thread_;
};

// Waits `duration`, or less when `stop` is requested meanwhile; true when it waited in full.
QCoro::Task<bool> waitUnlessStopped(std::chrono::milliseconds duration, std::stop_token stop);

// Writes what escaped a task nobody awaits into the activity log: nothing is lost silently. Call it
// inside a `catch (...)`.
void reportEscaped(ActivityLog &activity, const QString &work);
