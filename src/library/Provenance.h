#pragma once

#include "core/ScanDocument.h"
#include "library/StatusLabel.h"

#include <QLocale>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

class Library;

// Where a scan's facts came from and what the local model is doing with it, as the inspector tells it.
struct Provenance {
    // What one more click does for the scan: ask the model again, or have the scan filed next.
    enum class Action { none, extractAgain, extractNow };

    // Absent while the scan's text isn't read yet.
    std::optional<QString> status;
    // The model gave up on the scan: the status is a warning.
    bool failed = false;
    Action action = Action::none;
    // "Looks like b.pdf (Garden Club); the model was given that as a hint."; absent without a similar scan.
    std::optional<QString> similar;
    // Whether the model's log of the scan is worth showing (it has one and is done with it).
    bool showsLog = false;

    bool operator==(const Provenance &) const = default;
};

// What the provenance depends on besides the scan itself.
struct ProvenanceState {
    WorkState work;
    std::optional<QString> modelProblem;
    int pendingExtraction = 0;
    // The scan the document looked like, when the catalogue still has it.
    std::optional<ScanDocument> similar;

    static ProvenanceState of(const Library &library, const ScanDocument &document);
};

Provenance provenance(const ScanDocument &document, const ProvenanceState &state);

// The caption above a page's text: its number when the scan has several pages, and which way it was
// scanned, joined by " · "; empty when there is neither. `index` counts from 0.
QString pageCaption(int index, int pageCount, const std::vector<int> &rotations);

// "1.2 MB, 3 pages": the file's size, then the page count when it is known.
QString sizeText(std::int64_t bytes, std::optional<int> pageCount, const QLocale &locale = QLocale());
