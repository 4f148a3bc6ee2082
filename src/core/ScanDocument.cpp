#include "core/ScanDocument.h"

#include <QStringList>

namespace {
const QString lastSortKey = QString(QChar(0xFFFF));
}

bool ScanDocument::isProcessing() const
{
    return !missing
        && (ocrStatus == OCRStatus::pending
            || (ocrStatus == OCRStatus::done && extractStatus == ExtractStatus::pending));
}

bool ScanDocument::needsReview() const
{
    return !missing && ocrStatus == OCRStatus::done && extractStatus != ExtractStatus::pending
        && (!organizationID || !date);
}

QString ScanDocument::organizationSortKey() const
{
    return organizationName ? organizationName->toLower() : lastSortKey;
}

QString ScanDocument::kindSortKey() const
{
    return kind.value_or(lastSortKey);
}

QString ScanDocument::dateSortKey() const
{
    return date.value_or(QString());
}

QString ScanDocument::fileSortKey() const
{
    return path.toLower();
}

int ScanDocument::pagesSortKey() const
{
    return pageCount.value_or(0);
}

int ScanDocument::statusSortKey() const
{
    if (missing || ocrStatus == OCRStatus::failed || extractStatus == ExtractStatus::failed)
        return 0;
    if (isProcessing())
        return 1;
    if (!organizationID || !date)
        return 2;
    if (extractStatus == ExtractStatus::done)
        return 3;
    return 4;
}

std::vector<int> parsePageRotations(const std::optional<QString> &text)
{
    std::vector<int> rotations;
    if (!text)
        return rotations;
    for (const QString &piece : text->split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool ok = false;
        const int value = piece.toInt(&ok, 10);
        rotations.push_back(ok ? value : 0);
    }
    return rotations;
}

QDateTime dateFromSeconds(double seconds)
{
    return QDateTime::fromMSecsSinceEpoch(qRound64(seconds * 1000.0), Qt::UTC);
}

double secondsSince1970(const QDateTime &date)
{
    return double(date.toMSecsSinceEpoch()) / 1000.0;
}
