#include "core/Status.h"

QString rawValue(OCRStatus status)
{
    switch (status) {
    case OCRStatus::pending:
        return QStringLiteral("pending");
    case OCRStatus::done:
        return QStringLiteral("done");
    case OCRStatus::failed:
        return QStringLiteral("failed");
    }
    return QStringLiteral("pending");
}

QString rawValue(ExtractStatus status)
{
    switch (status) {
    case ExtractStatus::pending:
        return QStringLiteral("pending");
    case ExtractStatus::done:
        return QStringLiteral("done");
    case ExtractStatus::failed:
        return QStringLiteral("failed");
    case ExtractStatus::manual:
        return QStringLiteral("manual");
    }
    return QStringLiteral("pending");
}

std::optional<OCRStatus> ocrStatusFromRaw(const QString &raw)
{
    for (auto status : { OCRStatus::pending, OCRStatus::done, OCRStatus::failed })
        if (rawValue(status) == raw)
            return status;
    return std::nullopt;
}

std::optional<ExtractStatus> extractStatusFromRaw(const QString &raw)
{
    for (auto status : { ExtractStatus::pending, ExtractStatus::done, ExtractStatus::failed, ExtractStatus::manual })
        if (rawValue(status) == raw)
            return status;
    return std::nullopt;
}
