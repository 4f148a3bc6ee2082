#include "cli/Cli.h"
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"
#include "support/ScanPdf.h"
#include "support/StubModelServer.h"

#include <QDeadlineTimer>
#include <QSettings>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

namespace {

using namespace Qt::StringLiterals;

// Long enough for the model to be asked about it.
const QString letter = u"Letter number %1 about the garden party next spring, in the village hall"_s;

// A scans folder and a model server that files every page as a letter from the garden club.
class ProcessCommand : public ::testing::Test {
protected:
    ProcessCommand()
    {
        server.serveOllama({ u"qwen2.5:3b"_s });
        server.reply(u"POST"_s, u"/api/chat"_s,
            { StubModelServer::ollamaChat(
                uR"({"firstPage":true,"kind":"Letter","organization":"Garden Club","dateLabel":"","date":""})"_s) });
    }

    void addFakeScans(int count)
    {
        for (int index = 0; index < count; ++index)
            writeFakeScan(folder.filePath(u"scan-%1.pdf"_s.arg(index)), { letter.arg(index), u"Page two"_s });
    }

    QStringList process(const QStringList &options = {}) const
    {
        return QStringList { u"process"_s, folder.path(), u"--model-server"_s, server.url().toString() } + options;
    }

    // Absent while the catalogue doesn't exist yet or can't be read.
    std::optional<QString> query(const QString &sql) const
    {
        try {
            if (QFile::exists(folder.filePath(ScanStore::fileName))) {
                Database db(folder.filePath(ScanStore::fileName));
                return CatalogueFixtures::scalar(db, sql);
            }
        } catch (const Database::Error &) {
        }
        return std::nullopt;
    }
    int scans(const QString &where) const
    {
        return query(u"SELECT count(*) FROM documents WHERE "_s + where).value_or(QString()).toInt();
    }

