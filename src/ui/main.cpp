#include "ui/VellumarkApp.h"

#include <QApplication>
#include <QCommandLineParser>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QApplication::setApplicationName(QStringLiteral("Vellumark"));
    QApplication::setApplicationVersion(QStringLiteral(VELLUMARK_VERSION));
    // Lets the desktop match the window to its menu entry and icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("org.vellumark.Vellumark"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Turns a folder of scanned mail into a searchable catalogue."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("folder"), QStringLiteral("The scans folder to open."));
    parser.process(app);
    VellumarkApp vellumark;
    vellumark.start(parser.positionalArguments().value(0));
    return QApplication::exec();
}
