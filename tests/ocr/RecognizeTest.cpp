#include "core/Cancellation.h"
#include "ocr/OCR.h"
#include "ocr/TextRecognizer.h"
#include "support/ScanPdf.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRandomGenerator>
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

    QString file(const QByteArray &bytes, const QString &name = QStringLiteral("scan.pdf"))
    {
        const QString path = folder.filePath(name);
        writeFile(path, bytes);
        return path;
    }

    OCR::Result read(const QByteArray &bytes) { return OCR::recognize(file(bytes), recognizer()); }

    static QString failure(const QString &path)
    {
        try {
            OCR::recognize(path, recognizer());
        } catch (const OCR::Failure &failure) {
            return failure.message;
        }
        return QStringLiteral("(read without failure)");
    }

    QTemporaryDir folder;
};

// Recognition may misread a letter here and there; these words must come through.
void expectLetterText(const OCR::Page &page)
{
    for (const char *word : { "Electricity", "Invoice", "March", "amount", "thirty" })
        EXPECT_TRUE(page.text.contains(QLatin1String(word))) << word << " missing from:\n" << page.text.toStdString();
}

TEST_F(Recognize, readsEveryPageInOrderWithBlankPagesEmpty)
{
    const QString path = file(scanPdf({ paper(letter), ScanPage {} }));
    std::vector<int> reported;
    const OCR::Result result = OCR::recognize(path, recognizer(), {}, [&](int index, int count, const OCR::Page &) {
        reported.push_back(index);
        EXPECT_EQ(count, 2);
    });
    ASSERT_EQ(result.pages.size(), 2u);
    expectLetterText(result.pages[0]);
    EXPECT_EQ(result.pages[0].rotation, 0);
    EXPECT_EQ(result.pages[1], OCR::Page {});
    EXPECT_EQ(reported, (std::vector<int> { 0, 1 }));

    QFile bytes(path);
    ASSERT_TRUE(bytes.open(QIODevice::ReadOnly));
    const QString expected
        = QString::fromLatin1(QCryptographicHash::hash(bytes.readAll(), QCryptographicHash::Sha256).toHex());
    EXPECT_EQ(result.sha256, expected);
    EXPECT_EQ(OCR::sha256(path), expected);
}

TEST_F(Recognize, findsWhichWayUpEachPageIs)
{
    // The paper lay turned clockwise by 180, 90 and 270 degrees; the page must be turned back.
    const OCR::Result result = read(scanPdf({ paper(letter, 180), paper(letter, 90), paper(letter, 270) }));
    ASSERT_EQ(result.pages.size(), 3u);
    EXPECT_EQ(result.pages[0].rotation, 180);
    EXPECT_EQ(result.pages[1].rotation, 270);
    EXPECT_EQ(result.pages[2].rotation, 90);
    for (const OCR::Page &page : result.pages)
        expectLetterText(page);
}

TEST_F(Recognize, honoursTheRotateAttributeAndTheCropBox)
{
    // Lying sideways on the glass, but the page's /Rotate shows it upright.
    ScanPage turnedBack = paper(letter, 90);
    turnedBack.rotateAttribute = 270;
    // Only the top half of the page is visible; the footer below it is cut off.
    ScanPage cropped = paper(letter);
    cropped.lines << QString() << QString() << QString() << QString() << QString() << QString() << QString()
                  << QString() << QString() << QString() << QString() << QString() << QString() << QString()
                  << QStringLiteral("Footer reference hidden");
    cropped.cropBox = QRectF(0, 396, 612, 396);
    const OCR::Result result = read(scanPdf({ turnedBack, cropped }));
    ASSERT_EQ(result.pages.size(), 2u);
    EXPECT_EQ(result.pages[0].rotation, 0);
    expectLetterText(result.pages[0]);
    EXPECT_EQ(result.pages[1].rotation, 0);
    expectLetterText(result.pages[1]);
    EXPECT_FALSE(result.pages[1].text.contains(QLatin1String("Footer")));
}

