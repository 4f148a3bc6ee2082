#include "support/ScanPdf.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct CliRun {
    int exitCode = -1;
    QString out;
    QString err;
};

class ReadCommand : public ::testing::Test {
protected:
    CliRun read(const QStringList &arguments)
    {
        QProcess process;
        // A settings folder of the test's own, so that a person's reading languages don't apply.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), folder.filePath(QStringLiteral("config")));
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(VELLUMARK_CLI), QStringList { QStringLiteral("read") } + arguments);
        process.waitForFinished(120'000);
        return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError()) };
    }

    QString file(const QByteArray &bytes)
    {
        const QString path = folder.filePath(QStringLiteral("scan.pdf"));
        writeFile(path, bytes);
        return path;
    }

    QTemporaryDir folder;
};

TEST_F(ReadCommand, printsEachPageWithItsRotationThenTheHash)
{
    ScanPage upsideDown;
    upsideDown.lines = { QStringLiteral("Dear customer, thank you for your order"),
        QStringLiteral("of garden furniture from our summer catalogue."),
        QStringLiteral("Your delivery will arrive next Tuesday morning"),
        QStringLiteral("between eight and twelve o'clock.") };
    upsideDown.turned = 180;
    const QString path = file(scanPdf({ upsideDown, ScanPage {} }));

    const CliRun text = read({ path });
    ASSERT_EQ(text.exitCode, 0) << text.err.toStdString();
    EXPECT_TRUE(text.out.startsWith(QLatin1String("Page 1, rotation 180\nDear customer"))) << text.out.toStdString();
    EXPECT_TRUE(text.out.contains(QLatin1String("\n\nPage 2, rotation 0\n(no text)\n\nSHA-256: ")));

    const CliRun json = read({ path, QStringLiteral("--json") });
    ASSERT_EQ(json.exitCode, 0) << json.err.toStdString();
    const QJsonObject object = QJsonDocument::fromJson(json.out.toUtf8()).object();
    EXPECT_EQ(object.value(QStringLiteral("sha256")).toString().size(), 64);
    EXPECT_TRUE(text.out.endsWith(object.value(QStringLiteral("sha256")).toString() + QLatin1Char('\n')));
    const QJsonArray pages = object.value(QStringLiteral("pages")).toArray();
    ASSERT_EQ(pages.size(), 2);
    EXPECT_EQ(pages[0].toObject().value(QStringLiteral("rotation")).toInt(), 180);
    EXPECT_TRUE(
        pages[0].toObject().value(QStringLiteral("text")).toString().contains(QLatin1String("garden furniture")));
    EXPECT_EQ(pages[1].toObject().value(QStringLiteral("text")).toString(), QString());
}

TEST_F(ReadCommand, failuresGoToStandardErrorWithStatusOne)
{
    const CliRun notPdf = read({ file("%PDF-1.7 but nothing more") });
    EXPECT_EQ(notPdf.exitCode, 1);
    EXPECT_EQ(notPdf.err, QStringLiteral("Not a readable PDF\n"));
    EXPECT_TRUE(notPdf.out.isEmpty());

    const CliRun locked = read({ file(scanPdf({ ScanPage {} }, PdfPasswords { "secret", "secret" })) });
    EXPECT_EQ(locked.exitCode, 1);
    EXPECT_EQ(locked.err, QStringLiteral("PDF is password protected\n"));

    // Opening this file never ends; the reader is given a second.
    const CliRun hanging = read({ file(doublingFormFieldPdf(40)), QStringLiteral("--timeout"), QStringLiteral("1") });
    EXPECT_EQ(hanging.exitCode, 1);
    EXPECT_EQ(hanging.err, QStringLiteral("PDF took too long to read\n"));
    EXPECT_EQ(read({ file(pdfWithoutPages()), QStringLiteral("--timeout"), QStringLiteral("0") }).exitCode, 1);

    const CliRun missingLanguage
        = read({ file(scanPdf({ ScanPage {} })), QStringLiteral("--languages"), QStringLiteral("eng+qqq") });
    EXPECT_EQ(missingLanguage.exitCode, 1);
    EXPECT_TRUE(missingLanguage.err.contains(QLatin1String("tesseract-ocr-qqq"))) << missingLanguage.err.toStdString();
}

} // namespace
