#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

// Reading hand-editable JSON strictly: a key of the wrong type makes the whole record unreadable,
// while an optional key may be missing or null.
namespace JsonFields {
// A whole number; absent for anything else, including numbers too large to be a count or a page.
std::optional<qint64> integer(const QJsonValue &value);
// A finite number.
std::optional<double> number(const QJsonValue &value);

// Reads an optional text into `into`; false when the key holds something other than text or null.
bool optionalText(const QJsonObject &object, const QString &key, std::optional<QString> &into);
// Writes the text under the key when present; absent values are left out.
void insert(QJsonObject &object, const QString &key, const std::optional<QString> &value);
} // namespace JsonFields