TEST_F(Recognize, joinsColumnsOnOneRow)
{
    ScanPage columns
        = paper({ QStringLiteral("Account holder"), QStringLiteral("Mary Johnson"), QStringLiteral("Main Street"),
            QStringLiteral("Springfield"), QStringLiteral("Oregon"), QStringLiteral("United States") });
    columns.rightColumn = { QStringLiteral("Statement date"), QStringLiteral("April fifth"), QStringLiteral("Page one"),
        QStringLiteral("Branch office"), QStringLiteral("Customer number"), QStringLiteral("Reference") };
    const OCR::Result result = read(scanPdf({ columns }));
    ASSERT_EQ(result.pages.size(), 1u);
    EXPECT_TRUE(result.pages[0].text.startsWith(QLatin1String("Account holder   Statement date\n")))
        << result.pages[0].text.toStdString();
}

TEST_F(Recognize, opensAnEmptyUserPasswordAndRefusesARealOne)
{
    const OCR::Result open = read(scanPdf({ paper(letter) }, PdfPasswords { "", "owner secret" }));
    ASSERT_EQ(open.pages.size(), 1u);
    expectLetterText(open.pages[0]);

    EXPECT_EQ(failure(file(scanPdf({ ScanPage {} }, PdfPasswords { "user secret", "owner secret" }))),
        QStringLiteral("PDF is password protected"));
}

TEST_F(Recognize, failsCleanlyOnFilesThatAreNotReadablePdfs)
{
    QByteArray noise(64 * 1024, Qt::Uninitialized);
    QRandomGenerator generator(7);
    generator.fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
    const QString random = file(noise, QStringLiteral("random.pdf"));
    EXPECT_EQ(failure(random), QStringLiteral("Not a readable PDF"));
    // The hash doesn't depend on the file being a PDF.
    EXPECT_EQ(
        OCR::sha256(random), QString::fromLatin1(QCryptographicHash::hash(noise, QCryptographicHash::Sha256).toHex()));

    EXPECT_EQ(failure(file("<!DOCTYPE html><html><body>Download failed</body></html>", QStringLiteral("page.pdf"))),
        QStringLiteral("Not a readable PDF"));
    EXPECT_EQ(failure(file(QByteArray(), QStringLiteral("empty.pdf"))), QStringLiteral("Not a readable PDF"));
    EXPECT_EQ(failure(file(pdfWithoutPages(), QStringLiteral("none.pdf"))), QStringLiteral("PDF has no pages"));

    const QString missing = folder.filePath(QStringLiteral("gone.pdf"));
    EXPECT_TRUE(failure(missing).startsWith(QLatin1String("The file couldn't be read")));
    EXPECT_EQ(OCR::sha256(missing), std::nullopt);
}

TEST_F(Recognize, aTruncatedFileFailsOrReadsWhatIsLeft)
{
    const QByteArray whole = scanPdf({ paper(letter), paper(letter) });
    const QString path = file(whole.left(whole.size() / 2));
    try {
        const OCR::Result result = OCR::recognize(path, recognizer());
        EXPECT_LE(result.pages.size(), 2u);
    } catch (const OCR::Failure &failure) {
        EXPECT_EQ(failure.message, QStringLiteral("Not a readable PDF"));
    }
}

TEST_F(Recognize, readsAnExtremelyWidePage)
{
    ScanPage banner = paper({ QStringLiteral("Banner") });
    banner.size = QSizeF(20000, 300);
    banner.fontSize = 120;
    EXPECT_EQ(read(scanPdf({ banner })).pages.size(), 1u);
}

TEST_F(Recognize, stopsBetweenPagesOfALongFile)
{
    const QString path = file(repeatedScanPdf(ScanPage {}, 500));
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

TEST(TextRecognizer, refusesLanguagesWhoseDataIsMissing)
{
    try {
        TextRecognizer recognizer(QStringLiteral("eng+qqq"));
        FAIL() << "started without the language's data";
    } catch (const OCR::Failure &failure) {
        EXPECT_TRUE(failure.message.contains(QLatin1String("tesseract-ocr-qqq")));
    }
}

} // namespace
