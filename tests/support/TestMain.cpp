// Shared main for the test executables: a QCoreApplication for event loops and coroutines, and
// settings of each test process's own, so that tests never touch the user's settings, nor each other's
// when CTest runs them side by side.
#include "ocr/EngineThreads.h"

#include <QCoreApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    limitEngineThreads(argv);
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vellumark"));
    QCoreApplication::setApplicationName(QStringLiteral("Vellumark"));
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir settings;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settings.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settings.path());
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
