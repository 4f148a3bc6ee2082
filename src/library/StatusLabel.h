#pragma once

#include "library/Catalogue.h"

#include <QString>

#include <optional>

class Library;

// What the table's status column shows for one scan: a text, an icon and a colour.
struct StatusLabel {
    enum class Tone { secondary, orange, red };

    QString text;
    // A symbol name ("questionmark.folder"); the views map it to an icon.
    QString icon;
    Tone tone = Tone::secondary;

    bool operator==(const StatusLabel &) const = default;
};

// What the label depends on besides the scan itself.
struct WorkState {
    // The scans being read now.
    DocumentIDSet reading;
    // The file name (last path component) being filed now.
    std::optional<QString> currentExtraction;
    bool paused = false;
    DocumentIDSet requested;
    // The local model can't be used (Library::modelProblem() is set).
    bool modelUnavailable = false;

    static WorkState of(const Library &library);
    bool operator==(const WorkState &) const = default;
};

// The scan's label: a missing file first, then failed reading, reading, then filing.
StatusLabel statusLabel(const ScanDocument &document, const WorkState &work);
