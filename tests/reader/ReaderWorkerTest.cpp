#include "library/ReaderWorker.h"

#include "core/Cancellation.h"
#include "ocr/OCR.h"
#include "ocr/TextRecognizer.h"
#include "support/Printing.h"
#include "support/ScanPdf.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <future>
#include <signal.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

const ScanPage letter { .lines = { u"Northern Electricity Company"_s, u"Invoice for the month of March"_s,
                            u"Please pay the amount below"_s, u"within thirty days of receipt"_s } };

bool running(pid_t pid)
{
    return pid > 0 && ::kill(pid, 0) == 0;
}

class ReaderWorkerTest : public ::testing::Test {
protected:
    QString file(const QString &name, const QByteArray &bytes)
    {
        writeFile(folder.filePath(name), bytes);
        return folder.filePath(name);
    }
    // The result, or the failure's message.
    template <typename Read> static std::pair<std::optional<OCR::Result>, QString> attempt(const Read &read)
    {
        try {
            return { read(), u"(read)"_s };
        } catch (const OCR::Failure &failure) {
            return { std::nullopt, failure.message() };
        }
    }
    static QString outcome(ReaderWorker &worker, const QString &path, const OCR::PageRead &pageRead = {})
    {
        return attempt([&] { return worker.recognize(path, {}, pageRead); }).second;
    }

    QTemporaryDir folder;
};

TEST_F(ReaderWorkerTest, readsWhatReadingInProcessReadsWithOneReaderForManyFiles)
{
    ScanPage upsideDown = letter;
    upsideDown.turned = 180;
    // Pages read turned and blank; then files that fail, each in its own way.
    const QString files[] { file(u"letter.pdf"_s, scanPdf({ upsideDown, ScanPage {} })),
        file(u"locked.pdf"_s, scanPdf({ ScanPage {} }, PdfPasswords { "user", "owner" })),
        file(u"none.pdf"_s, pdfWithoutPages()), file(u"html.pdf"_s, "<html></html>"), folder.filePath(u"gone.pdf"_s) };

    TextRecognizer recognizer(u"eng"_s);
    ReaderWorker worker({});
    pid_t reader = 0;
    for (const QString &path : files) {
        SCOPED_TRACE(path.toStdString());
        const auto [direct, directFailure] = attempt([&] { return OCR::recognize(path, recognizer); });
        std::vector<int> reported;
        const auto [through, failure] = attempt([&] {
            return worker.recognize(
                path, {}, [&](int index, int count, const OCR::Page &) { reported.push_back(index * 100 + count); });
        });
        EXPECT_EQ(failure, directFailure);
        if (direct && through) {
            EXPECT_EQ(through->sha256, direct->sha256);
            EXPECT_EQ(through->pages, direct->pages);
            EXPECT_EQ(reported, (std::vector<int> { 2, 102 }));
        }
        reader = reader == 0 ? worker.processId() : reader;
        EXPECT_EQ(worker.processId(), reader);
    }
    EXPECT_TRUE(running(reader));
}

TEST_F(ReaderWorkerTest, aFileThatHangsOrKillsTheReaderFailsAndTheNextFileIsRead)
{
    const QString good = file(u"good.pdf"_s, scanPdf({ letter }));
    const QString blanks = file(u"blanks.pdf"_s, repeatedScanPdf(ScanPage {}, 200));
    ReaderWorker worker({ u"eng"_s, 1s });

    // Opening it never ends: the reader is killed when the timeout passes.
    EXPECT_EQ(outcome(worker, file(u"fields.pdf"_s, doublingFormFieldPdf(40))), ReaderWorker::tookTooLong);
    EXPECT_EQ(worker.processId(), 0);
    EXPECT_EQ(worker.deathsInARow(), 1);

    // Killed from outside in the middle of a file; a page may take longer than the short timeout.
    worker.setTimeout(120s);
    pid_t killed = 0;
    int pagesRead = 0;
    EXPECT_EQ(outcome(worker, blanks,
                  [&](int index, int, const OCR::Page &) {
                      pagesRead = index + 1;
                      if (index == 1)
                          ::kill(killed = worker.processId(), SIGKILL);
                  }),
        ReaderWorker::stoppedTheReader);
    EXPECT_LT(pagesRead, 200);
    EXPECT_EQ(worker.deathsInARow(), 2);
    EXPECT_EQ(worker.recognize(good).pages.size(), 1u);
    EXPECT_NE(worker.processId(), killed);
    EXPECT_TRUE(running(worker.processId()));
    EXPECT_EQ(worker.deathsInARow(), 0);
}

TEST_F(ReaderWorkerTest, aStopKillsTheReaderInTheMiddleOfAFile)
{
    const QString blanks = file(u"blanks.pdf"_s, repeatedScanPdf(ScanPage {}, 500));
    ReaderWorker worker({});
    std::stop_source stop;
    std::atomic<pid_t> reader = 0;
    std::atomic<int> pagesRead = 0;
    std::promise<void> firstPage;
    auto reading = std::async(std::launch::async, [&] {
        worker.recognize(blanks, stop.get_token(), [&](int, int, const OCR::Page &) {
            reader = worker.processId();
            if (pagesRead++ == 0)
                firstPage.set_value();
        });
    });
    ASSERT_EQ(firstPage.get_future().wait_for(120s), std::future_status::ready);
    stop.request_stop();
    EXPECT_THROW(reading.get(), Cancelled);
    EXPECT_LT(pagesRead, 500);
    EXPECT_FALSE(running(reader));
    // A stop is no death: the next file starts a reader without waiting.
    EXPECT_EQ(worker.deathsInARow(), 0);
    EXPECT_EQ(worker.recognize(file(u"blank.pdf"_s, scanPdf({ ScanPage {} }))).pages.size(), 1u);
}

TEST_F(ReaderWorkerTest, aReaderThatCannotStartBlamesNoFile)
{
    const QString blank = file(u"blank.pdf"_s, scanPdf({ ScanPage {} }));
    // The message names the package that brings the missing language.
    try {
        ReaderWorker({ u"eng+qqq"_s }).recognize(blank);
        ADD_FAILURE() << "read without the language's data";
    } catch (const ReaderUnavailable &unavailable) {
        EXPECT_TRUE(unavailable.message().contains(u"tesseract-ocr-qqq")) << unavailable.what();
    }
    ReaderWorker missing({ u"eng"_s, 120s, 2048, folder.filePath(u"no-such-reader"_s) });
    EXPECT_THROW(missing.recognize(blank), ReaderUnavailable);

    // A program that ends at once: each start counts as one more death in a row.
    ReaderWorker dying({ u"eng"_s, 120s, 2048, u"/bin/false"_s });
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
    ReaderWorker worker({ u"eng"_s, 120s, 50 });
    const QString message = outcome(worker, file(u"page.pdf"_s, scanPdf({ letter })));
    EXPECT_TRUE(message == ReaderProtocol::tooLarge || message == ReaderWorker::stoppedTheReader)
        << message.toStdString();
    EXPECT_EQ(worker.processId(), 0);
}
#endif

} // namespace
