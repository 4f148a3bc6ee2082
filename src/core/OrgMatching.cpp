#include "core/OrgMatching.h"

#include "core/Graphemes.h"

#include <QRegularExpression>
#include <QSet>
#include <QStringList>

#include <algorithm>
#include <string>

namespace OrgMatching {

namespace {

const QSet<QString> &legalSuffixes()
{
    static const QSet<QString> words {
        QStringLiteral("inc"),
        QStringLiteral("incorporated"),
        QStringLiteral("llc"),
        QStringLiteral("ltd"),
        QStringLiteral("limited"),
        QStringLiteral("corp"),
        QStringLiteral("corporation"),
        QStringLiteral("co"),
        QStringLiteral("company"),
        QStringLiteral("na"),
        QStringLiteral("plc"),
        QStringLiteral("fsb"),
        QStringLiteral("lp"),
        QStringLiteral("llp"),
        QStringLiteral("pc"),
        QStringLiteral("pllc"),
        QStringLiteral("gmbh"),
        QStringLiteral("ag"),
        QStringLiteral("sa"),
    };
    return words;
}

// Words too common in organization names to identify one on their own.
const QSet<QString> &generic()
{
    static const QSet<QString> words {
        QStringLiteral("bank"),
        QStringLiteral("the"),
        QStringLiteral("first"),
        QStringLiteral("national"),
        QStringLiteral("american"),
        QStringLiteral("united"),
        QStringLiteral("state"),
        QStringLiteral("city"),
        QStringLiteral("county"),
        QStringLiteral("department"),
        QStringLiteral("services"),
        QStringLiteral("service"),
        QStringLiteral("insurance"),
        QStringLiteral("financial"),
        QStringLiteral("group"),
        QStringLiteral("credit"),
        QStringLiteral("union"),
        QStringLiteral("medical"),
        QStringLiteral("health"),
        QStringLiteral("center"),
        QStringLiteral("office"),
        QStringLiteral("of"),
        QStringLiteral("and"),
        QStringLiteral("us"),
        QStringLiteral("new"),
    };
    return words;
}

const QSet<QString> &nonAnswers()
{
    static const QSet<QString> answers {
        QString(),
        QStringLiteral("unknown"),
        QStringLiteral("none"),
        QStringLiteral("na"),
        QStringLiteral("n/a"),
        QStringLiteral("null"),
        QStringLiteral("nil"),
        QStringLiteral("not specified"),
        QStringLiteral("unspecified"),
        QStringLiteral("not available"),
        QStringLiteral("no organization"),
        QStringLiteral("individual"),
        QStringLiteral("personal"),
    };
    return answers;
}

const QRegularExpression &trailingLegalForm()
{
    static const QRegularExpression expression(
        QStringLiteral("(?i)[,\\s]+(inc|incorporated|llc|l\\.l\\.c|ltd|limited|corp|corporation|co|n\\.\\s?a|na|plc|"
                       "fsb|lp|llp)\\.?$"),
        QRegularExpression::UseUnicodePropertiesOption);
    return expression;
}

// The longest text a legal form with its full stop can take ("incorporated.").
constexpr qsizetype longestLegalForm = 13;

bool isTrimmed(QChar c)
{
    switch (c.unicode()) {
    case u'"':
    case u'\'':
    case u'`':
    case u'*':
    case u'.':
    case u',':
    case u';':
    case u':':
        return true;
    default:
        return c.isSpace();
    }
}

bool isSeparator(QChar c)
{
    return c == u',' || c.isSpace();
}

bool isAlphanumeric(char32_t scalar)
{
    return QChar::isLetterOrNumber(scalar) || QChar::isMark(scalar);
}

// Combining marks that only decorate a letter (accents, cedillas, rings); removed after decomposition.
bool isDiacritic(char32_t scalar)
{
    return (scalar >= 0x0300 && scalar <= 0x036F) || (scalar >= 0x1AB0 && scalar <= 0x1AFF)
        || (scalar >= 0x1DC0 && scalar <= 0x1DFF) || (scalar >= 0x20D0 && scalar <= 0x20FF)
        || (scalar >= 0xFE20 && scalar <= 0xFE2F);
}

// Letters whose stroke does not decompose but is a diacritic all the same (Ørsted, Łódź, Đorđe).
char32_t withoutStroke(char32_t scalar)
{
    switch (scalar) {
    case U'ø':
        return U'o';
    case U'ł':
        return U'l';
    case U'đ':
        return U'd';
    case U'ħ':
        return U'h';
    case U'ŧ':
        return U't';
    default:
        return scalar;
    }
}

bool isASCII(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; });
}

} // namespace

// Compatibility decomposition turns full-width and other variant forms into their ordinary letters and
// splits accents off so that they can be dropped.
QString folded(const QString &text)
{
    if (isASCII(text))
        return text.toLower();
    const QList<uint> scalars = text.normalized(QString::NormalizationForm_KD).toCaseFolded().toUcs4();
    std::u32string kept;
    kept.reserve(scalars.size());
    for (const uint scalar : scalars)
        if (!isDiacritic(scalar))
            kept.push_back(withoutStroke(scalar));
    return QString::fromUcs4(kept.data(), qsizetype(kept.size())).normalized(QString::NormalizationForm_C);
}

