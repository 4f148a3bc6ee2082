#include "extract/JsonFields.h"

#include <cmath>

std::optional<qint64> JsonFields::integer(const QJsonValue &value)
{
    // Beyond 2^53 a JSON number no longer holds every whole number; nothing here counts that high.
    constexpr double largest = 9007199254740992.0;
    const std::optional<double> read = number(value);
    if (!read || std::trunc(*read) != *read || std::fabs(*read) > largest)
        return std::nullopt;
    return qint64(*read);
}

std::optional<double> JsonFields::number(const QJsonValue &value)
{
    if (!value.isDouble() || !std::isfinite(value.toDouble()))
        return std::nullopt;
    return value.toDouble();
}

bool JsonFields::optionalText(const QJsonObject &object, const QString &key, std::optional<QString> &into)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        into.reset();
        return true;
    }
    if (!value.isString())
        return false;
    into = value.toString();
    return true;
}

void JsonFields::insert(QJsonObject &object, const QString &key, const std::optional<QString> &value)
{
    if (value)
        object.insert(key, *value);
}
