#pragma once

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>

// One page's answer, as the page reader made it from the model's reply.
struct PageAnswer {
    // Counted from 0; shown from 1.
    std::int64_t page = 0;
    // Already cleaned; absent when the page named none.
    std::optional<QString> organization;
    // One of DocumentKind::all().
    std::optional<QString> kind;
    // YYYY-MM-DD.
    std::optional<QString> date;
    std::optional<QString> dateLabel;
    bool firstPage = false;
    // The date is written on the page.
    bool dateInText = false;

    bool operator==(const PageAnswer &) const = default;

    // The transcript's form: absent values left out.
    QJsonObject toJson() const;
    // Needs "page", "firstPage" and "dateInText"; absent when a key holds the wrong type.
    static std::optional<PageAnswer> fromJson(const QJsonValue &json);
};
