#pragma once

#include "extract/model/LanguageModel.h"

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>
#include <vector>

// What the model is told: the instructions, the plain-text answer format, the prompt of one page,
// which pages are read at all, and the description of model and system kept with every transcript.
namespace Extractor {
// A scan already filed that looks like this one.
struct Similar {
    QString path;
    QString organization;

    bool operator==(const Similar &) const = default;
};

// Characters of page text put into a prompt unless a context overflow lowered the limit.
constexpr qsizetype pageTextLimit = 3500;
// The most pages of one scan the model is asked about.
constexpr int pagesReadPerScan = 8;

// The built-in instructions, used when a folder has no custom ones.
const QString &defaultInstructions();
// The custom instructions (trimmed) or the default when they are absent or blank, followed by the
// organizations on file, most used first, and the request to reuse their exact names.
QString instructions(const std::optional<QString> &base, const QStringList &knownOrganizations);
// The five-line answer format added to the instructions of a plain-text request.
const QString &plainTextFormat();
// The prompt for one page: today's date, the similar-scan hint, the page's place in the scan and its
// text cut to `textLimit` characters. `pageIndex` counts from 0.
QString pagePrompt(const QString &today, const std::optional<Similar> &similar, qint64 pageIndex, qint64 pageCount,
    const QString &pageText, qsizetype textLimit = pageTextLimit);
// The indices of the pages worth sending to the model: those with at least 40 characters besides
// white space; of more such pages than pagesReadPerScan, the first ones and the last 2.
std::vector<int> pagesToRead(const QStringList &pages);

// "host:port" of a server URL, the port filled in from the scheme when the URL has none.
QString serverAddress(const QUrl &server);
// The first three numbers of a kernel version ("6.1.0-18-amd64" gives "6.1.0"), missing ones as 0.
QString kernelVersionNumbers(const QString &kernelVersion);
// One line naming the model, the server, the context size and the system, for the transcript.
QString systemDescription(const QString &modelName, ServerKind server, const QUrl &serverUrl, qint64 contextTokens,
    const QString &kernelVersion);
// The same for the running kernel.
QString systemDescription(const QString &modelName, ServerKind server, const QUrl &serverUrl, qint64 contextTokens);

// Tokens of a request: instructions, prompt and, with `schema`, the PageFacts schema. Absent without a
// counter or when any part can't be counted. The count is only recorded, never acted on.
std::optional<qint64> tokens(TokenCounter *counter, const QString &instructions, const QString &prompt, bool schema);
} // namespace Extractor
