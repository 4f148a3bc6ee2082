#include "cli/ProcessCommand.h"

#include "cli/CliOutput.h"
#include "extract/model/ModelServerClient.h"
#include "extract/model/ModelSettings.h"
#include "library/Library.h"
#include "library/Recognition.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// SIGINT and SIGTERM end the run through the event loop: the handler only writes a byte.
int signalPipe[2] = { -1, -1 };

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

// Follows the Library's work and tells the person about it: a progress line on a terminal, one line
// per scan otherwise.
class Progress : public QObject {
public:
    Progress(Library &library, bool terminal)
        : library_(library)
        , terminal_(terminal)
    {
        clock_.start();
        connect(&library.activity(), &ActivityLog::appended, this, &Progress::entry);
        connect(&library, &Library::pageRead, this, [this](const QString &file, int index, int count) {
            ++pages_;
            pagesOf_[file] = { index + 1, count };
            draw();
        });
        connect(&library, &Library::currentOCRChanged, this, [this] {
            // Only the scans being read keep their page counts.
            QHash<QString, std::pair<int, int>> kept;
            for (const WorkScheduler::ReadingScan &scan : library_.readingNow())
                kept.insert(scan.file, pagesOf_.value(scan.file));
            pagesOf_ = std::move(kept);
            draw();
        });
        connect(&library, &Library::currentExtractionChanged, this, &Progress::draw);
    }

    void setTotal(int total) { total_ = total; }

    void finish()
    {
        clearLine();
        const double seconds = clock_.nsecsElapsed() / 1e9;
        QString summary = QStringLiteral("Read %1 of %2 scans (%3 pages) in %4 s")
                              .arg(read_)
                              .arg(total_)
                              .arg(pages_)
                              .arg(seconds, 0, 'f', 1);
        if (pages_ > 0 && seconds > 0)
            summary += QStringLiteral(", %1 pages per minute").arg(pages_ * 60 / seconds, 0, 'f', 1);
        if (failed_ > 0)
            summary += QStringLiteral("; %1 could not be read").arg(failed_);
        printErr(summary + QStringLiteral(".\n"));
        if (filed_ > 0 || requests_ > 0 || gaveUp_ > 0) {
            QString filing = QStringLiteral("Filed %1 scans with %2 model requests").arg(filed_).arg(requests_);
            if (gaveUp_ > 0)
                filing += QStringLiteral("; gave up on %1").arg(gaveUp_);
            printErr(filing + QStringLiteral(".\n"));
        }
    }

    int failed() const { return failed_; }

private:
    void entry(const ActivityEntry &entry)
    {
        if (entry.kind == ActivityEntry::Kind::model) {
            // Requests show in the progress line; their transcripts are kept with each scan.
            ++requests_;
            draw();
            return;
        }
        if (entry.kind == ActivityEntry::Kind::ocr) {
            if (entry.failed())
                ++failed_;
            else
                ++read_;
        } else if (entry.title == QLatin1String("Filed")) {
            ++filed_;
        } else if (entry.title == QLatin1String("Gave up")) {
            ++gaveUp_;
        }
        clearLine();
        printErr(entry.line() + QLatin1Char('\n'));
        draw();
    }

