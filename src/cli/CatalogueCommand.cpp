#include "cli/CatalogueCommand.h"

#include "cli/CliOutput.h"
#include "core/DocDate.h"
#include "core/DocumentKind.h"
#include "core/OrgMatching.h"
#include "library/BlockingWait.h"

#include <QDir>
#include <QFileInfo>

namespace {
// The path relative to the folder, or nothing when it lies outside.
QString insideFolder(const QString &folder, const QString &path)
{
    const QString prefix = QDir::cleanPath(folder) + QLatin1Char('/');
    const QString clean = QDir::cleanPath(path);
    return clean.startsWith(prefix) ? clean.mid(prefix.size()) : QString();
}
} // namespace

namespace CatalogueCommand {

std::optional<int> open(Library &library, const QString &folder)
{
    if (!QFileInfo(folder).isDir()) {
        printErr(QStringLiteral("No folder “") + folder + QStringLiteral("”.\n"));
        return ExitStatus::cannotOpen;
    }
    if (!blockingWait(library.openWithoutWork(folder))) {
        printErr(library.openError().value_or(QStringLiteral("Couldn't open ") + folder) + QLatin1Char('\n'));
        return ExitStatus::cannotOpen;
    }
    return std::nullopt;
}

std::optional<DocumentIDSet> findScans(const Library &library, const QStringList &references)
{
    std::map<QString, std::int64_t> byPath;
    for (const auto &[id, document] : library.documentsByID())
        byPath.emplace(document.path, id);
    const QDir folder(library.folder().value_or(QString()));

    DocumentIDSet ids;
    for (const QString &reference : references) {
        bool isNumber = false;
        const std::int64_t id = reference.toLongLong(&isNumber);
        if (isNumber && library.documentsByID().contains(id)) {
            ids.insert(id);
            continue;
        }
        // A path in the catalogue's own form, or a file given from here that lies inside the folder
        // (whether or not it is still there).
        QStringList forms { QDir::cleanPath(reference) };
        const QFileInfo file(reference);
        forms << insideFolder(folder.path(), file.absoluteFilePath());
        if (file.exists())
            forms << insideFolder(folder.canonicalPath(), file.canonicalFilePath());
        std::optional<std::int64_t> found;
        for (const QString &form : forms) {
            if (const auto named = byPath.find(form); !found && named != byPath.end())
                found = named->second;
        }
        if (!found) {
            printErr(QStringLiteral("No scan “") + reference + QStringLiteral("” in the catalogue of ") + folder.path()
                + QStringLiteral(".\n"));
            return std::nullopt;
        }
        ids.insert(*found);
    }
    return ids;
}

std::optional<Organization> findOrganization(const Library &library, const QString &name)
{
    std::optional<Organization> found;
    for (const Organization &organization : library.organizations()) {
        if (organization.name == name)
            return organization;
        if (!found && organization.name.compare(name, Qt::CaseInsensitive) == 0)
            found = organization;
    }
    if (!found)
        printErr(QStringLiteral("No organization is called “") + name + QStringLiteral("”.\n"));
    return found;
}

std::optional<QString> parseType(const QString &text)
{
    if (const std::optional<QString> kind = DocumentKind::match(text))
        return kind;
    printErr(QStringLiteral("“") + text + QStringLiteral("” is not a document type. The types are:\n  ")
        + DocumentKind::all().join(QStringLiteral("\n  ")) + QLatin1Char('\n'));
    return std::nullopt;
}

std::optional<QDate> parseDate(const QString &text)
{
    const QDate date = DocDate::parse(text);
    if (date.isValid())
        return date;
    printErr(
        QStringLiteral("“") + text + QStringLiteral("” is not a date; write it as YYYY-MM-DD, such as 2024-05-01.\n"));
    return std::nullopt;
}

std::optional<QString> parseOrganizationName(const QString &text)
{
    if (const std::optional<QString> name = OrgMatching::clean(text))
        return name;
    printErr(QStringLiteral("“") + text + QStringLiteral("” is not a usable organization name.\n"));
    return std::nullopt;
}

bool runEdit(Library &library, const std::function<QCoro::Task<>()> &edit)
{
    std::optional<QString> failure;
    QObject scope;
    QObject::connect(&library, &Library::editFailed, &scope, [&](const QString &message) { failure = message; });
    blockingWait(edit());
    if (failure)
        printErr(QStringLiteral("Couldn't change the catalogue: ") + *failure + QLatin1Char('\n'));
    return !failure;
}

QString scans(int count)
{
    return QString::number(count) + (count == 1 ? QStringLiteral(" scan") : QStringLiteral(" scans"));
}

} // namespace CatalogueCommand
