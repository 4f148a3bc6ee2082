#include "extract/PageAnswer.h"

#include "extract/JsonFields.h"

QJsonObject PageAnswer::toJson() const
{
    QJsonObject object { { QStringLiteral("page"), qint64(page) }, { QStringLiteral("firstPage"), firstPage },
        { QStringLiteral("dateInText"), dateInText } };
    JsonFields::insert(object, QStringLiteral("organization"), organization);
    JsonFields::insert(object, QStringLiteral("kind"), kind);
    JsonFields::insert(object, QStringLiteral("date"), date);
    JsonFields::insert(object, QStringLiteral("dateLabel"), dateLabel);
    return object;
}

std::optional<PageAnswer> PageAnswer::fromJson(const QJsonValue &json)
{
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject object = json.toObject();
    const std::optional<qint64> page = JsonFields::integer(object.value(QStringLiteral("page")));
    const QJsonValue firstPage = object.value(QStringLiteral("firstPage"));
    const QJsonValue dateInText = object.value(QStringLiteral("dateInText"));
    if (!page || !firstPage.isBool() || !dateInText.isBool())
        return std::nullopt;
    PageAnswer answer;
    answer.page = *page;
    answer.firstPage = firstPage.toBool();
    answer.dateInText = dateInText.toBool();
    if (!JsonFields::optionalText(object, QStringLiteral("organization"), answer.organization)
        || !JsonFields::optionalText(object, QStringLiteral("kind"), answer.kind)
        || !JsonFields::optionalText(object, QStringLiteral("date"), answer.date)
        || !JsonFields::optionalText(object, QStringLiteral("dateLabel"), answer.dateLabel))
        return std::nullopt;
    return answer;
}