    void draw()
    {
        if (!terminal_ || (!library_.currentOCR() && !library_.currentExtraction()))
            return;
        const double minutes = clock_.nsecsElapsed() / 60e9;
        QStringList parts;
        if (const std::optional<QString> reading = library_.currentOCR()) {
            // The scans being read are the next ones counted: "[7/120]", or "[7-10/120]" for four at once.
            const int first = read_ + failed_ + 1;
            const int last = read_ + failed_ + std::max(1, int(library_.readingNow().size()));
            const QString numbers
                = first == last ? QString::number(first) : QStringLiteral("%1-%2").arg(first).arg(last);
            QString part = QStringLiteral("[%1/%2] %3").arg(numbers).arg(std::max(total_, last)).arg(*reading);
            const auto [page, pageCount] = pagesOf_.value(*reading);
            if (pageCount > 0)
                part += QStringLiteral("  page %1 of %2").arg(page).arg(pageCount);
            if (last > first)
                part += QStringLiteral("  +%1 more").arg(last - first);
            if (pages_ > 0 && minutes > 0)
                part += QStringLiteral("  %1 pages/min").arg(pages_ / minutes, 0, 'f', 1);
            parts << part;
        }
        if (const std::optional<QString> filing = library_.currentExtraction())
            parts << QStringLiteral("filing ") + *filing;
        parts << QStringLiteral("%1 filed, %2 requests").arg(filed_).arg(requests_);
        printErr(QStringLiteral("\r\033[K") + parts.join(QStringLiteral("  |  ")));
        drawn_ = true;
    }

    void clearLine()
    {
        if (drawn_)
            printErr(QStringLiteral("\r\033[K"));
        drawn_ = false;
    }

    Library &library_;
    bool terminal_ = false;
    bool drawn_ = false;
    QElapsedTimer clock_;
    int total_ = 0;
    int read_ = 0;
    int failed_ = 0;
    int filed_ = 0;
    int gaveUp_ = 0;
    int requests_ = 0;
    int pages_ = 0;
    // The page last read and the page count of each scan being read.
    QHash<QString, std::pair<int, int>> pagesOf_;
};

// The folder the desktop app would open, for `process --watch` without one (the background service);
// sets `problem` to the exit status when there is none to follow.
QString rememberedFolder(int &problem)
{
    const std::optional<QString> folder = Library::rememberedFolder();
    if (!folder) {
        printErr(QStringLiteral("No folder given, and none remembered: choose one in Vellumark, or name it: "
                                "vellumark-cli process FOLDER --watch\n"));
        problem = ExitStatus::usage;
        return {};
    }
    if (!QFileInfo(*folder).isDir()) {
        printErr(QStringLiteral("The remembered folder ") + *folder + QStringLiteral(" isn't there.\n"));
        problem = ExitStatus::cannotOpen;
        return {};
    }
    printErr(QStringLiteral("No folder given: following the remembered one.\n"));
    return *folder;
}

} // namespace

int runProcessCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Brings a scans folder's catalogue up to date, reads every "
                                                    "scan waiting for its text and files it with the local model."));
    parser.addPositionalArgument(QStringLiteral("FOLDER"), QStringLiteral("The scans folder."));
    const QCommandLineOption watch(
        QStringLiteral("watch"), QStringLiteral("Keep following the folder until interrupted."));
    const QCommandLineOption ignorePause(
        QStringLiteral("ignore-pause"), QStringLiteral("Work even if work is paused, for this run only."));
    const QCommandLineOption noModel(
        QStringLiteral("no-model"), QStringLiteral("Only read the text; file nothing with the model."));
    const QCommandLineOption server(QStringLiteral("model-server"),
        QStringLiteral("The model server for this run (default: the ModelServer setting)."), QStringLiteral("URL"));
    const QCommandLineOption model(QStringLiteral("model"),
        QStringLiteral("The model for this run (default: the ModelName setting)."), QStringLiteral("NAME"));
    const QCommandLineOption workers(QStringLiteral("workers"),
        QStringLiteral("How many scans to read at once, each in a reader of its own (default: the ReadingWorkers "
                       "setting, else the number of cores up to 4)."),
        QStringLiteral("N"));
    parser.addOptions({ watch, ignorePause, noModel, server, model, workers });
    if (!parser.parse(arguments)) {
        printErr(parser.errorText() + QLatin1Char('\n'));
        return ExitStatus::usage;
    }
    const QStringList folders = parser.positionalArguments();
    if (folders.size() > 1 || (folders.isEmpty() && !parser.isSet(watch))) {
        printErr(QStringLiteral("Usage: vellumark-cli process [FOLDER] [--watch] [--ignore-pause] [--no-model] "
                                "[--model-server URL] [--model NAME] [--workers N]\n"));
        return ExitStatus::usage;
    }
    std::optional<int> readers;
    if (parser.isSet(workers)) {
        bool ok = false;
        readers = parser.value(workers).toInt(&ok);
        if (!ok || *readers < 1 || *readers > ReadingWorkers::most) {
            printErr(QStringLiteral("--workers takes a number from 1 to %1.\n").arg(ReadingWorkers::most));
            return ExitStatus::usage;
        }
    }
    int folderProblem = ExitStatus::success;
    const QString folder = folders.isEmpty() ? rememberedFolder(folderProblem) : folders.first();
    if (folderProblem != ExitStatus::success)
        return folderProblem;
    const auto option = [&](const QCommandLineOption &given) {
        return parser.isSet(given) ? std::optional(parser.value(given)) : std::nullopt;
    };

    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
        return ExitStatus::failed;
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    QSocketNotifier interrupted(signalPipe[0], QSocketNotifier::Read);

    LibraryOptions options;
    options.extraction = !parser.isSet(noModel);
    options.readers = readers;
    Library library(options);
    if (parser.isSet(ignorePause))
        library.ignorePauseThisSession();
    if (parser.isSet(server) || parser.isSet(model)) {
        library.setLanguageModel(Extractor::ModelSettings::load().overridden(option(server), option(model)).client());
    }
    Progress progress(library, isatty(STDERR_FILENO));
    int status = ExitStatus::success;
    bool synced = false;
    // Once a signal asked to stop, what the stopping work reports (a reader killed with the process
    // group, say) changes neither the message nor the exit status.
    bool stopping = false;
    const auto finishIfDone = [&] {
        if (stopping || !synced || library.isReading() || library.isExtracting() || parser.isSet(watch))
            return;
        const std::optional<QString> problem = library.modelProblem();
        if (problem && library.pendingExtraction() > 0 && !library.paused() && !parser.isSet(noModel)) {
            // The text is read; the scans wait for a model that can be used.
            printErr(QStringLiteral("%1 scans wait for the local model: ").arg(library.pendingExtraction()) + *problem
                + QLatin1Char('\n'));
            QCoreApplication::exit(ExitStatus::modelUnavailable);
            return;
        }
        QCoreApplication::exit(status);
    };
    QObject::connect(&interrupted, &QSocketNotifier::activated, [&] {
        char byte = 0;
        [[maybe_unused]] const ssize_t read = ::read(signalPipe[0], &byte, 1);
        printErr(QStringLiteral("\nStopping.\n"));
        stopping = true;
        status = parser.isSet(watch) ? ExitStatus::success : ExitStatus::interrupted;
        QCoreApplication::exit(status);
    });
    QObject::connect(&library, &Library::synced, [&] {
        if (!synced) {
            synced = true;
            progress.setTotal(library.pendingOCR());
            if (library.paused())
                printErr(QStringLiteral("Work is paused; nothing is read. --ignore-pause reads anyway.\n"));
        }
        finishIfDone();
    });
    QObject::connect(&library, &Library::readingChanged, finishIfDone);
    QObject::connect(&library, &Library::extractingChanged, finishIfDone);
    QObject::connect(&library, &Library::ocrProblemChanged, [&] {
        if (stopping)
            return;
        if (const std::optional<QString> problem = library.ocrProblem()) {
            printErr(*problem + QLatin1Char('\n'));
            status = ExitStatus::failed;
            QCoreApplication::exit(status);
        }
    });

    library.open(folder, false);
    if (const std::optional<QString> error = library.openError()) {
        printErr(*error + QLatin1Char('\n'));
        return ExitStatus::cannotOpen;
    }
    if (parser.isSet(watch))
        printErr(QStringLiteral("Following ") + *library.folder() + QStringLiteral("; press Ctrl+C to stop.\n"));
    const int exitStatus = QCoreApplication::exec();
    progress.finish();
    return exitStatus;
}
