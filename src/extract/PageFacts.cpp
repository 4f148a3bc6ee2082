#include "extract/PageFacts.h"

#include "core/DocumentKind.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <utility>

namespace {
struct Field {
    QString name;
    QString type;
    QString description;
};

const Field fields[] = {
    { QStringLiteral("firstPage"), QStringLiteral("boolean"),
        QStringLiteral(
            "True if this is the first page of the document: letterhead, the addressee's name and address, or a title "
            "and date at the top. False for continuation pages, terms and conditions, backs of pages, envelopes, and "
            "inserts. Pages may be scanned out of order.") },
    { QStringLiteral("kind"), QStringLiteral("string"), QStringLiteral("What kind of document this page belongs to.") },
    { QStringLiteral("organization"), QStringLiteral("string"),
        QStringLiteral(
            "The organization that sent or issued the document: the bank, card issuer, brokerage, utility, insurer, "
            "employer, hospital or doctor's office, school, landlord, store, or government agency. Never the person or "
            "household it is addressed to. Short common name without legal suffixes. Empty if the page doesn't show "
            "one.") },
    { QStringLiteral("dateLabel"), QStringLiteral("string"),
        QStringLiteral("The words printed next to the document's own date on this page, such as \"Statement Date\", "
                       "\"Closing Date\", \"Notice Date\", or \"Date of Service\". Empty if there is none.") },
    { QStringLiteral("date"), QStringLiteral("string"),
        QStringLiteral(
            "The document's own date as YYYY-MM-DD, exactly as printed on this page: the statement, letter, invoice, "
            "or "
            "notice date; for a statement covering a period, the last day of the period. Not a due date or a date in "
            "fine print. Empty if this page doesn't show it.") },
};

// The JSON text of one value, as it appears inside an array.
QByteArray compact(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

QByteArray buildSchema()
{
    // QJsonObject sorts its keys, so only the values inside each property come from it; the property
    // list and the required list are joined here in field order.
    QByteArrayList properties;
    QJsonArray required;
    for (const Field &field : fields) {
        QJsonObject property { { QStringLiteral("type"), field.type },
            { QStringLiteral("description"), field.description } };
        if (field.name == QLatin1String("kind"))
            property.insert(QStringLiteral("enum"), QJsonArray::fromStringList(DocumentKind::all()));
        properties.append(compact(QJsonValue(field.name)) + ':' + compact(property));
        required.append(field.name);
    }
    return "{\"title\":\"PageFacts\",\"type\":\"object\",\"properties\":{" + properties.join(',')
        + "},\"required\":" + compact(required) + ",\"additionalProperties\":false}";
}
} // namespace

const QByteArray &PageFacts::schema()
{
    static const QByteArray text = buildSchema();
    return text;
}

std::optional<PageFacts> PageFacts::decode(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    const QJsonValue firstPage = object.value(QStringLiteral("firstPage"));
    if (!firstPage.isBool())
        return std::nullopt;
    PageFacts facts;
    facts.firstPage = firstPage.toBool();
    const std::pair<QString, QString *> texts[] = {
        { QStringLiteral("kind"), &facts.kind },
        { QStringLiteral("organization"), &facts.organization },
        { QStringLiteral("dateLabel"), &facts.dateLabel },
        { QStringLiteral("date"), &facts.date },
    };
    for (const auto &[name, text] : texts) {
        const QJsonValue value = object.value(name);
        if (!value.isString())
            return std::nullopt;
        *text = value.toString();
    }
    if (!DocumentKind::all().contains(facts.kind))
        return std::nullopt;
    return facts;
}
