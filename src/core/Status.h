#pragma once

#include <QString>

#include <optional>

// Text recognition state of a scan, stored as its lower-case name.
enum class OCRStatus { pending, done, failed };

// Extraction state of a scan. `manual` means a person set one of its facts by hand.
enum class ExtractStatus { pending, done, failed, manual };

QString rawValue(OCRStatus status);
QString rawValue(ExtractStatus status);
std::optional<OCRStatus> ocrStatusFromRaw(const QString &raw);
std::optional<ExtractStatus> extractStatusFromRaw(const QString &raw);
