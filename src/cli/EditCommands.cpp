#include "cli/EditCommands.h"

#include "cli/CatalogueCommand.h"
#include "cli/CliOutput.h"

#include <QCommandLineParser>

namespace {

const QString setUsage = QStringLiteral(
    "Usage: vellumark-cli set FOLDER PATH-OR-ID... [--organization NAME|--no-organization] [--type TYPE|--no-type]\n"
    "                         [--date YYYY-MM-DD|--no-date]\n");

// A fact to set: not given, cleared, or set to a value.
template <typename T> struct Change {
    bool given = false;
    std::optional<T> value;
};

// Reads one pair of --NAME VALUE / --no-NAME; false (after printing) when both are given.
bool pairOf(const QCommandLineParser &parser, const QCommandLineOption &set, const QCommandLineOption &clear,
    bool &given, bool &cleared)
{
    given = parser.isSet(set) || parser.isSet(clear);
    cleared = parser.isSet(clear);
    if (parser.isSet(set) && parser.isSet(clear)) {
        printErr(QStringLiteral("--") + set.names().first() + QStringLiteral(" and --") + clear.names().first()
            + QStringLiteral(" can't be combined.\n"));
        return false;
    }
    return true;
}

// Reads one fact to change from --NAME VALUE or --no-NAME; the exit status when it can't be used.
template <typename T, typename Parse>
std::optional<int> readChange(const QCommandLineParser &parser, const QCommandLineOption &set,
    const QCommandLineOption &clear, Parse parse, Change<T> &change)
{
    bool cleared = false;
    if (!pairOf(parser, set, clear, change.given, cleared))
        return ExitStatus::usage;
    if (change.given && !cleared) {
        change.value = parse(parser.value(set));
        if (!change.value)
            return ExitStatus::failed;
    }
    return std::nullopt;
}

// Opens the folder and runs `edit` on the scans named after it; prints `done` with the count after.
int editScans(const QStringList &arguments, const QString &command,
    const std::function<QCoro::Task<>(Library &, DocumentIDSet)> &edit, const QString &done)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    parser.addPositionalArgument(QStringLiteral("PATH-OR-ID"), QStringLiteral("Scans, by path or id."));
    const QString usage = QStringLiteral("Usage: vellumark-cli ") + command + QStringLiteral(" FOLDER PATH-OR-ID...\n");
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n') + usage);
        return ExitStatus::usage;
    }
    QStringList positional = parser.positionalArguments();
    if (positional.size() < 2) {
        printErr(usage);
        return ExitStatus::usage;
    }
    Library library;
    if (const std::optional<int> status = CatalogueCommand::open(library, positional.takeFirst()))
        return *status;
    const std::optional<DocumentIDSet> ids = CatalogueCommand::findScans(library, positional);
    if (!ids)
        return ExitStatus::failed;
    if (!CatalogueCommand::runEdit(library, [&] { return edit(library, *ids); }))
        return ExitStatus::failed;
    printOut(CatalogueCommand::scans(int(ids->size())) + done + QLatin1Char('\n'));
    return ExitStatus::success;
}

} // namespace

int runSetCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    parser.addPositionalArgument(QStringLiteral("PATH-OR-ID"), QStringLiteral("Scans, by path or id."));
    const QCommandLineOption organization(
        QStringLiteral("organization"), QStringLiteral("File under it."), QStringLiteral("NAME"));
    const QCommandLineOption noOrganization(QStringLiteral("no-organization"), QStringLiteral("File under none."));
    const QCommandLineOption type(QStringLiteral("type"), QStringLiteral("The document type."), QStringLiteral("TYPE"));
    const QCommandLineOption noType(QStringLiteral("no-type"), QStringLiteral("No document type."));
    const QCommandLineOption date(
        QStringLiteral("date"), QStringLiteral("The document's date."), QStringLiteral("YYYY-MM-DD"));
    const QCommandLineOption noDate(QStringLiteral("no-date"), QStringLiteral("No date."));
    parser.addOptions({ organization, noOrganization, type, noType, date, noDate });
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n') + setUsage);
        return ExitStatus::usage;
    }
    QStringList positional = parser.positionalArguments();
    if (positional.size() < 2) {
        printErr(setUsage);
        return ExitStatus::usage;
    }

    // Everything is checked before anything changes.
    Change<QString> newOrganization, newType;
    Change<QDate> newDate;
    if (const std::optional<int> status
        = readChange(parser, organization, noOrganization, CatalogueCommand::parseOrganizationName, newOrganization))
        return *status;
    if (const std::optional<int> status = readChange(parser, type, noType, CatalogueCommand::parseType, newType))
        return *status;
    if (const std::optional<int> status = readChange(parser, date, noDate, CatalogueCommand::parseDate, newDate))
        return *status;
    if (!newOrganization.given && !newType.given && !newDate.given) {
        printErr(QStringLiteral("Nothing to set: give --organization, --type or --date (or their --no- forms).\n")
            + setUsage);
        return ExitStatus::usage;
    }

    Library library;
    if (const std::optional<int> status = CatalogueCommand::open(library, positional.takeFirst()))
        return *status;
    const std::optional<DocumentIDSet> ids = CatalogueCommand::findScans(library, positional);
    if (!ids)
        return ExitStatus::failed;
    QStringList changes;
    if (newOrganization.given) {
        if (!CatalogueCommand::runEdit(library, [&] { return library.setOrganization(*ids, newOrganization.value); }))
            return ExitStatus::failed;
        changes << QStringLiteral("organization ")
                + (newOrganization.value ? QStringLiteral("“") + *newOrganization.value + QStringLiteral("”")
                                         : QStringLiteral("none"));
    }
    if (newType.given) {
        if (!CatalogueCommand::runEdit(library, [&] { return library.setKind(*ids, newType.value); }))
            return ExitStatus::failed;
        changes << QStringLiteral("type ") + newType.value.value_or(QStringLiteral("none"));
    }
    if (newDate.given) {
        if (!CatalogueCommand::runEdit(library, [&] { return library.setDate(*ids, newDate.value); }))
            return ExitStatus::failed;
        changes << QStringLiteral("date ")
                + (newDate.value ? newDate.value->toString(Qt::ISODate) : QStringLiteral("none"));
    }
    printOut(QStringLiteral("Set ") + changes.join(QStringLiteral(", ")) + QStringLiteral(" on ")
        + CatalogueCommand::scans(int(ids->size())) + QStringLiteral(".\n"));
    return ExitStatus::success;
}

int runReextractCommand(const QStringList &arguments)
{
    return editScans(
        arguments, QStringLiteral("reextract"),
        [](Library &library, DocumentIDSet ids) { return library.reextract(std::move(ids)); },
        QStringLiteral(" will be asked about again when vellumark-cli process or the app next runs."));
}

int runRereadCommand(const QStringList &arguments)
{
    return editScans(
        arguments, QStringLiteral("reread"),
        [](Library &library, DocumentIDSet ids) { return library.rerunOCR(std::move(ids)); },
        QStringLiteral(" will be read again when vellumark-cli process or the app next runs."));
}
