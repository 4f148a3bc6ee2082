#include "library/ReaderWorker.h"

#include "core/Cancellation.h"
#include "ocr/OCR.h"
#include "ocr/TextRecognizer.h"
#include "support/ScanPdf.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

const QStringList letter { QStringLiteral("Northern Electricity Company"),
    QStringLiteral("Invoice for the month of March"), QStringLiteral("Please pay the amount below"),
    QStringLiteral("within thirty days of receipt") };

ScanPage paper(const QStringList &lines, int turned = 0)
{
    ScanPage page;
    page.lines = lines;
    page.turned = turned;
    return page;
}

bool running(pid_t pid)
{
    return pid > 0 && ::kill(pid, 0) == 0;
}

class ReaderWorkerTest : public ::testing::Test {
protected:
    QString file(const QString &name, const QByteArray &bytes)
    {
        const QString path = folder.filePath(name);
        writeFile(path, bytes);
        return path;
    }

    // The failure message, or "(read)".
    static QString outcome(ReaderWorker &worker, const QString &path)
    {
        try {
            worker.recognize(path);
        } catch (const OCR::Failure &failure) {
            return failure.message;
        }
        return QStringLiteral("(read)");
    }

    QTemporaryDir folder;
};

TEST_F(ReaderWorkerTest, readsWhatReadingInProcessReadsWithOneReaderForManyFiles)
{
    const std::vector<QString> files { file(QStringLiteral("letter.pdf"), scanPdf({ paper(letter), ScanPage {} })),
        file(QStringLiteral("turned.pdf"), scanPdf({ paper(letter, 180) })),
        file(QStringLiteral("open.pdf"), scanPdf({ paper(letter) }, PdfPasswords { "", "owner" })),
        file(QStringLiteral("locked.pdf"), scanPdf({ ScanPage {} }, PdfPasswords { "user", "owner" })),
        file(QStringLiteral("none.pdf"), pdfWithoutPages()), file(QStringLiteral("html.pdf"), "<html></html>"),
        folder.filePath(QStringLiteral("gone.pdf")) };

    TextRecognizer recognizer(QStringLiteral("eng"));
    ReaderWorker worker({});
    pid_t reader = 0;
    for (const QString &path : files) {
        SCOPED_TRACE(path.toStdString());
        std::optional<OCR::Result> direct;
        QString directFailure;
        try {
            direct = OCR::recognize(path, recognizer);
        } catch (const OCR::Failure &failure) {
            directFailure = failure.message;
        }
        std::vector<int> reported;
        try {
            const OCR::Result through = worker.recognize(
                path, {}, [&](int index, int count, const OCR::Page &) { reported.push_back(index * 100 + count); });
            ASSERT_TRUE(direct.has_value());
            EXPECT_EQ(through.sha256, direct->sha256);
            EXPECT_EQ(through.pages, direct->pages);
            EXPECT_EQ(reported.size(), direct->pages.size());
            EXPECT_EQ(reported.front(), int(direct->pages.size()));
        } catch (const OCR::Failure &failure) {
            EXPECT_FALSE(direct.has_value());
            EXPECT_EQ(failure.message.toStdString(), directFailure.toStdString());
        }
        if (reader == 0)
            reader = worker.processId();
        EXPECT_EQ(worker.processId(), reader);
    }
    EXPECT_TRUE(running(reader));
}

TEST_F(ReaderWorkerTest, aFileThatHangsOrKillsTheReaderFailsAndTheNextFileIsRead)
{
    const QString good = file(QStringLiteral("good.pdf"), scanPdf({ paper(letter) }));
    const QString hanging = file(QStringLiteral("fields.pdf"), doublingFormFieldPdf(40));
    const QString blanks = file(QStringLiteral("blanks.pdf"), repeatedScanPdf(ScanPage {}, 200));
    ReaderWorker worker({ QStringLiteral("eng"), 1s });

    // Opening it never ends: the reader is killed when the timeout passes.
    EXPECT_EQ(outcome(worker, hanging).toStdString(), ReaderWorker::tookTooLong.toStdString());
    EXPECT_EQ(worker.processId(), 0);
    // A page may take longer than that.
    worker.setTimeout(120s);
    EXPECT_EQ(outcome(worker, good).toStdString(), "(read)");
    const pid_t second = worker.processId();
    EXPECT_TRUE(running(second));

    // Killed from outside in the middle of a file.
    int pagesRead = 0;
    try {
        worker.recognize(blanks, {}, [&](int index, int, const OCR::Page &) {
            pagesRead = index + 1;
            if (index == 1)
                ::kill(worker.processId(), SIGKILL);
        });
        ADD_FAILURE() << "read to the end";
    } catch (const OCR::Failure &failure) {
        EXPECT_EQ(failure.message.toStdString(), ReaderWorker::stoppedTheReader.toStdString());
    }
    EXPECT_LT(pagesRead, 200);
    EXPECT_EQ(worker.deathsInARow(), 1);
    EXPECT_EQ(worker.recognize(good).pages.size(), 1u);
    EXPECT_NE(worker.processId(), second);
    EXPECT_EQ(worker.deathsInARow(), 0);
}

