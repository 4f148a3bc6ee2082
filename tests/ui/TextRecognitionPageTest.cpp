#include "ui/TextRecognitionPage.h"

#include "library/ReaderWorker.h"
#include "ocr/OcrLanguages.h"
#include "ocr/TextQuality.h"
#include "support/ScanPdf.h"
#include "ui/ToneLabel.h"

#include <QPushButton>
#include <QSpinBox>
#include <QTreeWidget>

#include "WindowFixture.h"

namespace {

void touch(const QString &path)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
}

// The text recognition page over a library, with Tesseract's data and Hunspell's dictionaries taken
// from folders of the test's own.
class LanguagesPageTest : public ::testing::Test {
protected:
    LanguagesPageTest()
        : savedTessdata_(qgetenv("TESSDATA_PREFIX"))
        , savedDicpath_(qgetenv("DICPATH"))
    {
        QSettings().clear();
        qputenv("TESSDATA_PREFIX", QFile::encodeName(tessdata.path()));
        qputenv("DICPATH", QFile::encodeName(dictionaries.path()));
    }
    ~LanguagesPageTest() override
    {
        page.reset();
        library.reset();
        QCoreApplication::processEvents();
        restore("TESSDATA_PREFIX", savedTessdata_);
        restore("DICPATH", savedDicpath_);
        QSettings().clear();
    }
    static void restore(const char *name, const QByteArray &value)
    {
        value.isNull() ? qunsetenv(name) : qputenv(name, value);
    }

    // Empty data files for the languages: enough to list them.
    void install(const QStringList &codes)
    {
        for (const QString &code : codes)
            touch(QDir(tessdata.path()).filePath(code + u".traineddata"_s));
    }
    TextRecognitionPage &showPage()
    {
        library = std::make_unique<Library>(LibraryOptions { .extraction = false, .searchDelay = 0ms });
        page = std::make_unique<TextRecognitionPage>(*library);
        page->show();
        return *page;
    }
    QTreeWidget *list() const { return page->findChild<QTreeWidget *>(u"readingLanguages"_s); }
    QStringList codes() const
    {
        QStringList shown;
        for (int index = 0; index < list()->topLevelItemCount(); ++index)
            shown << list()->topLevelItem(index)->data(0, Qt::UserRole).toString();
        return shown;
    }
    QTreeWidgetItem *row(const QString &code) const
    {
        const int index = int(codes().indexOf(code));
        EXPECT_GE(index, 0) << code.toStdString();
        return index < 0 ? nullptr : list()->topLevelItem(index);
    }
    static bool choosable(const QTreeWidgetItem *item)
    {
        return item->flags().testFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
    }
    // Checks or unchecks the language as a click on its box does, and lets the list settle.
    void toggle(const QString &code)
    {
        QTreeWidgetItem *item = row(code);
        ASSERT_TRUE(item && choosable(item)) << code.toStdString();
        item->setCheckState(0, item->checkState(0) == Qt::Checked ? Qt::Unchecked : Qt::Checked);
        QCoreApplication::processEvents();
    }
    static QString setting() { return QSettings().value(OcrLanguages::settingKey).toString(); }

    QTemporaryDir tessdata;
    QTemporaryDir dictionaries;
    std::unique_ptr<Library> library;
    std::unique_ptr<TextRecognitionPage> page;

private:
    QByteArray savedTessdata_;
    QByteArray savedDicpath_;
};

} // namespace

// The installed languages, chosen ones first in the setting's order, each saying what it lacks; common
// languages not installed are shown with their package but can't be chosen.
TEST_F(LanguagesPageTest, languagesInstalledOnesListedChosenFirstWithWhatTheyLack)
{
    install({ u"eng"_s, u"deu"_s, u"fra"_s, u"osd"_s, u"equ"_s });
    touch(QDir(dictionaries.path()).filePath(u"de_DE.dic"_s));
    touch(QDir(dictionaries.path()).filePath(u"de_DE.aff"_s));
    QSettings().setValue(OcrLanguages::settingKey, u"fra+eng"_s);
    showPage();

    const QStringList shown = codes();
    ASSERT_GE(shown.size(), 3);
    EXPECT_EQ(shown.mid(0, 3), (QStringList { u"fra"_s, u"eng"_s, u"deu"_s }));
    EXPECT_FALSE(shown.contains(u"osd"_s));
    EXPECT_FALSE(shown.contains(u"equ"_s));
    EXPECT_EQ(row(u"fra"_s)->checkState(0), Qt::Checked);
    EXPECT_EQ(row(u"eng"_s)->checkState(0), Qt::Checked);
    EXPECT_EQ(row(u"deu"_s)->checkState(0), Qt::Unchecked);
    EXPECT_EQ(row(u"deu"_s)->text(0), u"German (deu)"_s);
    for (const QString &code : shown.mid(3)) {
        EXPECT_FALSE(choosable(row(code))) << code.toStdString();
        EXPECT_TRUE(row(code)->text(1).contains(u"tesseract-ocr-"_s + code)) << row(code)->text(1).toStdString();
    }

    EXPECT_TRUE(row(u"deu"_s)->text(1).isEmpty()) << row(u"deu"_s)->text(1).toStdString();
    // French has a dictionary only where the machine has hunspell-fr installed.
    const bool french = !TextQuality::dictionariesFor(u"fra"_s).isEmpty();
    EXPECT_EQ(row(u"fra"_s)->text(1).contains(u"install hunspell-fr"_s), !french)
        << row(u"fra"_s)->text(1).toStdString();
}

