#include "extract/model/HttpTransfer.h"

#include "core/Cancellation.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>

namespace Extractor {
namespace {
struct Transfer {
    const std::stop_token *stop = nullptr;
    qsizetype maximumBytes = 0;
    bool tooLarge = false;
    QByteArray body;
};

size_t receive(char *data, size_t size, size_t count, void *userData)
{
    auto *transfer = static_cast<Transfer *>(userData);
    const size_t bytes = size * count;
    if (transfer->body.size() + qsizetype(bytes) > transfer->maximumBytes) {
        transfer->tooLarge = true;
        return 0; // makes libcurl fail the transfer with a write error
    }
    transfer->body.append(data, qsizetype(bytes));
    return bytes;
}

int progress(void *userData, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return static_cast<Transfer *>(userData)->stop->stop_requested() ? 1 : 0;
}

struct CurlDeleter {
    void operator()(CURL *handle) const { curl_easy_cleanup(handle); }
};
struct HeaderListDeleter {
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};

void initialiseOnce()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}
} // namespace

HttpResponse httpTransfer(const QUrl &url, const QByteArray &body, const HttpLimits &limits, HttpTimeouts timeouts,
    const std::stop_token &stop)
{
    throwIfCancelled(stop);
    initialiseOnce();
    const std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
    if (!curl)
        throw HttpFailure(HttpFailure::Kind::other, QStringLiteral("libcurl could not start a transfer"));
    Transfer transfer;
    transfer.stop = &stop;
    transfer.maximumBytes = limits.maximumResponseBytes;

    CURL *handle = curl.get();
    const QByteArray address = url.toEncoded();
    curl_easy_setopt(handle, CURLOPT_URL, address.constData());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    // The model server is the user's own; a proxy from the environment would only get in the way.
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, long(limits.connect.count()));
    if (timeouts == HttpTimeouts::probe) {
        curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, long(limits.probe.count()));
    } else {
        curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, long(std::chrono::milliseconds(limits.total).count()));
        curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, long(limits.idle.count()));
    }
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, receive);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, progress);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &transfer);

    std::unique_ptr<curl_slist, HeaderListDeleter> headers;
    if (!body.isNull()) {
        headers.reset(curl_slist_append(nullptr, "Content-Type: application/json"));
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.constData());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
    }

    const CURLcode code = curl_easy_perform(handle);
    if (code == CURLE_ABORTED_BY_CALLBACK || stop.stop_requested())
        throw Cancelled();
    if (transfer.tooLarge)
        throw HttpFailure(HttpFailure::Kind::tooLarge,
            u"The answer was larger than " + QString::number(limits.maximumResponseBytes / (1024 * 1024)) + u" MB");
    if (code != CURLE_OK) {
        const QString message = QString::fromUtf8(curl_easy_strerror(code));
        switch (code) {
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
            throw HttpFailure(HttpFailure::Kind::unreachable, message);
        case CURLE_OPERATION_TIMEDOUT:
            throw HttpFailure(HttpFailure::Kind::timedOut, message);
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL:
            throw HttpFailure(HttpFailure::Kind::other, message);
        default:
            // Dropped or garbled connections: a server restarted mid-answer counts as not answering.
            throw HttpFailure(HttpFailure::Kind::unreachable, message);
        }
    }
    HttpResponse response;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &response.status);
    response.body = std::move(transfer.body);
    return response;
}
} // namespace Extractor
