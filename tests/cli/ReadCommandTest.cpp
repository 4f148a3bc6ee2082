#include "cli/Cli.h"
#include "support/ScanPdf.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

using namespace Qt::StringLiterals;

TEST(ReadCommand, readsARealScanPageByPageWithItsRotationAndHash)
{
    ScanPage upsideDown;
    upsideDown.lines = { u"Dear customer, thank you for your order"_s,
        u"of garden furniture from our summer catalogue."_s, u"Your delivery will arrive next Tuesday morning"_s };
    upsideDown.turned = 180;
    const QByteArray pdf = scanPdf({ upsideDown, ScanPage {} });
    QTemporaryDir folder;
    writeFile(folder.filePath(u"scan.pdf"_s), pdf);
    Cli cli;
    cli.useRealReader();

    const CliRun read = cli.run({ u"read"_s, folder.filePath(u"scan.pdf"_s) });
    ASSERT_EQ(read.exitCode, 0) << read.err.toStdString();
    for (const QString &shown : { u"rotation 180\n"_s, u"garden furniture"_s, u"(no text)"_s,
             QString::fromLatin1(QCryptographicHash::hash(pdf, QCryptographicHash::Sha256).toHex()) })
        EXPECT_TRUE(read.out.contains(shown)) << shown.toStdString() << " in " << read.out.toStdString();
}

TEST(ReadCommand, printsThePagesAsJson)
{
    QTemporaryDir folder;
    writeFakeScan(folder.filePath(u"scan.pdf"_s), { u"@rotation=90\nSideways page"_s, QString() });
    const CliRun read = Cli().run({ u"read"_s, folder.filePath(u"scan.pdf"_s), u"--json"_s });
    ASSERT_EQ(read.exitCode, 0) << read.err.toStdString();
    const QJsonObject json = QJsonDocument::fromJson(read.out.toUtf8()).object();
    EXPECT_EQ(json[u"sha256"_s].toString().size(), 64);
    const QJsonArray pages = json[u"pages"_s].toArray();
    ASSERT_EQ(pages.size(), 2);
    EXPECT_EQ(pages[0][u"rotation"_s].toInt(), 90);
    EXPECT_EQ(pages[0][u"text"_s], u"Sideways page"_s);
    EXPECT_EQ(pages[1][u"text"_s], QString());
}

TEST(ReadCommand, failuresGoToStandardErrorWithStatusOne)
{
    QTemporaryDir folder;
    const QString notPdf = folder.filePath(u"scan.pdf"_s);
    writeFile(notPdf, "%PDF-1.7 but nothing more");
    Cli cli;
    for (const std::pair<QStringList, QString> &failure : std::vector<std::pair<QStringList, QString>> {
             { { notPdf }, u"Not a readable PDF"_s }, { { folder.filePath(u"missing.pdf"_s) }, u"couldn't be read"_s },
             { { notPdf, u"--timeout"_s, u"0"_s }, u"--timeout"_s }, { {}, u"Usage"_s } }) {
        const CliRun failed = cli.run(QStringList { u"read"_s } + failure.first);
        EXPECT_EQ(failed.exitCode, 1) << failure.first.join(u' ').toStdString();
        EXPECT_TRUE(failed.err.contains(failure.second) && failed.out.isEmpty()) << failed.err.toStdString();
    }
    // The real reader can't start without a language's data, and says which package has it.
    cli.useRealReader();
    const CliRun language = cli.run({ u"read"_s, notPdf, u"--languages"_s, u"eng+qqq"_s });
    EXPECT_EQ(language.exitCode, 1);
    EXPECT_TRUE(language.err.contains("tesseract-ocr-qqq"_L1)) << language.err.toStdString();
}

} // namespace
