#include "extract/Instructions.h"

#include "core/DocumentKind.h"
#include "core/Graphemes.h"
#include "extract/PageFacts.h"

#include <QRegularExpression>
#include <QSysInfo>
#include <QTextBoundaryFinder>

const QString &Extractor::defaultInstructions()
{
    static const QString text = QStringLiteral(
        "You file scanned paper mail and documents for a household. You get the OCR text of one page of a scanned "
        "document (which can contain recognition errors) and say who the document is from, what kind of document it "
        "is, and its date. Use only the page's text.\n\n"
        "Use the organization's short, common name, the way a person would label a folder: \"Chase\" rather than "
        "\"JPMorgan Chase Bank, N.A.\", \"IRS\" rather than \"Department of the Treasury Internal Revenue Service\". "
        "Look at letterheads, logos, return addresses, and \"Member FDIC\"-style footers. A payment processor or P.O. "
        "box is not the organization; the company being paid is. On recorded real-estate documents (deeds, deeds of "
        "trust, reconveyances), the \"Recording requested by\" and \"When recorded mail to\" blocks name a title or "
        "escrow company that only handled the recording: use the lender, trustee, or county recorder the document is "
        "from instead.");
    return text;
}

QString Extractor::instructions(const std::optional<QString> &base, const QStringList &knownOrganizations)
{
    const QString custom = base ? base->trimmed() : QString();
    QString text = custom.isEmpty() ? defaultInstructions() : custom;
    if (knownOrganizations.isEmpty())
        return text;
    text += u"\n\nOrganizations already on file:\n";
    for (qsizetype i = 0; i < knownOrganizations.size(); ++i) {
        if (i > 0)
            text += u'\n';
        text += u"- " + knownOrganizations.at(i);
    }
    text += u"\n\nThe goal is a small set of organizations, so if the document comes from one of these (including a "
            u"division, product, subsidiary, or a different spelling of it), answer with that exact name from the "
            u"list. Only give a new name if none of them fit.";
    return text;
}

const QString &Extractor::plainTextFormat()
{
    static const QString text
        = u"Answer with exactly these five lines, each starting with its label, and nothing else:\n"
          u"First page: yes or no (is this the document's first page, with letterhead or the addressee's address?)\n"
          u"Type: one of "
        + DocumentKind::all().join(u", ")
        + u"\nOrganization: the name, or none\n"
          u"Date label: the words printed next to the document's date, or none\n"
          u"Date: YYYY-MM-DD as printed on this page, or none\n"
          u"\n"
          u"For example:\n"
          u"First page: yes\n"
          u"Type: Utility bill\n"
          u"Organization: PG&E\n"
          u"Date label: Statement Date\n"
          u"Date: 2024-03-12";
    return text;
}

QString Extractor::pagePrompt(const QString &today, const std::optional<Similar> &similar, qint64 pageIndex,
    qint64 pageCount, const QString &pageText, qsizetype textLimit)
{
    QString prompt = u"Today is " + today + u".\n";
    if (similar)
        prompt += u"This scan looks like another one already filed under \u201C" + similar->organization
            + u"\u201D; use that name if it is from the same organization.\n";
    if (pageCount >= 2)
        prompt += u"This is page " + QString::number(pageIndex + 1) + u" of " + QString::number(pageCount)
            + u" of one scanned document; the pages may be out of order.\n";
    prompt += u"\nOCR text of this page:\n" + Graphemes::left(pageText, textLimit);
    return prompt;
}

namespace {
// At least `enough` characters besides white space; a character made of a space and the marks on it
// is white space too.
bool hasEnoughText(const QString &text, int enough)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int seen = 0;
    qsizetype start = 0;
    for (qsizetype end = finder.toNextBoundary(); end != -1 && seen < enough; end = finder.toNextBoundary()) {
        if (!text.at(start).isSpace())
            ++seen;
        start = end;
    }
    return seen >= enough;
}
} // namespace

std::vector<int> Extractor::pagesToRead(const QStringList &pages)
{
    std::vector<int> qualifying;
    for (qsizetype i = 0; i < pages.size(); ++i)
        if (hasEnoughText(pages.at(i), 40))
            qualifying.push_back(int(i));
    if (qualifying.size() <= std::size_t(pagesReadPerScan))
        return qualifying;
    std::vector<int> chosen(qualifying.begin(), qualifying.begin() + (pagesReadPerScan - 2));
    chosen.insert(chosen.end(), qualifying.end() - 2, qualifying.end());
    return chosen;
}

QString Extractor::serverAddress(const QUrl &server)
{
    QString host = server.host();
    if (host.contains(u':'))
        host = u'[' + host + u']';
    const int port = server.port(server.scheme() == u"https" ? 443 : 80);
    return host + u':' + QString::number(port);
}

QString Extractor::kernelVersionNumbers(const QString &kernelVersion)
{
    static const QRegularExpression leading(QStringLiteral("^(\\d+)(?:\\.(\\d+))?(?:\\.(\\d+))?"));
    const QRegularExpressionMatch match = leading.match(kernelVersion);
    QStringList numbers;
    for (int group = 1; group <= 3; ++group) {
        const QString number = match.captured(group);
        numbers.append(number.isEmpty() ? QStringLiteral("0") : number);
    }
    return numbers.join(u'.');
}

QString Extractor::systemDescription(const QString &modelName, ServerKind server, const QUrl &serverUrl,
    qint64 contextTokens, const QString &kernelVersion)
{
    return modelName + u" on " + serverKindName(server) + u" at " + serverAddress(serverUrl) + u", context "
        + QString::number(contextTokens) + u" tokens, Linux " + kernelVersionNumbers(kernelVersion)
        + u", greedy sampling";
}

QString Extractor::systemDescription(
    const QString &modelName, ServerKind server, const QUrl &serverUrl, qint64 contextTokens)
{
    return systemDescription(modelName, server, serverUrl, contextTokens, QSysInfo::kernelVersion());
}

std::optional<qint64> Extractor::tokens(
    TokenCounter *counter, const QString &instructions, const QString &prompt, bool schema)
{
    if (!counter)
        return std::nullopt;
    const std::optional<qint64> forInstructions = counter->count(instructions);
    if (!forInstructions)
        return std::nullopt;
    const std::optional<qint64> forPrompt = counter->count(prompt);
    if (!forPrompt)
        return std::nullopt;
    qint64 total = *forInstructions + *forPrompt;
    if (schema) {
        const std::optional<qint64> forSchema = counter->count(QString::fromUtf8(PageFacts::schema()));
        if (!forSchema)
            return std::nullopt;
        total += *forSchema;
    }
    return total;
}
