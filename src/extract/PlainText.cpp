#include "extract/PlainText.h"

#include "core/DocDate.h"
#include "core/DocumentKind.h"
#include "core/Graphemes.h"

#include <QDate>
#include <QRegularExpression>
#include <QStringList>

#include <array>

namespace {
bool isLineBreak(QChar c)
{
    return c == u'\n' || c == u'\r' || c == u'\v' || c == u'\f' || c == QChar(0x85) || c == QChar(0x2028)
        || c == QChar(0x2029);
}

template <typename Predicate> QString trimmed(const QString &text, Predicate trim)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && trim(text.at(begin)))
        ++begin;
    while (end > begin && trim(text.at(end - 1)))
        --end;
    return text.mid(begin, end - begin);
}

// Lines without empty ones, each without the blanks and list marks around it.
QStringList keptLines(const QString &reply)
{
    QStringList lines;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= reply.size(); ++i) {
        if (i < reply.size() && !isLineBreak(reply.at(i)))
            continue;
        const QString line = trimmed(reply.mid(start, i - start),
            [](QChar c) { return c.isSpace() || c == u'*' || c == u'-' || c == QChar(0x2022); });
        if (!line.isEmpty())
            lines.append(line);
        start = i + 1;
    }
    return lines;
}

// A value without blanks, emphasis and quotes; absent for the non-answers.
std::optional<QString> value(const QString &text)
{
    const QString value = trimmed(text,
        [](QChar c) { return c.isSpace() || c == u'*' || c == u'"' || c == QChar(0x201C) || c == QChar(0x201D); });
    const QString lower = value.toLower();
    if (value.isEmpty() || lower == u"none" || lower == u"n/a" || lower == u"unknown")
        return std::nullopt;
    return value;
}

struct Field {
    bool found = false;
    std::optional<QString> value;
};

// The first line that starts with the label (any case) followed by asterisks or spaces and a colon,
// so that "Date" never takes the "Date label:" line.
Field field(const QStringList &lines, QStringView label)
{
    for (const QString &line : lines) {
        if (line.size() <= label.size())
            continue;
        qsizetype i = 0;
        // Letter by letter, so that positions in the line stay those of the original text.
        while (i < label.size() && line.at(i).toLower() == label.at(i))
            ++i;
        if (i < label.size())
            continue;
        while (i < line.size() && (line.at(i) == u'*' || line.at(i) == u' '))
            ++i;
        if (i < line.size() && line.at(i) == u':')
            return { true, value(line.mid(i + 1)) };
    }
    return {};
}

// The labelled form, whenever an "Organization:" line exists.
std::optional<Extractor::PlainAnswer> labelled(const QStringList &lines)
{
    const Field organization = field(lines, u"organization");
    if (!organization.found)
        return std::nullopt;
    Extractor::PlainAnswer answer;
    const std::optional<QString> firstPage = field(lines, u"first page").value;
    answer.firstPage = firstPage && firstPage->toLower().startsWith(u'y');
    answer.kind = field(lines, u"type").value;
    answer.organization = organization.value;
    answer.dateLabel = field(lines, u"date label").value;
    if (const std::optional<QString> date = field(lines, u"date").value)
        answer.date = Extractor::normalizeDate(*date);
    return answer;
}

// The bare form: an optional yes/no line, an optional type, one or two lines of organization and date
// label, and the date last.
std::optional<Extractor::PlainAnswer> bare(const QStringList &lines)
{
    constexpr qsizetype longest = 120;
    if (lines.size() < 3 || lines.size() > 6)
        return std::nullopt;
    for (const QString &line : lines)
        if (Graphemes::count(line, longest + 1) > longest)
            return std::nullopt;
    Extractor::PlainAnswer answer;
    qsizetype position = 0;
    const QString first = lines.first().toLower();
    if (first == u"yes" || first == u"no" || first == u"yes." || first == u"no.") {
        answer.firstPage = first.startsWith(u'y');
        position = 1;
    }
    if (DocumentKind::match(lines.at(position))) {
        answer.kind = lines.at(position);
        ++position;
    }
    qsizetype end = lines.size();
    answer.date = Extractor::normalizeDate(lines.last());
    if (answer.date || !value(lines.last()))
        --end;
    const qsizetype remaining = end - position;
    if (remaining < 1 || remaining > 2 || (!answer.kind && !answer.date))
        return std::nullopt;
    answer.organization = value(lines.at(position));
    if (remaining == 2)
        answer.dateLabel = value(lines.at(position + 1));
    return answer;
}

