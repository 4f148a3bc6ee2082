#include "cli/CliOutput.h"
#include "cli/EditCommands.h"
#include "cli/ListCommand.h"
#include "cli/ModelCommand.h"
#include "cli/OrganizationCommands.h"
#include "cli/ProcessCommand.h"
#include "cli/ReadCommand.h"
#include "cli/ShowCommand.h"
#include "cli/StatusCommand.h"
#include "ocr/EngineThreads.h"

#include <QCoreApplication>

#include <map>

namespace {
const QString usage = QStringLiteral(
    "Usage: vellumark-cli COMMAND [OPTIONS]\n"
    "\n"
    "Commands:\n"
    "  status FOLDER [--json]   Show the catalogue of a scans folder: schema version, scans, scans waiting\n"
    "                           for text or for the model, and problems.\n"
    "  model [--model-server URL] [--model NAME] [--json]\n"
    "                           Whether the local model can be used (status 3 when not), its server,\n"
    "                           model and context size.\n"
    "  process [FOLDER] [--watch] [--ignore-pause] [--no-model] [--model-server URL] [--model NAME]\n"
    "          [--workers N]\n"
    "                           Bring the catalogue up to date with the folder, read every scan that waits\n"
    "                           for its text, N at once (default: the cores, up to 4), and file it with\n"
    "                           the local model (status 3 when the model can't be used); with --watch,\n"
    "                           keep following the folder until Ctrl+C or SIGTERM, by default the folder\n"
    "                           the desktop app remembers.\n"
    "  show FOLDER PATH-OR-ID [--json] [--transcript]\n"
    "                           One scan's facts and log; --transcript adds every request to the model.\n"
    "  read FILE.pdf [--json] [--languages LANGS] [--timeout SECONDS]\n"
    "                           Read a scanned PDF as the catalogue would: each page's rotation and text,\n"
    "                           then the file's SHA-256. Fails with status 1 on a file that can't be read.\n"
    "  list FOLDER [--view all|needs-review|processing|problems] [--organization NAME] [--year YYYY]\n"
    "       [--type TYPE] [--search WORDS] [--json]\n"
    "                           The scans the app's table shows, newest date first: date, organization,\n"
    "                           type, file, pages and status, tab-separated; or a JSON array.\n"
    "  search FOLDER WORDS... [--json]\n"
    "                           The scans with every word (as the start of a word) in their text, file\n"
    "                           name, organization, date or type.\n"
    "  set FOLDER PATH-OR-ID... [--organization NAME|--no-organization] [--type TYPE|--no-type]\n"
    "       [--date YYYY-MM-DD|--no-date]\n"
    "                           File scans by hand; the model's answers overruled teach its aliases.\n"
    "  reextract FOLDER PATH-OR-ID...\n"
    "                           Ask the model about the scans again at the next process.\n"
    "  reread FOLDER PATH-OR-ID...\n"
    "                           Read the scans' text again at the next process.\n"
    "  organizations FOLDER [--json]\n"
    "                           Every organization with its number of scans.\n"
    "  rename-organization FOLDER OLD NEW\n"
    "                           Rename; the name of another organization merges the two.\n"
    "  merge-organization FOLDER SOURCE TARGET\n"
    "                           Move SOURCE's scans and names to TARGET; SOURCE's name becomes an alias.\n"
    "  delete-organization FOLDER NAME\n"
    "                           Remove the organization; its scans are filed under none.\n"
    "\n"
    "Scans are named by their path in the folder (or as a file inside it) or by their catalogue id.\n"
    "\n"
    "Exit status: 0 on success; 1 on a usage error, an unknown scan or organization, a name, type or date\n"
    "that is not valid (then nothing is changed), or work that failed; 2 when the folder's catalogue can't be\n"
    "opened; 3 when the local model is unavailable (model, process); 130 when interrupted (process).\n");
}

int main(int argc, char *argv[])
{
    limitEngineThreads(argv);
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QCoreApplication::setApplicationName(QStringLiteral("Vellumark"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELLUMARK_VERSION));

    QStringList arguments = QCoreApplication::arguments();
    const QString command = arguments.value(1);
    if (command == QLatin1String("--help") || command == QLatin1String("-h") || command == QLatin1String("help")) {
        printOut(usage);
        return ExitStatus::success;
    }
    // "vellumark-cli process --help" shows the same text: every command's options are there.
    if (arguments.mid(2).contains(QLatin1String("--help")) || arguments.mid(2).contains(QLatin1String("-h"))) {
        printOut(usage);
        return ExitStatus::success;
    }
    if (command == QLatin1String("--version")) {
        printOut(QStringLiteral("vellumark-cli ") + QCoreApplication::applicationVersion() + QLatin1Char('\n'));
        return ExitStatus::success;
    }
    // Each command parses its own options; it sees the program name followed by its own arguments.
    if (command == QLatin1String("status")) {
        arguments.removeAt(1);
        return runStatusCommand(arguments);
    }
    if (command == QLatin1String("model")) {
        arguments.removeAt(1);
        return runModelCommand(arguments);
    }
    if (command == QLatin1String("process")) {
        arguments.removeAt(1);
        return runProcessCommand(arguments);
    }
    if (command == QLatin1String("show")) {
        arguments.removeAt(1);
        return runShowCommand(arguments);
    }
    if (command == QLatin1String("read")) {
        arguments.removeAt(1);
        return runReadCommand(arguments);
    }
    static const std::map<QString, int (*)(const QStringList &)> catalogueCommands = {
        { QStringLiteral("list"), runListCommand },
        { QStringLiteral("search"), runSearchCommand },
        { QStringLiteral("set"), runSetCommand },
        { QStringLiteral("reextract"), runReextractCommand },
        { QStringLiteral("reread"), runRereadCommand },
        { QStringLiteral("organizations"), runOrganizationsCommand },
        { QStringLiteral("rename-organization"), runRenameOrganizationCommand },
        { QStringLiteral("merge-organization"), runMergeOrganizationCommand },
        { QStringLiteral("delete-organization"), runDeleteOrganizationCommand },
    };
    if (const auto found = catalogueCommands.find(command); found != catalogueCommands.end()) {
        arguments.removeAt(1);
        return found->second(arguments);
    }

    printErr(
        command.isEmpty() ? usage : QStringLiteral("Unknown command “") + command + QStringLiteral("”.\n\n") + usage);
    return ExitStatus::usage;
}
