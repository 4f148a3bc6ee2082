#pragma once

#include "extract/PageAnswer.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QLocale>
#include <QString>
#include <QUuid>

#include <optional>
#include <vector>

namespace Extractor {
// The transcript of one extraction: what the model was asked and answered, and what was decided. Kept
// as JSON with the scan, condensed into its log, shown and copied in full.
struct Trace {
    // One request to the model.
    struct Attempt {
        QUuid id;
        QString label;
        QString mode;
        QString instructions;
        QString prompt;
        std::optional<qint64> tokens;
        // Absent when the request failed.
        std::optional<QString> response;
        // "OK", "Not in the asked-for form", an error description, or "Running" while under way.
        QString outcome;
        std::optional<QString> refusalExplanation;
        double seconds = 0;

        bool operator==(const Attempt &) const = default;

        QJsonObject toJson() const;
        static std::optional<Attempt> fromJson(const QJsonValue &json);
    };

    // When the extraction began.
    QDateTime date;
    QString system;
    bool customInstructions = false;
    std::optional<QString> hint;
    std::vector<Attempt> attempts;
    std::vector<PageAnswer> pages;
    std::optional<QString> consensus;

    bool operator==(const Trace &) const = default;

    // UTF-8 JSON with the date as seconds since 2001-01-01 UTC and absent values left out; absent when
    // a value can't be written (an invalid date, a time that isn't a number).
    std::optional<QByteArray> encode() const;
    // Absent for anything that isn't a complete transcript: such a text counts as no transcript.
    static std::optional<Trace> decode(const QByteArray &json);

    // The condensed log: the hint, one line per page answer, the failed requests, the consensus, and
    // the number of requests with their time.
    QString summary() const;
    // Everything, for copying: every request with its instructions, prompt and response.
    QString fullText(const QLocale &locale = QLocale()) const;
};
} // namespace Extractor
