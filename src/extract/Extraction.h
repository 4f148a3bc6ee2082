#pragma once

#include "extract/Instructions.h"
#include "extract/PageReader.h"
#include "extract/Trace.h"
#include "extract/model/LanguageModel.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <stop_token>

// The extraction of one scan: its pages read one by one until two agree, the answers combined into
// one decision, and the transcript of every request.
namespace Extractor {
struct ExtractionInput {
    // The text of every page, in page order (ScanStore::ExtractionJob::pages).
    QStringList pages;
    // The organization names for the instructions, most used first
    // (ScanStore::organizationNamesForPrompt(100)).
    QStringList organizations;
    // The filed scan this one looks like (ScanStore::similarFiledDocument), if any.
    std::optional<Similar> similar;
    // The folder's custom instructions; absent or blank means the built-in ones.
    std::optional<QString> customInstructions;
    // YYYY-MM-DD, for the prompts; empty means DocDate::today().
    QString today;
};

struct Output {
    // Cleaned; the Library matches it against the registry when it saves.
    std::optional<QString> organization;
    // One of DocumentKind::all().
    std::optional<QString> kind;
    // YYYY-MM-DD.
    std::optional<QString> date;
    Trace trace;

    bool operator==(const Output &) const = default;
};

// Reads the scan and decides what it is. Blocks for as long as the model takes; meant for the model's
// own thread, one scan at a time (the Library holds the ModelGate around it). Never touches the
// catalogue.
//
// - A scan with no page of at least 40 characters makes no request and gives no facts, with the
//   consensus "No page has enough text to read.".
// - At most 8 pages are read (Extractor::pagesToRead); reading stops early once a first page naming the
//   organization, the type and a date written on it is confirmed by another page naming the same
//   organization, or when it is the only page to read.
// - `observer`, when set, sees every request as it starts and as it ends (see AttemptObserver).
//
// Throws Failure::failed, carrying the transcript, when no page gave an answer; Failure::retryLater when
// the model is unavailable, rate limited or busy (nothing learnt is kept: the scan is read again
// later); Cancelled as soon as `stop` is requested; any other exception of the model unchanged.
//
// The caller saves organization, date and kind with the log `trace.summary()` and the JSON
// `trace.encode()`, and on `failed` stores the message with the carried transcript's summary and JSON.
Output extract(LanguageModel &model, const ExtractionInput &input, const std::stop_token &stop = {},
    const AttemptObserver &observer = {});

// The transcript's note on the similar scan: "looks like PATH, filed under “ORGANIZATION”".
QString hintNote(const Similar &similar);
} // namespace Extractor
