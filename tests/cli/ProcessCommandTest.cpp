#include "store/Database.h"
#include "store/ScanStore.h"
#include "support/CatalogueFixtures.h"
#include "support/ScanPdf.h"
#include "support/StubModelServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

namespace {

using CatalogueFixtures::scalar;

class ProcessCommand : public ::testing::Test {
protected:
    void SetUp() override
    {
        // A model server that files every page as a letter from the garden club.
        server.serveOllama({ QStringLiteral("qwen2.5:3b") });
        server.handle(QStringLiteral("POST"), QStringLiteral("/api/chat"), [](const StubRequest &) {
            return StubModelServer::ollamaChat(QStringLiteral(
                R"({"firstPage":true,"kind":"Letter","organization":"Garden Club","dateLabel":"","date":""})"));
        });
        for (int index = 0; index < 6; ++index) {
            ScanPage page;
            page.lines = { QStringLiteral("Letter number %1 about the garden party next spring").arg(index) };
            writeFile(QDir(folder.path()).filePath(QStringLiteral("scan-%1.pdf").arg(index)), scanPdf({ page, page }));
        }
    }

    QProcessEnvironment environment() const
    {
        // Settings of the test's own, so that the person's preferences don't apply.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        return environment;
    }

    void start(QProcess &process, const QStringList &options = {}, bool withModel = true)
    {
        process.setProcessEnvironment(environment());
        QStringList arguments { QStringLiteral("process"), folder.path() };
        if (withModel)
            arguments << QStringLiteral("--model-server") << server.url().toString();
        process.start(QStringLiteral(VELLUMARK_CLI), arguments + options);
        ASSERT_TRUE(process.waitForStarted());
    }

    struct Run {
        int exitCode = -1;
        QString out;
        QString err;
    };
    Run run(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.start(QStringLiteral(VELLUMARK_CLI), arguments);
        process.waitForFinished(180'000);
        return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError()) };
    }

    // Absent while the catalogue doesn't exist yet or is still being made.
    std::optional<QString> query(const QString &sql) const
    {
        const QString path = QDir(folder.path()).filePath(ScanStore::fileName);
        if (!QFile::exists(path))
            return std::nullopt;
        try {
            Database db(path);
            return scalar(db, sql);
        } catch (const Database::Error &) {
            return std::nullopt;
        }
    }

    StubModelServer server;
    QTemporaryDir folder;
    QTemporaryDir config;
};

TEST_F(ProcessCommand, readsAndFilesEveryScanThenSummarises)
{
    QProcess process;
    start(process);
    ASSERT_TRUE(process.waitForFinished(180'000));
    const QString err = QString::fromUtf8(process.readAllStandardError());
    EXPECT_EQ(process.exitCode(), 0) << err.toStdString();
    EXPECT_EQ(err.count(QStringLiteral("  Text  scan-")), 6) << err.toStdString();
    EXPECT_TRUE(err.contains(QLatin1String("Read 2 pages, "))) << err.toStdString();
    EXPECT_TRUE(err.contains(QLatin1String("Read 6 of 6 scans (12 pages) in "))) << err.toStdString();
    EXPECT_EQ(err.count(QStringLiteral("  Queue  scan-")), 6) << err.toStdString();
    EXPECT_EQ(err.count(QStringLiteral("Filed: Garden Club, Letter, no date")), 6) << err.toStdString();
    const qsizetype requests = qsizetype(server.requests(QStringLiteral("/api/chat")).size());
    EXPECT_TRUE(err.contains(QStringLiteral("Filed 6 scans with %1 model requests.").arg(requests)))
        << err.toStdString();
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'done'")), QStringLiteral("6"));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents d JOIN organizations o ON o.id = "
                                   "d.organization_id WHERE d.extract_status = 'done' AND o.name = 'Garden Club'")),
        QStringLiteral("6"));

    // Every request can be looked at afterwards.
    const Run shown
        = run({ QStringLiteral("show"), folder.path(), QStringLiteral("scan-3.pdf"), QStringLiteral("--transcript") });
    EXPECT_EQ(shown.exitCode, 0) << shown.err.toStdString();
    EXPECT_TRUE(shown.out.startsWith(QLatin1String("File: scan-3.pdf\n"))) << shown.out.toStdString();
    EXPECT_TRUE(shown.out.contains(QLatin1String("\nStatus: Needs review\nOrganization: Garden Club\nType: Letter\n")))
        << shown.out.toStdString();
    EXPECT_TRUE(shown.out.contains(QLatin1String("\nTranscript:\n"))) << shown.out.toStdString();
    EXPECT_TRUE(shown.out.contains(QLatin1String("Letter number 3 about the garden"))) << shown.out.toStdString();

    const Run json
        = run({ QStringLiteral("show"), folder.path(), QStringLiteral("scan-3.pdf"), QStringLiteral("--json") });
    const QJsonObject object = QJsonDocument::fromJson(json.out.toUtf8()).object();
    EXPECT_EQ(object.value(QStringLiteral("document")).toObject().value(QStringLiteral("organizationName")),
        QStringLiteral("Garden Club"));
    EXPECT_TRUE(object.value(QStringLiteral("transcript")).toObject().contains(QStringLiteral("attempts")))
        << json.out.toStdString();

    const Run unknown = run({ QStringLiteral("show"), folder.path(), QStringLiteral("nowhere.pdf") });
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_TRUE(unknown.err.startsWith(QStringLiteral("No scan \u201cnowhere.pdf\u201d in the catalogue")))
        << unknown.err.toStdString();
}

