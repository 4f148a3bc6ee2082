#include "cli/ListCommand.h"

#include "cli/CatalogueCommand.h"
#include "cli/CliOutput.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

const QString listUsage = QStringLiteral(
    "Usage: vellumark-cli list FOLDER [--view all|needs-review|processing|problems] [--organization NAME]\n"
    "                          [--year YYYY] [--type TYPE] [--search WORDS] [--json]\n");
const QString searchUsage = QStringLiteral("Usage: vellumark-cli search FOLDER WORDS... [--json]\n");

template <typename T> QJsonValue optionalValue(const std::optional<T> &value)
{
    if (!value)
        return QJsonValue();
    if constexpr (std::is_same_v<T, std::int64_t>)
        return QJsonValue(qint64(*value));
    else
        return QJsonValue(*value);
}

QString field(const std::optional<QString> &value)
{
    return value && !value->isEmpty() ? *value : QStringLiteral("-");
}

void print(const std::vector<ScanDocument> &documents, bool json)
{
    if (json) {
        QJsonArray array;
        for (const ScanDocument &document : documents)
            array.append(documentJson(document));
        printOut(QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact)) + QLatin1Char('\n'));
        return;
    }
    if (documents.empty()) {
        printErr(QStringLiteral("No scans match this filter.\n"));
        return;
    }
    QString out;
    for (const ScanDocument &document : documents) {
        out += field(document.date) + QLatin1Char('\t') + field(document.organizationName) + QLatin1Char('\t')
            + field(document.kind) + QLatin1Char('\t') + document.path + QLatin1Char('\t')
            + (document.pageCount ? QString::number(*document.pageCount) : QStringLiteral("-")) + QLatin1Char('\t')
            + statusText(document) + QLatin1Char('\n');
    }
    printOut(out);
}

// Sets the search text and waits for its result.
void search(Library &library, const QString &words)
{
    QEventLoop loop;
    QObject::connect(&library, &Library::searchMatchesChanged, &loop, &QEventLoop::quit);
    library.setSearchText(words);
    if (!words.trimmed().isEmpty() && !library.searchMatches())
        loop.exec();
}

int listWithSearch(const QString &folder, const std::optional<SidebarItem> &view,
    const std::optional<QString> &organization, const std::optional<int> &year, const std::optional<QString> &type,
    const std::optional<QString> &words, bool json)
{
    // A command searches at once; there is no typing to wait for.
    LibraryOptions options;
    options.searchDelay = std::chrono::milliseconds(0);
    Library library(options);
    if (const std::optional<int> status = CatalogueCommand::open(library, folder))
        return *status;
    if (organization) {
        const std::optional<Organization> found = CatalogueCommand::findOrganization(library, *organization);
        if (!found)
            return ExitStatus::failed;
        library.setSidebar(SidebarItem::organization(found->id));
    } else if (view) {
        library.setSidebar(*view);
    }
    library.setYearFilter(year);
    library.setKindFilter(type);
    if (words)
        search(library, *words);
    print(library.visibleDocuments(), json);
    return ExitStatus::success;
}

} // namespace

QJsonObject documentJson(const ScanDocument &document)
{
    QJsonArray rotations;
    for (const int rotation : document.pageRotations)
        rotations.append(rotation);
    return QJsonObject {
        { QStringLiteral("id"), qint64(document.id) },
        { QStringLiteral("path"), document.path },
        { QStringLiteral("fileSize"), qint64(document.fileSize) },
        { QStringLiteral("fileModified"), document.fileModified.toString(Qt::ISODateWithMs) },
        { QStringLiteral("pageCount"), optionalValue(document.pageCount) },
        { QStringLiteral("missing"), document.missing },
        { QStringLiteral("ocrStatus"), rawValue(document.ocrStatus) },
        { QStringLiteral("extractStatus"), rawValue(document.extractStatus) },
        { QStringLiteral("error"), optionalValue(document.error) },
        { QStringLiteral("organizationID"), optionalValue(document.organizationID) },
        { QStringLiteral("organizationName"), optionalValue(document.organizationName) },
        { QStringLiteral("date"), optionalValue(document.date) },
        { QStringLiteral("modelOrganization"), optionalValue(document.modelOrganization) },
        { QStringLiteral("addedAt"), document.addedAt.toString(Qt::ISODateWithMs) },
        { QStringLiteral("extractLog"), optionalValue(document.extractLog) },
        { QStringLiteral("similarID"), optionalValue(document.similarID) },
        { QStringLiteral("similarPath"), optionalValue(document.similarPath) },
        { QStringLiteral("kind"), optionalValue(document.kind) },
        { QStringLiteral("pageRotations"), rotations },
    };
}

