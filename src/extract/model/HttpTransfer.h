#pragma once

#include "core/Error.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <chrono>
#include <exception>
#include <stop_token>

// One blocking HTTP exchange with the model server over libcurl: bounded in time and size, and
// abortable through a stop token.
namespace Extractor {
struct HttpLimits {
    std::chrono::milliseconds connect { 3000 };
    // Quick requests (version, model list, context size, token counts).
    std::chrono::milliseconds probe { 15000 };
    // A model request: no byte from the server for this long fails it. A local model on a CPU may
    // think for minutes before the first byte of a non-streamed answer, so this is generous. libcurl
    // averages speed over the last few seconds, so the limit is reached up to about 5 s later.
    std::chrono::seconds idle { 600 };
    std::chrono::seconds total { 1800 };
    qsizetype maximumResponseBytes = 4 * 1024 * 1024;
};

struct HttpResponse {
    long status = 0;
    QByteArray body;
};

// The exchange failed below HTTP: no connection, no answer in time, a connection dropped mid-answer,
// or an answer over the size cap.
struct HttpFailure : Error {
    enum class Kind { unreachable, timedOut, tooLarge, other };
    HttpFailure(Kind kind, QString message)
        : Error(std::move(message))
        , kind(kind)
    {
    }
    Kind kind;
};

enum class HttpTimeouts { probe, generation };

// GET when `body` is null, else POST of JSON. Throws Cancelled when `stop` is requested, even in flight,
// and HttpFailure; any HTTP status is a response.
HttpResponse httpTransfer(const QUrl &url, const QByteArray &body, const HttpLimits &limits, HttpTimeouts timeouts,
    const std::stop_token &stop);
} // namespace Extractor
