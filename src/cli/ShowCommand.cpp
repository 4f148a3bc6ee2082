#include "cli/ShowCommand.h"

#include "cli/CatalogueCommand.h"
#include "cli/CliOutput.h"
#include "cli/ListCommand.h"
#include "library/BlockingWait.h"
#include "library/Library.h"

#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString factsText(const ScanDocument &document)
{
    const QString none = QStringLiteral("—");
    QString pages = document.pageCount ? QString::number(*document.pageCount) : none;
    QStringList turned;
    for (std::size_t index = 0; index < document.pageRotations.size(); ++index) {
        if (document.pageRotations[index] != 0)
            turned << QStringLiteral("page %1 turned %2°").arg(index + 1).arg(document.pageRotations[index]);
    }
    if (!turned.isEmpty())
        pages += QStringLiteral(" (") + turned.join(QStringLiteral(", ")) + QLatin1Char(')');

    QString text;
    const auto line = [&text](const QString &label, const QString &value) {
        text += label + QStringLiteral(": ") + value + QLatin1Char('\n');
    };
    line(QStringLiteral("File"), document.path);
    line(QStringLiteral("ID"), QString::number(document.id));
    line(QStringLiteral("Status"), statusText(document));
    line(QStringLiteral("Organization"), document.organizationName.value_or(none));
    line(QStringLiteral("Type"), document.kind.value_or(none));
    line(QStringLiteral("Date"), document.date.value_or(none));
    line(QStringLiteral("Pages"), pages);
    if (document.modelOrganization)
        line(QStringLiteral("Model's organization"), *document.modelOrganization);
    if (document.similarPath)
        line(QStringLiteral("Looks like"), *document.similarPath);
    if (document.error)
        line(QStringLiteral("Error"), *document.error);
    return text;
}

} // namespace

int runShowCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows one scan: its facts, its log and its transcript."));
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    parser.addPositionalArgument(
        QStringLiteral("PATH-OR-ID"), QStringLiteral("The scan: its id, or its path in the folder."));
    const QCommandLineOption json(
        QStringLiteral("json"), QStringLiteral("Print the record and the transcript as JSON."));
    const QCommandLineOption transcript(
        QStringLiteral("transcript"), QStringLiteral("Print every request to the model and its answer."));
    parser.addOptions({ json, transcript });
    if (!parser.parse(arguments) || parser.positionalArguments().size() != 2) {
        printErr(parser.errorText().isEmpty()
                ? QStringLiteral("Usage: vellumark-cli show FOLDER PATH-OR-ID [--json] [--transcript]\n")
                : parser.errorText() + QLatin1Char('\n'));
        return ExitStatus::usage;
    }
    const QString folder = parser.positionalArguments().at(0);
    const QString wanted = parser.positionalArguments().at(1);

    Library library;
    if (const std::optional<int> status = CatalogueCommand::open(library, folder))
        return *status;
    const std::optional<DocumentIDSet> ids = CatalogueCommand::findScans(library, { wanted });
    if (!ids)
        return ExitStatus::failed;
    const ScanDocument document = library.documentsByID().at(*ids->begin());
    const std::optional<Extractor::Trace> trace = blockingWait(library.trace(document.id));

    if (parser.isSet(json)) {
        QJsonObject object { { QStringLiteral("document"), documentJson(document) } };
        const std::optional<QByteArray> encoded = trace ? trace->encode() : std::nullopt;
        const QJsonDocument parsed = encoded ? QJsonDocument::fromJson(*encoded) : QJsonDocument();
        object.insert(QStringLiteral("transcript"), parsed.isObject() ? QJsonValue(parsed.object()) : QJsonValue());
        printOut(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented)));
        return ExitStatus::success;
    }

    printOut(factsText(document));
    if (document.extractLog && !document.extractLog->isEmpty())
        printOut(QStringLiteral("\nLog:\n") + *document.extractLog + QLatin1Char('\n'));
    if (parser.isSet(transcript)) {
        if (trace)
            printOut(QStringLiteral("\nTranscript:\n") + trace->fullText() + QLatin1Char('\n'));
        else
            printOut(QStringLiteral("\nNo transcript: the model hasn't been asked about this scan.\n"));
    }
    return ExitStatus::success;
}
