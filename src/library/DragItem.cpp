#include "library/DragItem.h"

namespace {

const QLatin1StringView scansPrefix("vellumark-docs:");
const QLatin1StringView organizationPrefix("vellumark-org:");

} // namespace

QString scansPayload(const DocumentIDSet &ids)
{
    QString text = scansPrefix;
    bool first = true;
    for (const std::int64_t id : ids) {
        if (!first)
            text += QLatin1Char(',');
        text += QString::number(id);
        first = false;
    }
    return text;
}

std::optional<DocumentIDSet> scansFromPayload(QStringView text)
{
    if (!text.startsWith(scansPrefix))
        return std::nullopt;
    DocumentIDSet ids;
    for (const QStringView piece : text.mid(scansPrefix.size()).split(QLatin1Char(','))) {
        bool ok = false;
        const qlonglong id = piece.toLongLong(&ok);
        if (ok)
            ids.insert(id);
    }
    return ids;
}

QString organizationPayload(std::int64_t id)
{
    return organizationPrefix + QString::number(id);
}

std::optional<std::int64_t> organizationFromPayload(QStringView text)
{
    if (!text.startsWith(organizationPrefix))
        return std::nullopt;
    bool ok = false;
    const qlonglong id = text.mid(organizationPrefix.size()).toLongLong(&ok);
    return ok ? std::optional<std::int64_t>(id) : std::nullopt;
}