// Each common language without a dictionary package of its own would leave its pages' orientation
// unjudged; the packages named are those of the same language.
TEST(ReadingLanguagesTest, dictionaryPackageNamesThePackageOfTheSameLanguage)
{
    for (const QString &code : ReadingLanguages::common()) {
        const std::optional<QString> package = ReadingLanguages::dictionaryPackage(code);
        ASSERT_TRUE(package) << code.toStdString();
        const QLocale::Language language = QLocale::codeToLanguage(code, QLocale::AnyLanguageCode);
        EXPECT_TRUE(package->startsWith(u"hunspell-"_s + QLocale::languageToCode(language, QLocale::ISO639Part1)))
            << code.toStdString() << " " << package->toStdString();
    }
    EXPECT_FALSE(ReadingLanguages::dictionaryPackage(u"chi_sim"_s));
}

// Checking and unchecking write the setting in the order chosen; the primary language can be changed,
// and the last one stays.
TEST_F(LanguagesPageTest, choosingWritesTheSettingInOrderAndKeepsOne)
{
    install({ u"eng"_s, u"deu"_s, u"fra"_s });
    showPage();
    toggle(u"deu"_s);
    toggle(u"fra"_s);
    EXPECT_EQ(setting(), u"eng+deu+fra"_s);
    EXPECT_EQ(OcrLanguages::setting(), u"eng+deu+fra"_s);

    list()->setCurrentItem(row(u"fra"_s));
    page->findChild<QPushButton *>(u"makePrimaryLanguage"_s)->click();
    EXPECT_EQ(setting(), u"fra+eng+deu"_s);
    EXPECT_EQ(codes().mid(0, 3), (QStringList { u"fra"_s, u"eng"_s, u"deu"_s }));

    toggle(u"eng"_s);
    toggle(u"fra"_s);
    EXPECT_EQ(setting(), u"deu"_s);
    toggle(u"deu"_s);
    EXPECT_EQ(setting(), u"deu"_s);
    EXPECT_EQ(row(u"deu"_s)->checkState(0), Qt::Checked);

    // The limits are the ones the reader is started with.
    page->findChild<QSpinBox *>(u"readTimeLimit"_s)->setValue(30);
    page->findChild<QSpinBox *>(u"readMemoryLimit"_s)->setValue(1024);
    EXPECT_EQ(ReaderSettings::timeout(), 30s);
    EXPECT_EQ(ReaderSettings::memoryLimitMB(), 1024);
}

// A language in the setting without its data says which package provides it; let go of, it can't be
// chosen again.
TEST_F(LanguagesPageTest, missingLanguageNamesItsPackageAndCantBeChosenAgain)
{
    install({ u"eng"_s });
    QSettings().setValue(OcrLanguages::settingKey, u"eng+fra"_s);
    showPage();
    EXPECT_EQ(row(u"fra"_s)->checkState(0), Qt::Checked);
    EXPECT_TRUE(row(u"fra"_s)->text(1).contains(u"tesseract-ocr-fra"_s));
    const auto *problem = page->findChild<ToneLabel *>(u"readingProblem"_s);
    EXPECT_TRUE(problem->isVisibleTo(page.get()));
    EXPECT_EQ(problem->text(), OcrLanguages::problem(u"fra"_s));

    toggle(u"fra"_s);
    EXPECT_EQ(setting(), u"eng"_s);
    EXPECT_FALSE(choosable(row(u"fra"_s)));
    EXPECT_FALSE(problem->isVisibleTo(page.get()));
}

// Reading stopped by a language whose data is missing resumes once the languages are put right.
TEST_F(LanguagesPageTest, readingStoppedByAMissingLanguageResumesWhenItIsLetGo)
{
    const QString english = u"/usr/share/tesseract-ocr/5/tessdata/eng.traineddata"_s;
    ASSERT_TRUE(QFile::link(english, QDir(tessdata.path()).filePath(u"eng.traineddata"_s)));
    qunsetenv("VELLUMARK_READER");
    QTemporaryDir folder;
    writeFile(QDir(folder.path()).filePath(u"letter.pdf"_s),
        scanPdf({ ScanPage { .lines = { u"Dear member of the club"_s } } }));
    QSettings().setValue(OcrLanguages::settingKey, u"eng+jpn"_s);
    showPage();
    library->open(folder.path(), false);
    ASSERT_TRUE(waitUntil([&] { return library->ocrProblem().has_value(); }));
    EXPECT_TRUE(library->ocrProblem()->contains(u"jpn"_s)) << library->ocrProblem()->toStdString();
    const auto *problem = page->findChild<ToneLabel *>(u"readingProblem"_s);
    EXPECT_TRUE(problem->isVisibleTo(page.get()));
    EXPECT_EQ(library->pendingOCR(), 1);

    toggle(u"jpn"_s);
    ASSERT_TRUE(waitUntil([&] { return library->pendingOCR() == 0 && !library->isReading(); }));
    EXPECT_FALSE(library->ocrProblem());
    EXPECT_FALSE(problem->isVisibleTo(page.get()));
    const ScanDocument &read = library->documentsByID().begin()->second;
    EXPECT_EQ(read.ocrStatus, OCRStatus::done);
}
