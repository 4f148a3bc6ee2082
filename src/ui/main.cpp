#include "ui/VellumarkApp.h"

#include <QApplication>
#include <QCommandLineParser>

#include <memory>
#include <string_view>

namespace {

// Help and the version are only text, asked for on terminals that may have no display (and to make the
// manual page): a core application prints them where a GUI one could not even start.
bool asksOnlyForText(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "-h" || argument == "-?" || argument == "--help" || argument == "-v" || argument == "--version")
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char *argv[])
{
    const std::unique_ptr<QCoreApplication> app = asksOnlyForText(argc, argv)
        ? std::make_unique<QCoreApplication>(argc, argv)
        : std::make_unique<QApplication>(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QCoreApplication::setApplicationName(QStringLiteral("Vellumark"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELLUMARK_VERSION));
    // Lets the desktop match the window to its menu entry and icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("org.vellumark.Vellumark"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Turns a folder of scanned mail into a searchable catalogue."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("folder"), QStringLiteral("The scans folder to open."));
    parser.process(*app);
    VellumarkApp vellumark;
    vellumark.start(parser.positionalArguments().value(0));
    return QCoreApplication::exec();
}
