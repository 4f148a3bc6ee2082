#pragma once

#include "core/Error.h"
#include "extract/Trace.h"

#include <QByteArray>
#include <QString>

#include <exception>
#include <optional>

namespace Extractor {
// What the extractor itself throws when a scan gets no result.
struct Failure : Error {
    enum class Kind {
        // The model is unavailable, rate limited or busy: the scan stays pending and is tried later.
        retryLater,
        // The scan can't be extracted; the transcript so far comes with it.
        failed,
    };

    static Failure retryLater(const QString &message) { return Failure(Kind::retryLater, message, std::nullopt); }
    static Failure failed(const QString &message, Trace trace)
    {
        return Failure(Kind::failed, message, std::move(trace));
    }

    Kind kind;
    // Only with `failed`.
    std::optional<Trace> trace;

private:
    Failure(Kind kind, const QString &message, std::optional<Trace> trace)
        : Error(message)
        , kind(kind)
        , trace(std::move(trace))
    {
    }
};
} // namespace Extractor