// Month 1-12 from the start of a month name; 0 when it names none.
int monthFromName(QStringView letters)
{
    static const std::array<QStringView, 12> months
        = { u"jan", u"feb", u"mar", u"apr", u"may", u"jun", u"jul", u"aug", u"sep", u"oct", u"nov", u"dec" };
    if (letters.size() < 3)
        return 0;
    for (int i = 0; i < 12; ++i)
        if (letters.startsWith(months[i]))
            return i + 1;
    return 0;
}

QStringList runs(const QString &text, const QRegularExpression &run)
{
    QStringList pieces;
    QRegularExpressionMatchIterator it = run.globalMatch(text);
    while (it.hasNext())
        pieces.append(it.next().captured());
    return pieces;
}
} // namespace

std::optional<Extractor::PlainAnswer> Extractor::parsePlainText(const QString &reply)
{
    const QStringList lines = keptLines(reply);
    if (std::optional<PlainAnswer> answer = labelled(lines))
        return answer;
    return bare(lines);
}

std::optional<Extractor::DateParts> Extractor::dateParts(const QString &text, int currentYear)
{
    static const QRegularExpression iso(QStringLiteral("\\d{4}-\\d{1,2}-\\d{1,2}"));
    static const QRegularExpression slashed(QStringLiteral("(?<!\\d)\\d{1,2}/\\d{1,2}/(\\d{4}|\\d{2})(?!\\d)"));
    static const QRegularExpression monthFirst(QStringLiteral("[a-z]{3,9}\\.?\\s+\\d{1,2},?\\s+\\d{4}"));
    static const QRegularExpression dayFirst(QStringLiteral("\\d{1,2}\\s+[a-z]{3,9}\\.?,?\\s+\\d{4}"));
    static const QRegularExpression letters(QStringLiteral("[a-z]+"));
    static const QRegularExpression digits(QStringLiteral("\\d+"));

    if (const QRegularExpressionMatch match = iso.match(text); match.hasMatch()) {
        const QStringList numbers = match.captured().split(u'-');
        return DateParts { numbers.at(0).toInt(), numbers.at(1).toInt(), numbers.at(2).toInt() };
    }
    if (const QRegularExpressionMatch match = slashed.match(text); match.hasMatch()) {
        const QStringList numbers = match.captured().split(u'/');
        int year = numbers.at(2).toInt();
        if (year < 100)
            year += 2000;
        if (year > currentYear + 1)
            year -= 100;
        return DateParts { year, numbers.at(0).toInt(), numbers.at(1).toInt() };
    }
    const QString lower = text.toLower();
    for (const QRegularExpression *form : { &monthFirst, &dayFirst }) {
        const QRegularExpressionMatch match = form->match(lower);
        if (!match.hasMatch())
            continue;
        const QString written = match.captured();
        const int month = monthFromName(runs(written, letters).value(0));
        const QStringList numbers = runs(written, digits);
        if (month == 0)
            return std::nullopt;
        return DateParts { numbers.at(1).toInt(), month, numbers.at(0).toInt() };
    }
    return std::nullopt;
}

std::optional<Extractor::DateParts> Extractor::dateParts(const QString &text)
{
    return dateParts(text, QDate::currentDate().year());
}

std::optional<QString> Extractor::normalizeDate(const QString &text, const QDateTime &now)
{
    const std::optional<DateParts> parts = dateParts(text.trimmed(), now.toLocalTime().date().year());
    if (!parts)
        return std::nullopt;
    const QString formatted = QString::asprintf("%04d-%02d-%02d", parts->year, parts->month, parts->day);
    const QDate date = DocDate::parse(formatted);
    if (!date.isValid() || date.year() < 1900)
        return std::nullopt;
    constexpr qint64 fourHundredDays = 34'560'000;
    if (QDateTime(date, QTime(0, 0)) >= now.addSecs(fourHundredDays))
        return std::nullopt;
    return formatted;
}

std::optional<QString> Extractor::normalizeDate(const QString &text)
{
    return normalizeDate(text, QDateTime::currentDateTime());
}