TEST_F(ProcessCommand, withoutAModelTheTextIsReadAndTheScansWait)
{
    QProcess textOnly;
    start(textOnly, { QStringLiteral("--no-model") }, false);
    ASSERT_TRUE(textOnly.waitForFinished(180'000));
    EXPECT_EQ(textOnly.exitCode(), 0);
    EXPECT_FALSE(QString::fromUtf8(textOnly.readAllStandardError()).contains(QLatin1String("Local model")));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'done'")), QStringLiteral("6"));

    // Nothing listens on port 9 of this machine.
    const Run unreachable = run({ QStringLiteral("process"), folder.path(), QStringLiteral("--model-server"),
        QStringLiteral("http://127.0.0.1:9") });
    EXPECT_EQ(unreachable.exitCode, 3) << unreachable.err.toStdString();
    EXPECT_TRUE(unreachable.err.contains(QLatin1String("  Queue  -  Local model unavailable: ")))
        << unreachable.err.toStdString();
    EXPECT_TRUE(unreachable.err.contains(QLatin1String("6 scans wait for the local model: ")))
        << unreachable.err.toStdString();
    EXPECT_EQ(
        query(QStringLiteral("SELECT count(*) FROM documents WHERE extract_status = 'pending'")), QStringLiteral("6"));
    EXPECT_TRUE(server.requests(QStringLiteral("/api/chat")).empty());
}

TEST_F(ProcessCommand, respectsThePausedPreferenceUnlessToldToIgnoreIt)
{
    {
        QSettings settings(config.path() + QStringLiteral("/Vellumark/Vellumark.conf"), QSettings::IniFormat);
        settings.setValue(QStringLiteral("Paused"), true);
    }
    QProcess paused;
    start(paused);
    ASSERT_TRUE(paused.waitForFinished(60'000));
    EXPECT_EQ(paused.exitCode(), 0);
    EXPECT_TRUE(QString::fromUtf8(paused.readAllStandardError()).contains(QLatin1String("Work is paused")));
    EXPECT_EQ(
        query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'pending'")), QStringLiteral("6"));

    QProcess anyway;
    start(anyway, { QStringLiteral("--ignore-pause") });
    ASSERT_TRUE(anyway.waitForFinished(180'000));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'done'")), QStringLiteral("6"));
    QSettings settings(config.path() + QStringLiteral("/Vellumark/Vellumark.conf"), QSettings::IniFormat);
    EXPECT_TRUE(settings.value(QStringLiteral("Paused")).toBool());
}

TEST_F(ProcessCommand, killedAtAnyMomentLosesNothing)
{
    // Killed while starting, while syncing and at several points while reading.
    for (const int milliseconds : { 50, 300, 900, 1700, 2600, 3800 }) {
        QProcess process;
        start(process);
        QDeadlineTimer wait(milliseconds);
        while (!wait.hasExpired() && process.state() == QProcess::Running)
            process.waitForFinished(int(wait.remainingTime()));
        if (process.state() == QProcess::Running)
            ::kill(pid_t(process.processId()), SIGKILL);
        process.waitForFinished();
        if (!QFile::exists(QDir(folder.path()).filePath(ScanStore::fileName)))
            continue;
        EXPECT_EQ(query(QStringLiteral("PRAGMA integrity_check")), QStringLiteral("ok")) << milliseconds;
        // Killed before the catalogue had its tables: nothing to lose yet.
        if (query(QStringLiteral("SELECT count(*) FROM sqlite_master WHERE name = 'documents'")) != QStringLiteral("1"))
            continue;
        // A scan is either read completely or still waiting.
        EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status NOT IN ('pending', 'done') OR "
                                       "(ocr_status = 'done' AND (page_count != 2 OR (SELECT count(*) FROM pages "
                                       "WHERE document_id = documents.id) != 2))")),
            QStringLiteral("0"))
            << milliseconds;
    }
    QProcess last;
    start(last);
    ASSERT_TRUE(last.waitForFinished(180'000));
    EXPECT_EQ(last.exitCode(), 0);
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents")), QStringLiteral("6"));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'done'")), QStringLiteral("6"));
}

TEST_F(ProcessCommand, twoProcessesOnOneFolderShareTheCatalogue)
{
    QProcess first;
    QProcess second;
    start(first);
    start(second);
    ASSERT_TRUE(first.waitForFinished(180'000));
    ASSERT_TRUE(second.waitForFinished(180'000));
    EXPECT_EQ(first.exitCode(), 0) << first.readAllStandardError().toStdString();
    EXPECT_EQ(second.exitCode(), 0) << second.readAllStandardError().toStdString();
    EXPECT_EQ(query(QStringLiteral("PRAGMA integrity_check")), QStringLiteral("ok"));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents")), QStringLiteral("6"));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'done' AND page_count = 2")),
        QStringLiteral("6"));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM pages")), QStringLiteral("12"));
}

TEST_F(ProcessCommand, badFilesFailWithTheirReasonsAndEveryOtherScanIsRead)
{
    writeFile(QDir(folder.path()).filePath(QStringLiteral("fields.pdf")), doublingFormFieldPdf(40));
    writeFile(QDir(folder.path()).filePath(QStringLiteral("download.pdf")), "<html>Not found</html>");
    writeFile(QDir(folder.path()).filePath(QStringLiteral("locked.pdf")),
        scanPdf({ ScanPage {} }, PdfPasswords { "user", "owner" }));
    {
        QSettings settings(config.path() + QStringLiteral("/Vellumark/Vellumark.conf"), QSettings::IniFormat);
        settings.setValue(QStringLiteral("ReadTimeoutSeconds"), 5);
    }
    QProcess process;
    start(process);
    ASSERT_TRUE(process.waitForFinished(180'000));
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    EXPECT_EQ(query(QStringLiteral("PRAGMA integrity_check")), QStringLiteral("ok"));
    EXPECT_EQ(query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'done' AND page_count = 2")),
        QStringLiteral("6"));
    EXPECT_EQ(query(QStringLiteral("SELECT group_concat(path || ': ' || error, '; ') FROM (SELECT path, error FROM "
                                   "documents WHERE ocr_status = 'failed' ORDER BY path)")),
        QStringLiteral("download.pdf: Not a readable PDF; fields.pdf: PDF took too long to read; locked.pdf: PDF is "
                       "password protected"));
}

TEST_F(ProcessCommand, watchingStopsCleanlyOnSigterm)
{
    QProcess process;
    start(process, { QStringLiteral("--watch") });
    QDeadlineTimer deadline(180'000);
    while (query(QStringLiteral("SELECT count(*) FROM documents WHERE ocr_status = 'done'")) != QStringLiteral("6")
        && !deadline.hasExpired())
        process.waitForFinished(200);
    ASSERT_EQ(process.state(), QProcess::Running);
    // A scan added while watching is read too.
    ScanPage page;
    page.lines = { QStringLiteral("A late letter") };
    writeFile(QDir(folder.path()).filePath(QStringLiteral("late.pdf")), scanPdf({ page }));
    while (query(QStringLiteral("SELECT ocr_status FROM documents WHERE path = 'late.pdf'")) != QStringLiteral("done")
        && !deadline.hasExpired())
        process.waitForFinished(200);
    EXPECT_EQ(
        query(QStringLiteral("SELECT ocr_status FROM documents WHERE path = 'late.pdf'")), QStringLiteral("done"));
    process.terminate();
    ASSERT_TRUE(process.waitForFinished(30'000));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 0);
}

} // namespace
