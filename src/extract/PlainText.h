#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

// Reading the model's plain-text answers and the dates in them. The text is untrusted: anything may
// come back.
namespace Extractor {
// The five-line plain-text answer, parsed.
struct PlainAnswer {
    bool firstPage = false;
    std::optional<QString> kind;
    std::optional<QString> organization;
    std::optional<QString> dateLabel;
    std::optional<QString> date;

    bool operator==(const PlainAnswer &) const = default;
};

struct DateParts {
    int year = 0;
    int month = 0;
    int day = 0;

    bool operator==(const DateParts &) const = default;
};

// The labelled answer ("Organization: …" and the other labels), or a bare one of 3 to 6 short lines;
// absent when the reply is neither.
std::optional<PlainAnswer> parsePlainText(const QString &reply);
// The first date written as 2024-3-5, 3/5/24, "March 5, 2024" or "5 March 2024", unchecked. Two-digit
// years and years more than one past `currentYear` are taken to be of the previous century.
std::optional<DateParts> dateParts(const QString &text, int currentYear);
std::optional<DateParts> dateParts(const QString &text);
// The date as YYYY-MM-DD when it is a real date from 1900 on and less than 400 days after `now`.
std::optional<QString> normalizeDate(const QString &text, const QDateTime &now);
std::optional<QString> normalizeDate(const QString &text);
} // namespace Extractor
