#pragma once

#include "extract/Instructions.h"
#include "extract/PageAnswer.h"
#include "extract/Trace.h"
#include "extract/model/LanguageModel.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <stop_token>

// Asking the model about one page: a structured request first, plain text when that fails, the
// prompt shortened when it overflows the context window. Every request goes into the transcript.
namespace Extractor {
// Sees every request twice: as it starts (outcome "Running") and as it ends. Called on the thread that
// reads the page; a callback that touches the user interface must hop to the main thread itself.
using AttemptObserver = std::function<void(const Trace::Attempt &)>;

// Response-token caps of the two kinds of request.
constexpr int structuredResponseTokens = 300;
constexpr int plainResponseTokens = 150;

inline const QString structuredMode = QStringLiteral("guided generation (PageFacts)");
inline const QString plainMode = QStringLiteral("plain text");

// What stays the same for every page of one scan.
struct ScanContext {
    LanguageModel &model;
    // All pages of the scan, not only those read.
    qint64 pageCount = 0;
    std::optional<Similar> similar;
    std::optional<QString> customInstructions;
    // YYYY-MM-DD, for the prompt.
    QString today;
    std::stop_token stop;
    AttemptObserver observer;
};

// What carries over from one page of a scan to the next.
struct ScanState {
    // The organization names for the instructions; a context overflow may halve them for the rest of
    // the scan.
    QStringList organizations;
    // Cleared for the rest of the scan once a structured request is refused or blocked.
    bool structured = true;
    Trace trace;
};

// Asks about page `index` (from 0) whose recognised text is `text`, and gives its answer, or nothing
// when the model gave no usable one (the transcript says why). At most four structured requests (the
// page text cut to 3500, 1750, 875 and 437 characters as the context overflows) and one plain request.
// Throws Failure::retryLater when the model is unavailable, rate limited or busy; Cancelled at once
// when `scan.stop` is requested, leaving the request under way unrecorded; any other exception of the
// model unchanged.
std::optional<PageAnswer> readPage(int index, const QString &text, const ScanContext &scan, ScanState &state);

// Reports a request as under way: a copy with outcome "Running" goes to the observer.
void announce(const Trace::Attempt &attempt, const AttemptObserver &observer);
// Appends the finished request to the transcript, then reports it.
void record(const Trace::Attempt &attempt, Trace &trace, const AttemptObserver &observer);
} // namespace Extractor
