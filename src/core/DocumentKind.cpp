#include "core/DocumentKind.h"

const QStringList &DocumentKind::all()
{
    static const QStringList kinds = {
        QStringLiteral("Bank statement"),
        QStringLiteral("Credit card statement"),
        QStringLiteral("Investment statement"),
        QStringLiteral("Retirement account statement"),
        QStringLiteral("Loan or mortgage statement"),
        QStringLiteral("Bill"),
        QStringLiteral("Utility bill"),
        QStringLiteral("Phone or internet bill"),
        QStringLiteral("Invoice"),
        QStringLiteral("Receipt"),
        QStringLiteral("Pay stub"),
        QStringLiteral("Tax form"),
        QStringLiteral("Tax notice"),
        QStringLiteral("Insurance policy or notice"),
        QStringLiteral("Explanation of benefits"),
        QStringLiteral("Medical bill"),
        QStringLiteral("Medical record"),
        QStringLiteral("Letter"),
        QStringLiteral("Notice"),
        QStringLiteral("Contract or agreement"),
        QStringLiteral("Legal document"),
        QStringLiteral("Real estate or title document"),
        QStringLiteral("Government document"),
        QStringLiteral("School document"),
        QStringLiteral("Donation receipt"),
        QStringLiteral("Warranty or manual"),
        QStringLiteral("Marketing"),
        QStringLiteral("Other"),
    };
    return kinds;
}

namespace {
bool isTrimmed(QChar c)
{
    return c.isSpace() || c == QLatin1Char('.') || c == QLatin1Char('*') || c == QLatin1Char('"') || c == QChar(0x201C)
        || c == QChar(0x201D);
}
} // namespace

std::optional<QString> DocumentKind::match(const std::optional<QString> &text)
{
    if (!text)
        return std::nullopt;
    qsizetype begin = 0;
    qsizetype end = text->size();
    while (begin < end && isTrimmed(text->at(begin)))
        ++begin;
    while (end > begin && isTrimmed(text->at(end - 1)))
        --end;
    if (begin == end)
        return std::nullopt;
    const QString trimmed = text->mid(begin, end - begin);
    for (const QString &kind : all())
        if (kind.compare(trimmed, Qt::CaseInsensitive) == 0)
            return kind;
    return std::nullopt;
}
