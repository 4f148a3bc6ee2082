#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// What the model fills in for one page when it answers in structured form. Every field is always
// present; an empty text means the page doesn't show it.
struct PageFacts {
    bool firstPage = false;
    QString kind;
    QString organization;
    QString dateLabel;
    QString date;

    bool operator==(const PageFacts &) const = default;

    // The JSON Schema handed to the model and counted for tokens: the five fields in the order above,
    // all required, each with its guide as description, `kind` one of DocumentKind::all(). Property
    // order matters to the model, so the text is written out in that order.
    static const QByteArray &schema();
    // A structured reply read by property name; absent unless it is an object with all five fields of
    // the right types and a `kind` from the list. Servers may ignore the schema, so nothing is trusted.
    static std::optional<PageFacts> decode(const QByteArray &json);
};
