#pragma once

#include <QDate>
#include <QString>

#include <optional>

// Document dates are YYYY-MM-DD texts.
namespace DocDate {
// Strict parse of YYYY-MM-DD; an impossible date such as 2024-02-30 gives an invalid QDate.
QDate parse(const QString &text);
// The date in the user's locale, abbreviated ("Jan 5, 2024"); empty for an absent or unreadable date.
QString display(const std::optional<QString> &text);
// The same, in a chosen locale.
QString display(const std::optional<QString> &text, const QLocale &locale);
// Today in the local calendar and time zone, as YYYY-MM-DD.
QString today();
} // namespace DocDate
