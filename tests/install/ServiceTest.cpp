// The user service as installed: systemd accepts it, and what it runs follows the folder the desktop app
// remembers, lets the app in meanwhile and stops cleanly on SIGTERM.
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"
#include "support/ScanPdf.h"
#include "support/StubModelServer.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include "install/Installed.h"

namespace {

using namespace Qt::StringLiterals;

QString unitFile(const InstalledTree &tree)
{
    return tree.path(u"lib/systemd/user/vellumark-watch.service"_s);
}

// The command line systemd starts, split as it splits a line without quotes.
QStringList execStart(const QString &unit)
{
    QFile file(unit);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString line = QRegularExpression(u"^ExecStart=(.*)$"_s, QRegularExpression::MultilineOption)
                             .match(QString::fromUtf8(file.readAll()))
                             .captured(1);
    return line.split(u' ', Qt::SkipEmptyParts);
}

int filedScans(const QString &folder)
{
    try {
        if (QFile::exists(QDir(folder).filePath(ScanStore::fileName))) {
            Database db(QDir(folder).filePath(ScanStore::fileName));
            return CatalogueFixtures::scalar(db, u"SELECT count(*) FROM documents WHERE extract_status = 'done'"_s)
                .value_or(QString())
                .toInt();
        }
    } catch (const Database::Error &) {
    }
    return 0;
}

TEST(WatchService, systemdAcceptsTheInstalledUnit)
{
    const InstalledTree tree;
    ASSERT_TRUE(tree.installed()) << tree.log();
    // A user manager of its own, which needs nothing but a runtime folder; the manual page the unit
    // points to is looked up among the installed ones.
    QTemporaryDir runtime;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_RUNTIME_DIR"_s, runtime.path());
    environment.insert(u"MANPATH"_s, tree.path(u"share/man"_s));
    const ToolRun verify
        = runTool(QStringLiteral(SYSTEMD_ANALYZE), { u"--user"_s, u"verify"_s, unitFile(tree) }, environment);
    EXPECT_EQ(verify.exitCode, 0);
    EXPECT_EQ(verify.err.toStdString(), std::string());
}

TEST(WatchService, followsTheRememberedFolderBesideTheAppAndStopsCleanlyOnSigterm)
{
    const InstalledTree tree;
    ASSERT_TRUE(tree.installed()) << tree.log();
    const QStringList command = execStart(unitFile(tree));
    ASSERT_EQ(command.value(0), tree.path(u"bin/vellumark-cli"_s));

    StubModelServer server;
    server.serveOllama({ u"qwen2.5:3b"_s });
    server.reply(u"POST"_s, u"/api/chat"_s,
        { StubModelServer::ollamaChat(
            uR"({"firstPage":true,"kind":"Letter","organization":"Garden Club","dateLabel":"","date":""})"_s) });
    QTemporaryDir folder;
    writeFile(folder.filePath(u"letter.pdf"_s),
        scanPdf({ { .lines
            = { u"Garden Club"_s, u"Dear members, the garden party"_s, u"is next spring in the village hall."_s } } }));
    ProgramSettings settings;
    settings.set(u"FolderBookmark"_s, folder.path());
    settings.set(u"ModelServer"_s, server.url().toString());

    QProcess service;
    service.setProcessEnvironment(settings.environment());
    service.start(command.first(), command.mid(1));
    ASSERT_TRUE(service.waitForStarted());
    const QDeadlineTimer deadline(300'000);
    while (filedScans(folder.path()) < 1 && !deadline.hasExpired() && service.state() == QProcess::Running)
        service.waitForFinished(100);
    EXPECT_EQ(filedScans(folder.path()), 1) << service.readAllStandardError().toStdString();

    // What the app does first when it opens the folder: read its catalogue.
    const ToolRun app
        = runTool(tree.path(u"bin/vellumark-cli"_s), { u"status"_s, folder.path() }, settings.environment());
    EXPECT_EQ(app.exitCode, 0) << app.err.toStdString();

    service.terminate();
    EXPECT_TRUE(service.waitForFinished(60'000));
    EXPECT_EQ(service.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(service.exitCode(), 0);
}

// Systemd restarts a service that fails, so a folder that isn't there must be a failure with a reason
// in the journal; run by hand without --watch, a folder is still asked for.
TEST(WatchService, failsWithAReasonWithoutAFolderToFollow)
{
    const InstalledTree tree;
    ASSERT_TRUE(tree.installed()) << tree.log();
    const QString cli = tree.path(u"bin/vellumark-cli"_s);
    ProgramSettings settings;

    const ToolRun none = runTool(cli, { u"process"_s, u"--watch"_s }, settings.environment());
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_TRUE(none.err.contains("none remembered"_L1)) << none.err.toStdString();

    QTemporaryDir scratch;
    const QString unplugged = scratch.filePath(u"unplugged/Scans"_s);
    settings.set(u"FolderBookmark"_s, unplugged);
    const ToolRun gone = runTool(cli, { u"process"_s, u"--watch"_s }, settings.environment());
    EXPECT_EQ(gone.exitCode, 2);
    EXPECT_TRUE(gone.err.contains(unplugged)) << gone.err.toStdString();

    EXPECT_EQ(runTool(cli, { u"process"_s }, settings.environment()).exitCode, 1);
}

} // namespace
