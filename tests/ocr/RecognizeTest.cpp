#include "core/Cancellation.h"
#include "ocr/OCR.h"
#include "ocr/TextRecognizer.h"
#include "support/Printing.h"
#include "support/ScanPdf.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// Long enough that a reading of it the wrong way up shows as garbled rather than too short to judge.
const QStringList letter { QStringLiteral("Northern Electricity Company"),
    QStringLiteral("Invoice for the month of March"), QStringLiteral("Please pay the amount below"),
    QStringLiteral("within thirty days of receipt"), QStringLiteral("Questions about your account?"),
    QStringLiteral("Call our customer service team"), QStringLiteral("on weekdays between nine and five") };

ScanPage paper(const QStringList &lines, int turned = 0)
{
    ScanPage page;
    page.lines = lines;
    page.turned = turned;
    return page;
}

class Recognize : public ::testing::Test {
protected:
    static TextRecognizer &recognizer()
    {
        static TextRecognizer shared(QStringLiteral("eng"));
        return shared;
    }

    QString file(const QByteArray &bytes)
    {
        const QString path = folder.filePath(QStringLiteral("scan.pdf"));
        writeFile(path, bytes);
        return path;
    }

    QTemporaryDir folder;
};

// Recognition may misread a letter here and there; these words must come through.
void expectLetterText(const OCR::Page &page)
{
    for (const char *word : { "Electricity", "Invoice", "March", "amount", "thirty" })
        EXPECT_TRUE(page.text.contains(QLatin1String(word))) << word << " missing from:\n" << page.text.toStdString();
}

// One file shows every way a page may lie: turned on the glass, turned back by its /Rotate, cut by its
// crop box, in two columns; encrypted, with an empty user password.
TEST_F(Recognize, readsEachPageUprightInOrderWithinItsCropBox)
{
    // Only the top half of the columns page is visible; the footer below it is cut off.
    ScanPage columns = paper({ QStringLiteral("Account holder"), QStringLiteral("Mary Johnson"),
        QStringLiteral("Main Street"), QStringLiteral("Springfield"), QStringLiteral("Oregon") });
    columns.rightColumn = { QStringLiteral("Statement date"), QStringLiteral("April fifth"), QStringLiteral("Page one"),
        QStringLiteral("Branch office"), QStringLiteral("Reference") };
    columns.lines << QStringList(16, QString()) << QStringLiteral("Footer reference hidden");
    columns.cropBox = QRectF(0, 396, 612, 396);
    // Lying sideways on the glass, but the page's /Rotate shows it upright.
    ScanPage turnedBack = paper(letter, 90);
    turnedBack.rotateAttribute = 270;
    const QString path
        = file(scanPdf({ paper(letter, 90), turnedBack, columns, ScanPage {} }, PdfPasswords { "", "owner secret" }));

    std::vector<int> reported;
    const OCR::Result result = OCR::recognize(path, recognizer(), {},
        [&](int index, int count, const OCR::Page &) { reported.push_back(index * 10 + count); });
    EXPECT_EQ(reported, (std::vector<int> { 4, 14, 24, 34 }));
    ASSERT_EQ(result.pages.size(), 4u);
    // The paper lay turned clockwise by 90 degrees: the page must be turned back by 270.
    EXPECT_EQ(result.pages[0].rotation, 270);
    expectLetterText(result.pages[0]);
    EXPECT_EQ(result.pages[1].rotation, 0);
    expectLetterText(result.pages[1]);
    EXPECT_TRUE(result.pages[2].text.startsWith(QLatin1String("Account holder   Statement date\n")))
        << result.pages[2].text.toStdString();
    EXPECT_FALSE(result.pages[2].text.contains(QLatin1String("Footer")));
    EXPECT_EQ(result.pages[3], OCR::Page {});
}

// Files that aren't PDFs, locked ones and missing ones are failures the command-line tests show.
TEST_F(Recognize, failsCleanlyOnAPdfWithoutPagesAndHashesNoMissingFile)
{
    try {
        OCR::recognize(file(pdfWithoutPages()), recognizer());
        ADD_FAILURE() << "read without failure";
    } catch (const OCR::Failure &failure) {
        EXPECT_EQ(failure.message(), QStringLiteral("PDF has no pages"));
    }
    EXPECT_EQ(OCR::sha256(folder.filePath(QStringLiteral("gone.pdf"))), std::nullopt);
}

TEST_F(Recognize, stopsBetweenPagesOfALongFile)
{
    const QString path = file(repeatedScanPdf(ScanPage {}, 20));
    std::stop_source stop;
    int pagesRead = 0;
    EXPECT_THROW(OCR::recognize(path, recognizer(), stop.get_token(),
                     [&](int index, int, const OCR::Page &) {
                         pagesRead = index + 1;
                         if (index == 2)
                             stop.request_stop();
                     }),
        Cancelled);
    EXPECT_EQ(pagesRead, 3);
}

} // namespace
