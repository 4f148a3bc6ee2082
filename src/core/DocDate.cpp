#include "core/DocDate.h"

#include <QLocale>
#include <QRegularExpression>

namespace {
// The locale's long date without the weekday and with the month abbreviated, which is what people
// expect of an "abbreviated" date: "Jan 5, 2024", "5. Jan. 2024".
QString abbreviatedFormat(const QLocale &locale)
{
    QString format = locale.dateFormat(QLocale::LongFormat);
    static const QRegularExpression weekday(QStringLiteral("d{4}[,.]?\\s*"));
    format.remove(weekday);
    format.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    return format.trimmed();
}
} // namespace

QDate DocDate::parse(const QString &text)
{
    static const QRegularExpression shape(QStringLiteral("^\\d{4}-\\d{2}-\\d{2}$"));
    if (!shape.match(text).hasMatch())
        return QDate();
    return QDate::fromString(text, QStringLiteral("yyyy-MM-dd"));
}

QString DocDate::display(const std::optional<QString> &text, const QLocale &locale)
{
    if (!text)
        return QString();
    const QDate date = parse(*text);
    if (!date.isValid())
        return QString();
    return locale.toString(date, abbreviatedFormat(locale));
}

QString DocDate::display(const std::optional<QString> &text)
{
    return display(text, QLocale());
}

QString DocDate::today()
{
    const QDate date = QDate::currentDate();
    return QString::asprintf("%04d-%02d-%02d", date.year(), date.month(), date.day());
}
