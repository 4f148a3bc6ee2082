#include "cli/StatusCommand.h"

#include "cli/CliOutput.h"
#include "library/BlockingWait.h"
#include "library/SerialExecutor.h"
#include "store/ScanStore.h"

#include <QCommandLineParser>
#include <QCoro/QCoroTask>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

CatalogueStatus catalogueStatus(ScanStore &store)
{
    CatalogueStatus status;
    status.schemaVersion = store.schemaVersion();
    for (const ScanDocument &doc : store.documents()) {
        if (!doc.missing)
            ++status.scans;
        if (doc.missing || doc.ocrStatus == OCRStatus::failed || doc.extractStatus == ExtractStatus::failed)
            ++status.problems;
    }
    const auto pending = store.pendingCounts();
    status.pendingText = pending.ocr;
    status.pendingExtraction = pending.extract;
    return status;
}

namespace {
QCoro::Task<CatalogueStatus> readStatus(QString folder)
{
    auto store = co_await Serial<ScanStore>::make(folder);
    co_return co_await store->run([](ScanStore &s) { return catalogueStatus(s); });
}

QString folderName(const QString &folder)
{
    const QString name = QFileInfo(QDir::cleanPath(QDir(folder).absolutePath())).fileName();
    return name.isEmpty() ? folder : name;
}
} // namespace

int runStatusCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows the state of a scans folder's catalogue."));
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print JSON."));
    parser.addOption(json);
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n'));
        return ExitStatus::usage;
    }
    if (parser.positionalArguments().size() != 1) {
        printErr(QStringLiteral("Usage: vellumark-cli status FOLDER [--json]\n"));
        return ExitStatus::usage;
    }
    const QString folder = parser.positionalArguments().first();

    CatalogueStatus status;
    try {
        status = blockingWait(readStatus(folder));
    } catch (const Database::Error &error) {
        printErr(QStringLiteral("Couldn't open ") + ScanStore::fileName + QStringLiteral(" in ") + folderName(folder)
            + QStringLiteral(": ") + error.message() + QLatin1Char('\n'));
        return ExitStatus::cannotOpen;
    }

    if (parser.isSet(json)) {
        const QJsonObject object {
            { QStringLiteral("schemaVersion"), status.schemaVersion },
            { QStringLiteral("scans"), status.scans },
            { QStringLiteral("pendingText"), status.pendingText },
            { QStringLiteral("pendingExtraction"), status.pendingExtraction },
            { QStringLiteral("problems"), status.problems },
        };
        printOut(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) + QLatin1Char('\n'));
    } else {
        printOut(QStringLiteral("Schema version: %1\nScans: %2\nWaiting for text: %3\nWaiting for the model: %4\n"
                                "Problems: %5\n")
                     .arg(status.schemaVersion)
                     .arg(status.scans)
                     .arg(status.pendingText)
                     .arg(status.pendingExtraction)
                     .arg(status.problems));
    }
    return ExitStatus::success;
}