namespace {

// Words of a key, which are separated by single spaces.
QStringList wordsOf(const QString &key)
{
    return key.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QString withoutSpaces(QString text)
{
    return text.remove(QLatin1Char(' '));
}

// The shorter word list occurs in the longer one as a run of whole words and identifies something:
// shorter, not only generic words, and at least 4 characters.
bool isWordRun(const QStringList &shorter, const QStringList &longer)
{
    if (shorter.isEmpty() || shorter.size() >= longer.size())
        return false;
    const auto &common = generic();
    if (std::all_of(shorter.cbegin(), shorter.cend(), [&](const QString &word) { return common.contains(word); }))
        return false;
    if (Graphemes::count(shorter.join(QString()), 4) < 4)
        return false;
    return std::search(longer.cbegin(), longer.cend(), shorter.cbegin(), shorter.cend()) != longer.cend();
}

// Where the trailing legal form (with the commas and blanks before it) starts, or -1 when the text
// does not end in one. The expression only ever matches at the end, so it is tried on the last few
// characters and the run of separators before a match is then followed back by hand: searching the
// whole of a long answer would try every start in a long run of blanks.
qsizetype trailingLegalFormStart(const QString &text)
{
    const qsizetype tailStart = std::max<qsizetype>(0, text.size() - longestLegalForm - 1);
    const QRegularExpressionMatch found = trailingLegalForm().match(text.mid(tailStart));
    if (!found.hasMatch())
        return -1;
    qsizetype start = tailStart + found.capturedStart();
    while (start > 0 && isSeparator(text[start - 1]))
        --start;
    return start;
}

// "BANK OF AMERICA" -> "Bank Of America": each blank-separated word capitalised, the rest lower case.
QString capitalized(const QString &text)
{
    QString result = text.toLower();
    bool wordStart = true;
    for (qsizetype i = 0; i < result.size(); ++i) {
        const QChar c = result[i];
        if (c.isSpace()) {
            wordStart = true;
        } else if (wordStart) {
            wordStart = false;
            if (c.isHighSurrogate() && i + 1 < result.size() && result[i + 1].isLowSurrogate()) {
                const QString upper = result.mid(i, 2).toUpper();
                result.replace(i, 2, upper);
                i += upper.size() - 1;
            } else if (!c.isSurrogate()) {
                const QString upper = QString(c).toUpper();
                result.replace(i, 1, upper);
                i += upper.size() - 1;
            }
        }
    }
    return result;
}

} // namespace

QString key(const QString &name)
{
    QString text = folded(name);
    text.replace(QLatin1Char('&'), QStringLiteral(" and "));
    text.remove(QLatin1Char('.'));
    text.remove(QLatin1Char('\''));
    text.remove(QChar(0x2019));

    // Every scalar that is not a letter, mark or digit becomes a space; a surrogate pair is one scalar.
    QString spaced;
    spaced.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            const bool keep = isAlphanumeric(QChar::surrogateToUcs4(c, text[i + 1]));
            spaced.append(keep ? QStringView(text).mid(i, 2) : QStringView(u" "));
            ++i;
        } else {
            spaced.append(!c.isSurrogate() && isAlphanumeric(c.unicode()) ? c : QChar(u' '));
        }
    }

    QStringList words = wordsOf(spaced);
    if (words.size() > 1 && words.first() == u"the")
        words.removeFirst();
    const auto &suffixes = legalSuffixes();
    while (words.size() > 1 && suffixes.contains(words.last()))
        words.removeLast();
    return words.join(QLatin1Char(' '));
}

std::optional<QString> clean(const QString &answer)
{
    qsizetype begin = 0;
    qsizetype end = answer.size();
    while (begin < end && isTrimmed(answer[begin]))
        ++begin;
    while (end > begin && isTrimmed(answer[end - 1]))
        --end;
    QString text = answer.mid(begin, end - begin);

    if (nonAnswers().contains(text.toLower()) || key(text).isEmpty())
        return std::nullopt;

    for (qsizetype start = trailingLegalFormStart(text); start > 0; start = trailingLegalFormStart(text))
        text.truncate(start);

    if (text == text.toUpper()) {
        const qsizetype length = Graphemes::count(text, 9);
        if (length >= 6 && (text.contains(QLatin1Char(' ')) || length >= 9))
            text = capitalized(text);
    }

    if (text.isEmpty())
        return std::nullopt;
    return Graphemes::left(text, 80);
}

std::optional<std::int64_t> match(
    const QString &name, const std::vector<Organization> &organizations, const Aliases &aliases)
{
    const QString wanted = key(name);
    if (wanted.isEmpty())
        return std::nullopt;
    if (const auto alias = aliases.constFind(wanted); alias != aliases.cend())
        return *alias;

    std::vector<QString> keys;
    keys.reserve(organizations.size());
    for (const Organization &organization : organizations)
        keys.push_back(key(organization.name));

    for (std::size_t i = 0; i < keys.size(); ++i)
        if (keys[i] == wanted)
            return organizations[i].id;

    const QString compact = withoutSpaces(wanted);
    for (std::size_t i = 0; i < keys.size(); ++i)
        if (withoutSpaces(keys[i]) == compact)
            return organizations[i].id;

    const QStringList words = wordsOf(wanted);
    std::optional<std::int64_t> candidate;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const QStringList theirs = wordsOf(keys[i]);
        const bool run = theirs.size() < words.size() ? isWordRun(theirs, words) : isWordRun(words, theirs);
        if (!run)
            continue;
        if (candidate)
            return std::nullopt; // two candidates: never guess
        candidate = organizations[i].id;
    }
    return candidate;
}

} // namespace OrgMatching
