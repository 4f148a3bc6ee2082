// What `cmake --install` puts where, and whether the installed programs work from there.
#include "support/ScanPdf.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include "install/Installed.h"

namespace {

using namespace Qt::StringLiterals;

QString fileText(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

TEST(InstalledLayout, theCliReadsAScanWithTheReaderItFindsInLibexec)
{
    const InstalledTree tree;
    ASSERT_TRUE(tree.installed()) << tree.log();
    for (const QString &program :
        { u"bin/vellumark"_s, u"bin/vellumark-cli"_s, u"libexec/vellumark/vellumark-reader"_s })
        EXPECT_TRUE(QFileInfo(tree.path(program)).isExecutable()) << program.toStdString();
    // The reader is started by the programs, never by a person: it stays out of the PATH.
    EXPECT_FALSE(QFileInfo::exists(tree.path(u"bin/vellumark-reader"_s)));

    QTemporaryDir folder;
    const QString scan = folder.filePath(u"letter.pdf"_s);
    writeFile(scan, scanPdf({ { .lines = { u"Dear neighbour, the hedge needs trimming"_s } } }));
    const ProgramSettings settings;
    const ToolRun read = runTool(tree.path(u"bin/vellumark-cli"_s), { u"read"_s, scan }, settings.environment());
    EXPECT_EQ(read.exitCode, 0) << read.err.toStdString();
    EXPECT_TRUE(read.out.contains("hedge needs trimming"_L1)) << read.out.toStdString();
}

// The menu entry names a program and an icon that are installed, and the metainfo names that entry.
TEST(InstalledLayout, theDesktopFindsTheAppItsIconAndItsMetainfo)
{
    const InstalledTree tree;
    ASSERT_TRUE(tree.installed()) << tree.log();
    const QString entry = fileText(tree.path(u"share/applications/org.vellumark.Vellumark.desktop"_s));
    const QString exec
        = QRegularExpression(u"^Exec=(\\S+)"_s, QRegularExpression::MultilineOption).match(entry).captured(1);
    const QString icon
        = QRegularExpression(u"^Icon=(\\S+)"_s, QRegularExpression::MultilineOption).match(entry).captured(1);
    ASSERT_FALSE(exec.isEmpty() || icon.isEmpty()) << entry.toStdString();
    EXPECT_TRUE(QFileInfo(tree.path(u"bin/"_s + exec)).isExecutable()) << exec.toStdString();
    EXPECT_TRUE(QFileInfo::exists(tree.path(u"share/icons/hicolor/scalable/apps/"_s + icon + u".svg"_s)));

    const QString metainfo = fileText(tree.path(u"share/metainfo/org.vellumark.Vellumark.metainfo.xml"_s));
    const QString launchable
        = QRegularExpression(u"<launchable type=\"desktop-id\">([^<]+)</launchable>"_s).match(metainfo).captured(1);
    EXPECT_TRUE(QFileInfo::exists(tree.path(u"share/applications/"_s + launchable))) << launchable.toStdString();
}

} // namespace