TEST_F(ReaderWorkerTest, aStopKillsTheReaderInTheMiddleOfAFile)
{
    const QString blanks = file(QStringLiteral("blanks.pdf"), repeatedScanPdf(ScanPage {}, 500));
    ReaderWorker worker({});
    std::stop_source stop;
    std::atomic<pid_t> reader = 0;
    std::atomic<int> pagesRead = 0;
    bool cancelled = false;
    std::thread reading([&] {
        try {
            worker.recognize(blanks, stop.get_token(), [&](int index, int, const OCR::Page &) {
                reader = worker.processId();
                pagesRead = index + 1;
            });
        } catch (const Cancelled &) {
            cancelled = true;
        }
    });
    while (pagesRead == 0)
        std::this_thread::sleep_for(10ms);
    stop.request_stop();
    reading.join();
    EXPECT_TRUE(cancelled);
    EXPECT_LT(pagesRead, 500);
    EXPECT_FALSE(running(reader));
    // A stop is no death: the next file starts a reader without waiting.
    EXPECT_EQ(worker.deathsInARow(), 0);
    EXPECT_EQ(worker.recognize(file(QStringLiteral("blank.pdf"), scanPdf({ ScanPage {} }))).pages.size(), 1u);
}

TEST_F(ReaderWorkerTest, aReaderThatCannotStartBlamesNoFile)
{
    const QString blank = file(QStringLiteral("blank.pdf"), scanPdf({ ScanPage {} }));
    try {
        ReaderWorker({ QStringLiteral("eng+qqq") }).recognize(blank);
        ADD_FAILURE() << "read without the language's data";
    } catch (const ReaderUnavailable &unavailable) {
        EXPECT_TRUE(unavailable.message.contains(QLatin1String("tesseract-ocr-qqq"))) << unavailable.what();
    }

    ReaderWorker missing({ QStringLiteral("eng"), 120s, 2048, folder.filePath(QStringLiteral("no-such-reader")) });
    EXPECT_THROW(missing.recognize(blank), ReaderUnavailable);

    // A program that ends at once: each start counts as one more death in a row.
    ReaderWorker dying({ QStringLiteral("eng"), 120s, 2048, QStringLiteral("/bin/false") });
    for (int attempt = 1; attempt <= 3; ++attempt) {
        EXPECT_THROW(dying.recognize(blank), ReaderUnavailable);
        EXPECT_EQ(dying.deathsInARow(), attempt);
    }
}

// Tesseract prints "Empty page!!" for a page of specks: the user's terminal never sees it, unless asked.
TEST_F(ReaderWorkerTest, whatTheEnginesPrintStaysOffTheTerminal)
{
    ScanPage specks;
    for (int row = 0; row < 40; ++row)
        specks.lines << QStringLiteral(". ' ` , ").repeated(8 + row % 3);
    const QString path = file(QStringLiteral("specks.pdf"), scanPdf({ specks }));
    const auto printed = [&](bool debug) {
        const QByteArray captured = QFile::encodeName(folder.filePath(QStringLiteral("stderr")));
        const int capture = ::open(captured.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int terminal = ::dup(STDERR_FILENO);
        ::dup2(capture, STDERR_FILENO);
        if (debug)
            qputenv("VELLUMARK_READER_DEBUG", "1");
        ReaderWorker({}).recognize(path);
        qunsetenv("VELLUMARK_READER_DEBUG");
        ::dup2(terminal, STDERR_FILENO);
        ::close(terminal);
        ::close(capture);
        QFile file(QFile::decodeName(captured));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unread)");
    };
    EXPECT_EQ(printed(false).toStdString(), "");
    EXPECT_NE(printed(true).toStdString(), "");
}

#ifndef VELLUMARK_NO_MEMORY_LIMIT
TEST_F(ReaderWorkerTest, aFileThatNeedsMoreMemoryThanTheLimitFails)
{
    // Enough to start, not enough for a page: the picture or the bitmap can't be made.
    const QString page = file(QStringLiteral("page.pdf"), scanPdf({ paper(letter) }));
    ReaderWorker worker({ QStringLiteral("eng"), 120s, 50 });
    const QString message = outcome(worker, page);
    EXPECT_TRUE(message == ReaderProtocol::tooLarge || message == ReaderWorker::stoppedTheReader)
        << message.toStdString();
    EXPECT_EQ(worker.processId(), 0);
}
#endif

} // namespace
