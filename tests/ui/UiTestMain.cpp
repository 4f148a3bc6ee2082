// Main for the desktop app's tests: as the shared one (support/TestMain.cpp), but with a QApplication,
// which icons and windows need. Linked before the shared library, so that its main is not used.
#include <QApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    // Offscreen unless told otherwise: the tests are also listed at build time, where there may be no
    // display and CTest's environment doesn't apply.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Without a session bus, the screen-reader bridge waits 5 seconds for one in every test process;
    // the tests read accessible names from the widgets themselves.
    if (qEnvironmentVariableIsEmpty("QT_ACCESSIBILITY"))
        qputenv("QT_ACCESSIBILITY", "0");
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QApplication::setApplicationName(QStringLiteral("Vellumark"));
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir settings;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settings.path());
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
