#include "cli/OrganizationCommands.h"

#include "cli/CatalogueCommand.h"
#include "cli/CliOutput.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString quoted(const QString &name)
{
    return QStringLiteral("“") + name + QStringLiteral("”");
}

// Parses `command FOLDER NAMES…` with exactly `names` names after the folder, then opens the folder.
// Gives the exit status when it can't go on.
std::optional<int> start(
    const QStringList &arguments, const QString &usage, int names, Library &library, QStringList &positional)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n') + usage);
        return ExitStatus::usage;
    }
    positional = parser.positionalArguments();
    if (positional.size() != names + 1) {
        printErr(usage);
        return ExitStatus::usage;
    }
    return CatalogueCommand::open(library, positional.takeFirst());
}

} // namespace

int runOrganizationsCommand(const QStringList &arguments)
{
    const QString usage = QStringLiteral("Usage: vellumark-cli organizations FOLDER [--json]\n");
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print JSON."));
    parser.addOption(json);
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n') + usage);
        return ExitStatus::usage;
    }
    if (parser.positionalArguments().size() != 1) {
        printErr(usage);
        return ExitStatus::usage;
    }
    Library library;
    if (const std::optional<int> status = CatalogueCommand::open(library, parser.positionalArguments().first()))
        return *status;
    if (parser.isSet(json)) {
        QJsonArray array;
        for (const Organization &organization : library.organizations())
            array.append(QJsonObject { { QStringLiteral("id"), qint64(organization.id) },
                { QStringLiteral("name"), organization.name },
                { QStringLiteral("documentCount"), organization.documentCount } });
        printOut(QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact)) + QLatin1Char('\n'));
    } else {
        QString out;
        for (const Organization &organization : library.organizations())
            out += organization.name + QLatin1Char('\t') + QString::number(organization.documentCount)
                + QLatin1Char('\n');
        printOut(out);
    }
    return ExitStatus::success;
}

int runRenameOrganizationCommand(const QStringList &arguments)
{
    Library library;
    QStringList names;
    if (const std::optional<int> status = start(
            arguments, QStringLiteral("Usage: vellumark-cli rename-organization FOLDER OLD NEW\n"), 2, library, names))
        return *status;
    const std::optional<Organization> organization = CatalogueCommand::findOrganization(library, names[0]);
    if (!organization)
        return ExitStatus::failed;
    const std::optional<QString> name = CatalogueCommand::parseOrganizationName(names[1]);
    if (!name)
        return ExitStatus::failed;
    // The catalogue compares names ignoring case; a clash with another organization merges into it.
    std::optional<QString> other;
    for (const Organization &existing : library.organizations()) {
        if (existing.id != organization->id && existing.name.compare(*name, Qt::CaseInsensitive) == 0)
            other = existing.name;
    }
    if (!CatalogueCommand::runEdit(library, [&] { return library.renameOrganization(organization->id, names[1]); }))
        return ExitStatus::failed;
    printOut(other ? QStringLiteral("Merged ") + quoted(organization->name) + QStringLiteral(" into ") + quoted(*other)
                + QStringLiteral(".\n")
                   : QStringLiteral("Renamed ") + quoted(organization->name) + QStringLiteral(" to ") + quoted(*name)
                + QStringLiteral(".\n"));
    return ExitStatus::success;
}

int runMergeOrganizationCommand(const QStringList &arguments)
{
    Library library;
    QStringList names;
    if (const std::optional<int> status = start(arguments,
            QStringLiteral("Usage: vellumark-cli merge-organization FOLDER SOURCE TARGET\n"), 2, library, names))
        return *status;
    const std::optional<Organization> source = CatalogueCommand::findOrganization(library, names[0]);
    if (!source)
        return ExitStatus::failed;
    const std::optional<Organization> target = CatalogueCommand::findOrganization(library, names[1]);
    if (!target)
        return ExitStatus::failed;
    if (source->id == target->id) {
        printErr(quoted(names[0]) + QStringLiteral(" and ") + quoted(names[1])
            + QStringLiteral(" are the same organization.\n"));
        return ExitStatus::failed;
    }
    if (!CatalogueCommand::runEdit(library, [&] { return library.mergeOrganization(source->id, target->id); }))
        return ExitStatus::failed;
    printOut(QStringLiteral("Merged ") + quoted(source->name) + QStringLiteral(" into ") + quoted(target->name)
        + QStringLiteral(".\n"));
    return ExitStatus::success;
}

int runDeleteOrganizationCommand(const QStringList &arguments)
{
    Library library;
    QStringList names;
    if (const std::optional<int> status
        = start(arguments, QStringLiteral("Usage: vellumark-cli delete-organization FOLDER NAME\n"), 1, library, names))
        return *status;
    const std::optional<Organization> organization = CatalogueCommand::findOrganization(library, names[0]);
    if (!organization)
        return ExitStatus::failed;
    if (!CatalogueCommand::runEdit(library, [&] { return library.deleteOrganization(organization->id); }))
        return ExitStatus::failed;
    printOut(QStringLiteral("Deleted ") + quoted(organization->name) + QStringLiteral(". Scans left without an ")
        + QStringLiteral("organization: ") + QString::number(organization->documentCount) + QStringLiteral(".\n"));
    return ExitStatus::success;
}
