#include "cli/ReadCommand.h"

#include "cli/CliOutput.h"
#include "library/ReaderWorker.h"
#include "ocr/OCR.h"
#include "ocr/OcrLanguages.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

namespace {

QString asJson(const OCR::Result &result)
{
    QJsonArray pages;
    for (const OCR::Page &page : result.pages)
        pages.append(
            QJsonObject { { QStringLiteral("rotation"), page.rotation }, { QStringLiteral("text"), page.text } });
    // Written by hand so that the hash comes first, as people read it.
    return QStringLiteral("{\"sha256\":\"") + result.sha256 + QStringLiteral("\",\"pages\":")
        + QString::fromUtf8(QJsonDocument(pages).toJson(QJsonDocument::Compact)) + QStringLiteral("}\n");
}

QString asText(const OCR::Result &result)
{
    QString text;
    for (std::size_t index = 0; index < result.pages.size(); ++index) {
        const OCR::Page &page = result.pages[index];
        text += QStringLiteral("Page %1, rotation %2\n").arg(index + 1).arg(page.rotation);
        text += page.text.isEmpty() ? QStringLiteral("(no text)") : page.text;
        text += QStringLiteral("\n\n");
    }
    return text + QStringLiteral("SHA-256: ") + result.sha256 + QLatin1Char('\n');
}

} // namespace

int runReadCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Reads the text of a scanned PDF as the catalogue would."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The PDF to read."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print JSON."));
    const QCommandLineOption languages(QStringLiteral("languages"),
        QStringLiteral("Reading languages in Tesseract's form, such as eng+deu (default: the OcrLanguages setting)."),
        QStringLiteral("LANGS"));
    const QCommandLineOption timeout(QStringLiteral("timeout"),
        QStringLiteral("Seconds to wait for the file to open or for a page to be read (default: the "
                       "ReadTimeoutSeconds setting, 120)."),
        QStringLiteral("SECONDS"));
    parser.addOptions({ json, languages, timeout });
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n'));
        return ExitStatus::usage;
    }
    if (parser.positionalArguments().size() != 1) {
        printErr(
            QStringLiteral("Usage: vellumark-cli read FILE.pdf [--json] [--languages LANGS] [--timeout SECONDS]\n"));
        return ExitStatus::usage;
    }
    std::chrono::milliseconds limit = ReaderSettings::timeout();
    if (parser.isSet(timeout)) {
        bool ok = false;
        const double seconds = parser.value(timeout).toDouble(&ok);
        if (!ok || !(seconds > 0) || seconds > 1e6) {
            printErr(QStringLiteral("--timeout takes a number of seconds greater than 0\n"));
            return ExitStatus::usage;
        }
        limit = std::chrono::milliseconds(qint64(seconds * 1000));
    }
    const QString path = parser.positionalArguments().first();
    const QString chosen = parser.isSet(languages) ? parser.value(languages) : OcrLanguages::setting();

    const bool showProgress = isatty(STDERR_FILENO);
    try {
        ReaderWorker reader({ chosen, limit, ReaderSettings::memoryLimitMB() });
        const OCR::Result result = reader.recognize(path, {}, [&](int index, int count, const OCR::Page &) {
            if (showProgress && count > 1)
                printErr(QStringLiteral("\rRead page %1 of %2").arg(index + 1).arg(count));
        });
        if (showProgress && result.pages.size() > 1)
            printErr(QStringLiteral("\n"));
        printOut(parser.isSet(json) ? asJson(result) : asText(result));
    } catch (const OCR::Failure &failure) {
        if (showProgress)
            printErr(QStringLiteral("\n"));
        printErr(failure.message() + QLatin1Char('\n'));
        return ExitStatus::failed;
    }
    return ExitStatus::success;
}
