#include "library/DragItem.h"

namespace {

const QLatin1StringView scansPrefix("vellumark-docs:");
const QLatin1StringView organizationPrefix("vellumark-org:");

// A decimal id; Qt would take " 5" for 5, but a piece with blanks around it is no number here.
std::optional<std::int64_t> idFrom(QStringView text)
{
    bool ok = false;
    const qlonglong id = text.toLongLong(&ok);
    if (!ok || text.front().isSpace() || text.back().isSpace())
        return std::nullopt;
    return id;
}

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
        if (const std::optional<std::int64_t> id = idFrom(piece))
            ids.insert(*id);
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
    return idFrom(text.mid(organizationPrefix.size()));
}