    StubModelServer server;
    QTemporaryDir folder;
    Cli cli;
};

TEST_F(ProcessCommand, pausedThenWithoutAModelThenWithOneScansAreReadThenFiled)
{
    addFakeScans(3);
    QSettings(cli.settingsFile(), QSettings::IniFormat).setValue(u"Paused"_s, true);
    EXPECT_EQ(cli.run(process()).exitCode, 0);
    EXPECT_EQ(scans(u"ocr_status = 'pending'"_s), 3);

    EXPECT_EQ(cli.run({ u"process"_s, folder.path(), u"--no-model"_s, u"--ignore-pause"_s }).exitCode, 0);
    EXPECT_EQ(scans(u"ocr_status = 'done' AND page_count = 2"_s), 3);
    // Nothing listens on port 9 of this machine.
    const CliRun unreachable
        = cli.run({ u"process"_s, folder.path(), u"--model-server"_s, u"http://127.0.0.1:9"_s, u"--ignore-pause"_s });
    EXPECT_EQ(unreachable.exitCode, 3);
    EXPECT_TRUE(unreachable.err.contains("3 scans wait for the local model"_L1)) << unreachable.err.toStdString();
    EXPECT_EQ(scans(u"extract_status = 'pending'"_s), 3);

    EXPECT_EQ(cli.run(process({ u"--ignore-pause"_s })).exitCode, 0);
    EXPECT_EQ(scans(u"extract_status = 'done' AND organization_id = (SELECT id FROM organizations WHERE name = "
                    "'Garden Club')"_s),
        3);
    EXPECT_TRUE(QSettings(cli.settingsFile(), QSettings::IniFormat).value(u"Paused"_s).toBool());
    const CliRun shown = cli.run({ u"show"_s, folder.path(), u"scan-1.pdf"_s, u"--transcript"_s });
    EXPECT_EQ(shown.exitCode, 0) << shown.err.toStdString();
    EXPECT_TRUE(shown.out.contains("Garden Club"_L1) && shown.out.contains(letter.arg(1))) << shown.out.toStdString();
}

TEST_F(ProcessCommand, killedAtAnyMomentLosesNothingAndTwoProcessesFinishTheJobTogether)
{
    constexpr int count = 16;
    addFakeScans(count);
    // Killed as soon as it started, then after so many scans were read or filed in that run.
    const QString read = u"  Text  "_s, filed = u"Filed:"_s;
    int killedMidRun = 0;
    for (const std::pair<QString, int> &point : std::vector<std::pair<QString, int>> {
             { read, 0 }, { read, 1 }, { filed, 1 }, { read, 3 }, { filed, 2 }, { read, 2 } }) {
        const std::unique_ptr<QProcess> running = cli.start(process());
        QString err;
        Cli::waitUntil(*running, [&] {
            err += QString::fromUtf8(running->readAllStandardError());
            return err.count(point.first) >= point.second;
        });
        // A process that already ended has no id: kill(0) would hit this test's whole process group.
        if (const pid_t pid = pid_t(running->processId()); running->state() == QProcess::Running && pid > 0) {
            ++killedMidRun;
            ::kill(pid, SIGKILL);
        }
        running->waitForFinished();
        if (scans(u"1"_s) == 0)
            continue; // nothing to lose yet
        SCOPED_TRACE(u"after %1 × “%2”"_s.arg(point.second).arg(point.first).toStdString());
        EXPECT_EQ(query(u"PRAGMA integrity_check"_s), u"ok"_s);
        // A scan is either read completely or still waiting.
        EXPECT_EQ(scans(u"ocr_status NOT IN ('pending', 'done') OR (ocr_status = 'done' AND (page_count != 2 OR "
                        "(SELECT count(*) FROM pages WHERE document_id = documents.id) != 2))"_s),
            0);
    }
    EXPECT_GT(killedMidRun, 0);

    const std::unique_ptr<QProcess> first = cli.start(process()), second = cli.start(process());
    EXPECT_EQ(Cli::finish(*first).exitCode, 0);
    EXPECT_EQ(Cli::finish(*second).exitCode, 0);
    EXPECT_EQ(query(u"PRAGMA integrity_check"_s), u"ok"_s);
    EXPECT_EQ(scans(u"ocr_status = 'done' AND page_count = 2 AND extract_status = 'done'"_s), count);
    EXPECT_EQ(query(u"SELECT count(*) FROM pages"_s), QString::number(2 * count));
}

TEST_F(ProcessCommand, killedWhileSeveralReadersReadLeavesNoReaderBehindAndNothingHalfSaved)
{
    constexpr int count = 4;
    for (int index = 0; index < count; ++index)
        writeFakeScan(folder.filePath(u"held-%1.pdf"_s.arg(index)), { QString::fromLatin1(fakeReadWait), u"Two"_s });
    EXPECT_EQ(cli.run(process({ u"--workers"_s, u"0"_s })).exitCode, 1);

    const std::unique_ptr<QProcess> running = cli.start(process({ u"--no-model"_s, u"--workers"_s, u"3"_s }));
    ASSERT_TRUE(Cli::waitUntil(*running, [&] { return fakeReads(folder.path()).size() == 3; }));
    ::kill(pid_t(running->processId()), SIGKILL);
    running->waitForFinished();
    const std::vector<FakeRead> reads = fakeReads(folder.path());
    EXPECT_TRUE(std::ranges::all_of(reads, [](const FakeRead &read) { return read.underway <= 3 && !read.again; }));
    const QDeadlineTimer deadline(Cli::deadline);
    while (!std::ranges::all_of(reads, [](const FakeRead &read) { return processEnded(read.pid); })
        && !deadline.hasExpired())
        QThread::msleep(10);
    EXPECT_TRUE(std::ranges::all_of(reads, [](const FakeRead &read) { return processEnded(read.pid); }));
    EXPECT_EQ(query(u"PRAGMA integrity_check"_s), u"ok"_s);
    EXPECT_EQ(scans(u"ocr_status = 'pending'"_s), count);
    EXPECT_EQ(query(u"SELECT count(*) FROM pages"_s), u"0"_s);

    for (int index = 0; index < count; ++index)
        writeFile(folder.filePath(u"held-%1.pdf.go"_s.arg(index)), {});
    const CliRun finished = cli.run(process({ u"--no-model"_s, u"--workers"_s, u"3"_s }));
    EXPECT_EQ(finished.exitCode, 0) << finished.err.toStdString();
    EXPECT_TRUE(finished.err.contains(u"Read 4 of 4 scans (8 pages)"_s)) << finished.err.toStdString();
    EXPECT_EQ(scans(u"ocr_status = 'done' AND page_count = 2"_s), count);
}

TEST_F(ProcessCommand, watchingReadsScansAddedLaterAndStopsCleanlyOnSigterm)
{
    addFakeScans(2);
    const std::unique_ptr<QProcess> watching = cli.start(process({ u"--watch"_s }));
    ASSERT_TRUE(Cli::waitUntil(*watching, [&] { return scans(u"extract_status = 'done'"_s) == 2; }));
    writeFakeScan(folder.filePath(u"later/late.pdf"_s), { letter.arg(u"late"_s) });
    EXPECT_TRUE(Cli::waitUntil(*watching, [&] { return scans(u"extract_status = 'done'"_s) == 3; }));
    watching->terminate();
    EXPECT_EQ(Cli::finish(*watching).exitCode, 0);
}

} // namespace
