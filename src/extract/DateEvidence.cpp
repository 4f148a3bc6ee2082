#include "extract/DateEvidence.h"

#include <QList>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace DateEvidence {

namespace {

const std::array<QLatin1String, 12> monthNames {
    QLatin1String("january"),
    QLatin1String("february"),
    QLatin1String("march"),
    QLatin1String("april"),
    QLatin1String("may"),
    QLatin1String("june"),
    QLatin1String("july"),
    QLatin1String("august"),
    QLatin1String("september"),
    QLatin1String("october"),
    QLatin1String("november"),
    QLatin1String("december"),
};

// A base-10 integer with an optional leading "+", nothing else around it; absent otherwise.
std::optional<std::int64_t> integer(const QString &piece)
{
    const QStringView digits = piece.startsWith(QLatin1Char('+')) ? QStringView(piece).mid(1) : QStringView(piece);
    if (digits.isEmpty() || !std::all_of(digits.begin(), digits.end(), [](QChar c) { return c >= u'0' && c <= u'9'; }))
        return std::nullopt;
    bool ok = false;
    const std::int64_t value = digits.toLongLong(&ok, 10);
    return ok ? std::optional(value) : std::nullopt;
}

QString twoDigits(std::int64_t value)
{
    return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
}

// The scalar just before `at`, or a space at the text's start.
char32_t scalarBefore(const QString &text, qsizetype at)
{
    if (at <= 0)
        return U' ';
    const QChar c = text[at - 1];
    if (c.isLowSurrogate() && at >= 2 && text[at - 2].isHighSurrogate())
        return QChar::surrogateToUcs4(text[at - 2], c);
    return c.unicode();
}

// The scalar starting at `at`, or a space past the text's end.
char32_t scalarAt(const QString &text, qsizetype at)
{
    if (at >= text.size())
        return U' ';
    const QChar c = text[at];
    if (c.isHighSurrogate() && at + 1 < text.size() && text[at + 1].isLowSurrogate())
        return QChar::surrogateToUcs4(c, text[at + 1]);
    return c.unicode();
}

// The text without white space, and for each of its positions (and its end) whether white space stood
// right before it.
struct Squeezed {
    QString text;
    std::vector<bool> spaceBefore;
};

Squeezed squeeze(const QString &text)
{
    Squeezed squeezed;
    squeezed.text.reserve(text.size());
    squeezed.spaceBefore.reserve(std::size_t(text.size()) + 1);
    bool space = false;
    for (const QChar c : text) {
        if (c.isSpace()) {
            space = true;
            continue;
        }
        squeezed.text.append(c);
        squeezed.spaceBefore.push_back(space);
        space = false;
    }
    squeezed.spaceBefore.push_back(space);
    return squeezed;
}

// A neighbour that was white space on the page is a boundary even when a digit lies beyond it: the
// line above a date may end in a postcode.
bool standsAlone(const Squeezed &squeezed, qsizetype at, qsizetype length)
{
    const qsizetype end = at + length;
    return (squeezed.spaceBefore[std::size_t(at)] || !QChar::isNumber(scalarBefore(squeezed.text, at)))
        && (squeezed.spaceBefore[std::size_t(end)] || !QChar::isNumber(scalarAt(squeezed.text, end)));
}

} // namespace

QStringList forms(const QString &iso)
{
    QList<std::int64_t> numbers;
    for (const QString &piece : iso.split(QLatin1Char('-'), Qt::SkipEmptyParts))
        if (const auto number = integer(piece))
            numbers.append(*number);
    if (numbers.size() != 3)
        return {};
    const std::int64_t year = numbers[0];
    const std::int64_t month = numbers[1];
    const std::int64_t day = numbers[2];
    if (month < 1 || month > 12)
        return {};

    const QString fullYear = QString::number(year);
    const QString shortYear = twoDigits(year % 100);
    const QStringList months { QString::number(month), twoDigits(month) };
    const QStringList days { QString::number(day), twoDigits(day) };

    QStringList result;
    for (const QString &m : months)
        for (const QString &d : days)
            for (const QLatin1Char separator : { QLatin1Char('/'), QLatin1Char('-'), QLatin1Char('.') }) {
                result.append(m + separator + d + separator + fullYear);
                result.append(m + separator + d + separator + shortYear);
            }
    result.append(iso);
    result.append(fullYear + QLatin1Char('/') + months[1] + QLatin1Char('/') + days[1]);

    const QString name(monthNames[std::size_t(month - 1)]);
    const QString abbreviation = name.left(3);
    QStringList names { name, abbreviation, abbreviation + QLatin1Char('.'),
        month == 9 ? QStringLiteral("sept") : abbreviation };
    names.removeDuplicates();
    for (const QString &n : names)
        for (const QString &d : days) {
            result.append(n + d + QLatin1Char(',') + fullYear);
            result.append(n + d + fullYear);
            result.append(d + n + fullYear);
            result.append(d + n + QLatin1Char(',') + fullYear);
            result.append(n + d + QLatin1Char(',') + shortYear);
        }
    return result;
}

bool appears(const QString &iso, const QString &text)
{
    const QStringList wanted = forms(iso);
    if (wanted.isEmpty())
        return false;

    // "Sept. 5, 2024" is read as "sept.5,2024": the forms carry no white space either.
    const Squeezed squeezed = squeeze(text.toLower());

    for (const QString &form : wanted) {
        for (qsizetype at = squeezed.text.indexOf(form); at >= 0; at = squeezed.text.indexOf(form, at + form.size()))
            if (standsAlone(squeezed, at, form.size()))
                return true;
    }
    return false;
}

} // namespace DateEvidence
