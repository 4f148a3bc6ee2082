#pragma once

#include "core/Status.h"

#include <QDateTime>
#include <QString>

#include <compare>
#include <cstdint>
#include <optional>
#include <vector>

// One scan in the catalogue: its row of `documents` with its organization's name and the path of the
// scan it looked like.
struct ScanDocument {
    std::int64_t id = 0;
    QString path;
    std::int64_t fileSize = 0;
    QDateTime fileModified;
    std::optional<int> pageCount;
    bool missing = false;
    OCRStatus ocrStatus = OCRStatus::pending;
    ExtractStatus extractStatus = ExtractStatus::pending;
    std::optional<QString> error;
    std::optional<std::int64_t> organizationID;
    std::optional<QString> organizationName;
    std::optional<QString> date;
    std::optional<QString> modelOrganization;
    QDateTime addedAt;
    std::optional<QString> extractLog;
    std::optional<std::int64_t> similarID;
    std::optional<QString> similarPath;
    std::optional<QString> kind;
    std::vector<int> pageRotations;

    bool operator==(const ScanDocument &) const = default;

    // Still waiting for its text, or for the model.
    bool isProcessing() const;
    // Finished, but without an organization or a date.
    bool needsReview() const;
    QString organizationSortKey() const;
    QString kindSortKey() const;
    QString dateSortKey() const;
    QString fileSortKey() const;
    int pagesSortKey() const;
    // 0 problems, 1 processing, 2 needs review, 3 filed by the model, 4 edited by hand.
    int statusSortKey() const;
};

// Reads the rotations column: pieces between commas, empty ones dropped, non-numbers read as 0.
std::vector<int> parsePageRotations(const std::optional<QString> &text);

// A date from REAL seconds since 1970 UTC, and back.
QDateTime dateFromSeconds(double seconds);
double secondsSince1970(const QDateTime &date);

struct Organization {
    std::int64_t id = 0;
    QString name;
    int documentCount = 0;

    bool operator==(const Organization &) const = default;
};