QString statusText(const ScanDocument &document)
{
    if (document.missing)
        return QStringLiteral("File missing");
    if (document.ocrStatus == OCRStatus::failed)
        return QStringLiteral("Unreadable");
    if (document.ocrStatus == OCRStatus::pending)
        return QStringLiteral("Waiting for text");
    switch (document.extractStatus) {
    case ExtractStatus::manual:
        return QStringLiteral("Edited");
    case ExtractStatus::failed:
        return QStringLiteral("Model failed");
    case ExtractStatus::done:
        return document.needsReview() ? QStringLiteral("Needs review") : QStringLiteral("Done");
    case ExtractStatus::pending:
        break;
    }
    return QStringLiteral("Waiting for the model");
}

int runListCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    const QCommandLineOption view(QStringLiteral("view"), QStringLiteral("Which scans."), QStringLiteral("VIEW"));
    const QCommandLineOption organization(
        QStringLiteral("organization"), QStringLiteral("Scans filed under it."), QStringLiteral("NAME"));
    const QCommandLineOption year(QStringLiteral("year"), QStringLiteral("Scans dated in it."), QStringLiteral("YYYY"));
    const QCommandLineOption type(
        QStringLiteral("type"), QStringLiteral("Scans of that type."), QStringLiteral("TYPE"));
    const QCommandLineOption words(
        QStringLiteral("search"), QStringLiteral("Scans with every word."), QStringLiteral("WORDS"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print JSON."));
    parser.addOptions({ view, organization, year, type, words, json });
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n') + listUsage);
        return ExitStatus::usage;
    }
    if (parser.positionalArguments().size() != 1) {
        printErr(listUsage);
        return ExitStatus::usage;
    }

    std::optional<SidebarItem> sidebar;
    if (parser.isSet(view)) {
        static const std::map<QString, SidebarItem> views = {
            { QStringLiteral("all"), SidebarItem::all() },
            { QStringLiteral("needs-review"), SidebarItem::needsReview() },
            { QStringLiteral("processing"), SidebarItem::processing() },
            { QStringLiteral("problems"), SidebarItem::problems() },
        };
        const auto found = views.find(parser.value(view));
        if (found == views.end()) {
            printErr(QStringLiteral("“") + parser.value(view)
                + QStringLiteral("” is not a view; use all, needs-review, processing or problems.\n"));
            return ExitStatus::usage;
        }
        if (parser.isSet(organization)) {
            printErr(QStringLiteral("--view and --organization can't be combined.\n"));
            return ExitStatus::usage;
        }
        sidebar = found->second;
    }
    std::optional<int> yearFilter;
    if (parser.isSet(year)) {
        static const QRegularExpression fourDigits(QStringLiteral("^[0-9]{4}$"));
        if (!fourDigits.match(parser.value(year)).hasMatch()) {
            printErr(QStringLiteral("“") + parser.value(year) + QStringLiteral("” is not a year; write it as YYYY.\n"));
            return ExitStatus::usage;
        }
        yearFilter = parser.value(year).toInt();
    }
    std::optional<QString> typeFilter;
    if (parser.isSet(type)) {
        typeFilter = CatalogueCommand::parseType(parser.value(type));
        if (!typeFilter)
            return ExitStatus::usage;
    }
    return listWithSearch(parser.positionalArguments().first(), sidebar,
        parser.isSet(organization) ? std::optional(parser.value(organization)) : std::nullopt, yearFilter, typeFilter,
        parser.isSet(words) ? std::optional(parser.value(words)) : std::nullopt, parser.isSet(json));
}

int runSearchCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    parser.addPositionalArgument(QStringLiteral("WORDS"), QStringLiteral("Words every scan found has."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print JSON."));
    parser.addOption(json);
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n') + searchUsage);
        return ExitStatus::usage;
    }
    QStringList positional = parser.positionalArguments();
    if (positional.size() < 2 || positional.mid(1).join(QLatin1Char(' ')).trimmed().isEmpty()) {
        printErr(searchUsage);
        return ExitStatus::usage;
    }
    const QString folder = positional.takeFirst();
    return listWithSearch(folder, std::nullopt, std::nullopt, std::nullopt, std::nullopt,
        positional.join(QLatin1Char(' ')), parser.isSet(json));
}
