#include "library/ReaderWorker.h"

#include "core/Cancellation.h"
#include "ocr/OCR.h"
#include "ocr/TextRecognizer.h"
#include "support/Printing.h"
#include "support/ScanPdf.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <signal.h>
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

    QTemporaryDir folder;
};

TEST_F(ReaderWorkerTest, readsWhatReadingInProcessReadsWithOneReaderForManyFiles)
{
    TextRecognizer recognizer(u"eng"_s);
    ReaderWorker worker({});
    pid_t reader = 0;
    // Pages read turned and blank; then files that fail, each in its own way.
    for (const QString &path :
        { file(u"letter.pdf"_s, scanPdf({ { .lines = letter.lines, .turned = 180 }, ScanPage {} })),
            file(u"locked.pdf"_s, scanPdf({ ScanPage {} }, PdfPasswords { "user", "owner" })),
            file(u"html.pdf"_s, "<html></html>"), folder.filePath(u"gone.pdf"_s) }) {
        SCOPED_TRACE(path.toStdString());
        const auto [direct, directFailure] = attempt([&] { return OCR::recognize(path, recognizer); });
        const auto [through, failure] = attempt([&] { return worker.recognize(path); });
        EXPECT_EQ(failure, directFailure);
        if (direct && through) {
            EXPECT_EQ(through->sha256, direct->sha256);
            EXPECT_EQ(through->pages, direct->pages);
        }
        reader = reader == 0 ? worker.processId() : reader;
        EXPECT_EQ(worker.processId(), reader);
    }
    EXPECT_TRUE(running(reader));
}

// A reader that can't start blames no file. A hang, a kill from outside and running out of memory are
// deaths of the reader that fail the file; a stop is neither.
TEST_F(ReaderWorkerTest, aReaderThatCannotStartHangsDiesRunsOutOfMemoryOrIsStoppedFailsNoOtherFile)
{
    ReaderWorker dying({ u"eng"_s, 120s, 2048, u"/bin/false"_s });
    for (int attempt = 1; attempt <= 2; ++attempt) {
        EXPECT_THROW(dying.recognize(u"/nowhere.pdf"_s), ReaderUnavailable);
        EXPECT_EQ(dying.deathsInARow(), attempt);
    }

    const QString good = file(u"good.pdf"_s, scanPdf({ letter }));
    const QString blanks = file(u"blanks.pdf"_s, repeatedScanPdf(ScanPage {}, 300));
    ReaderWorker worker({ u"eng"_s, 1s });
    const auto outcome = [&](const QString &path, const OCR::PageRead &pageRead = {}) {
        return attempt([&] { return worker.recognize(path, {}, pageRead); }).second;
    };

    // Opening it never ends: the reader is killed when the timeout passes.
    EXPECT_EQ(outcome(file(u"fields.pdf"_s, doublingFormFieldPdf(40))), ReaderWorker::tookTooLong);
    EXPECT_EQ(worker.processId(), 0);
    EXPECT_EQ(worker.deathsInARow(), 1);

    // Killed from outside in the middle of a file; a page may take longer than the short timeout.
    worker.setTimeout(120s);
    EXPECT_EQ(outcome(blanks,
                  [&](int index, int, const OCR::Page &) {
                      if (index == 1 && worker.processId() > 0)
                          ::kill(worker.processId(), SIGKILL);
                  }),
        ReaderWorker::stoppedTheReader);
    EXPECT_EQ(worker.deathsInARow(), 2);
    EXPECT_EQ(worker.recognize(good).pages.size(), 1u);
    EXPECT_EQ(worker.deathsInARow(), 0);
#ifndef VELLUMARK_NO_MEMORY_LIMIT
    // Enough memory to start, not enough for a page: the picture or the bitmap can't be made.
    ReaderWorker small({ u"eng"_s, 120s, 50 });
    const QString tooLarge = attempt([&] { return small.recognize(good); }).second;
    EXPECT_TRUE(tooLarge == ReaderProtocol::tooLarge || tooLarge == ReaderWorker::stoppedTheReader)
        << tooLarge.toStdString();
    EXPECT_EQ(small.processId(), 0);
#endif

    // A stop kills the reader at once. (Pausing the library stops it from another thread.)
    std::stop_source stop;
    pid_t stopped = 0;
    EXPECT_THROW(worker.recognize(blanks, stop.get_token(),
                     [&](int, int, const OCR::Page &) {
                         stopped = worker.processId();
                         stop.request_stop();
                     }),
        Cancelled);
    EXPECT_FALSE(running(stopped));
    EXPECT_EQ(worker.deathsInARow(), 0);
}

// Tesseract prints "Empty page!!" for a page of specks: the user's terminal never sees it, unless asked.
TEST_F(ReaderWorkerTest, whatTheEnginesPrintStaysOffTheTerminal)
{
    const ScanPage specks { .lines = QStringList(40, u". ' ` , "_s.repeated(9)) };
    const QString path = file(u"specks.pdf"_s, scanPdf({ specks }));
    const auto printed = [&](const char *debug) {
        qputenv("VELLUMARK_READER_DEBUG", debug);
        std::FILE *capture = std::tmpfile();
        const int terminal = ::dup(STDERR_FILENO);
        ::dup2(::fileno(capture), STDERR_FILENO);
        ReaderWorker({}).recognize(path);
        ::dup2(terminal, STDERR_FILENO);
        ::close(terminal);
        std::string text(4096, '\0');
        text.resize(std::size_t(std::max<ssize_t>(::pread(::fileno(capture), text.data(), text.size(), 0), 0)));
        std::fclose(capture);
        return text;
    };
    EXPECT_EQ(printed("0"), "");
    EXPECT_NE(printed("1"), "");
}

} // namespace
