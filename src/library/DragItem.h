#pragma once

#include "library/Catalogue.h"

#include <QString>
#include <QStringView>

#include <cstdint>
#include <optional>

// The plain-text payloads of drags between the table and the sidebar (MIME type text/plain).

// "vellumark-docs:" and the ids in ascending order, joined with ",".
QString scansPayload(const DocumentIDSet &ids);
// The ids of a scans payload; pieces that aren't numbers are dropped. Absent without the prefix.
std::optional<DocumentIDSet> scansFromPayload(QStringView text);
// "vellumark-org:" and the organization's id.
QString organizationPayload(std::int64_t id);
// Absent without the prefix or when the rest isn't a number.
std::optional<std::int64_t> organizationFromPayload(QStringView text);
