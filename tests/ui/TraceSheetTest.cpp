#include "WindowFixture.h"
// After the fixture, whose first header teaches the tests to print texts.
#include "core/DocDate.h"
#include "store/Database.h"
#include "ui/AttemptView.h"
#include "ui/EmptyState.h"
#include "ui/ToneLabel.h"
#include "ui/TraceSheet.h"
#include "ui/TraceView.h"

#include <QClipboard>
#include <QPushButton>
#include <QTest>

namespace {

class TraceSheetTest : public WindowTest {
protected:
    ScanDocument document(const QString &name) const { return library->documentsByID().at(idOf(name)); }
    // The sheet over the window, shown and done loading.
    std::unique_ptr<TraceSheet> openSheet(const QString &name)
    {
        auto sheet = std::make_unique<TraceSheet>(*library, document(name), window.get());
        sheet->show();
        EXPECT_TRUE(waitUntil([&] { return sheet->loaded(); }));
        return sheet;
    }
};

TEST_F(TraceSheetTest, showsTheStoredTranscriptCopiesItAllAndCloses)
{
    fakeScan(u"letter.pdf"_s, u"Garden club newsletter for the spring season"_s);
    openFolder();
    auto sheet = openSheet(u"letter.pdf"_s);
    EXPECT_EQ(sheet->objectName(), u"transcript"_s);
    EXPECT_EQ(sheet->findChild<QLabel *>(u"transcriptTitle"_s)->text(), u"Model Transcript: letter.pdf"_s);
    const std::optional<Extractor::Trace> stored = blockingWait(library->trace(idOf(u"letter.pdf"_s)));
    ASSERT_TRUE(stored);
    auto *view = sheet->findChild<TraceView *>();
    ASSERT_NE(view, nullptr);
    ASSERT_TRUE(view->isVisibleTo(sheet.get()));
    const QList<AttemptView *> attempts = view->findChildren<AttemptView *>();
    ASSERT_EQ(attempts.size(), qsizetype(stored->attempts.size()));
    for (qsizetype index = 0; index < attempts.size(); ++index) {
        EXPECT_EQ(attempts[index]->number(), index + 1);
        EXPECT_EQ(attempts[index]->attempt(), stored->attempts[std::size_t(index)]);
    }
    EXPECT_EQ(unnamedControls(), QStringList());

    sheet->findChild<QPushButton *>(u"copyTranscript"_s)->click();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), stored->fullText());

    // Return is "Done", wherever the focus is.
    QGuiApplication::clipboard()->clear();
    QTest::keyClick(sheet->findChild<QPushButton *>(u"copyTranscript"_s), Qt::Key_Return);
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(sheet->result(), QDialog::Accepted);
    EXPECT_TRUE(QGuiApplication::clipboard()->text().isEmpty());
}

TEST_F(TraceSheetTest, aScanWithoutTranscriptSaysSoAndASheetClosedWhileLoadingIsLeftAlone)
{
    fakeScan(u"old.pdf"_s, u"Garden club newsletter for the spring season"_s);
    openFolder();
    Database(*library->databasePath())
        .run(u"UPDATE documents SET extract_trace = NULL WHERE id = ?"_s, { idOf(u"old.pdf"_s) });
    auto sheet = openSheet(u"old.pdf"_s);
    auto *empty = sheet->findChild<EmptyState *>(u"transcriptEmpty"_s);
    ASSERT_TRUE(empty->isVisibleTo(sheet.get()));
    EXPECT_EQ(empty->title(), u"No Transcript"_s);
    EXPECT_EQ(sheet->findChild<TraceView *>(), nullptr);

    auto closing = std::make_unique<TraceSheet>(*library, document(u"old.pdf"_s), window.get());
    closing->show();
    closing.reset();
    // Loads are answered in order: once this one is, the deleted sheet's answer has come and gone.
    blockingWait(library->trace(idOf(u"old.pdf"_s)));
    QCoreApplication::processEvents();
}

TEST(TraceView, pagesShowTheirDatesWithDatesNotOnThePageInOrange)
{
    Extractor::Trace trace { .date = QDateTime::currentDateTime(),
        .system = u"qwen2.5:3b on Ollama"_s,
        .customInstructions = true,
        .pages = { { .page = 0,
                       .organization = u"Acme Water"_s,
                       .kind = u"Utility bill"_s,
                       .date = u"2024-03-12"_s,
                       .firstPage = true,
                       .dateInText = true },
            { .page = 1, .date = u"2024-03-01"_s } } };
    TraceView view(trace);
    EXPECT_EQ(view.findChild<QLabel *>(u"traceSystem"_s)->text(), u"qwen2.5:3b on Ollama • custom instructions"_s);
    const QList<ToneLabel *> dates = view.findChildren<ToneLabel *>(u"pageDate"_s);
    ASSERT_EQ(dates.size(), 2);
    EXPECT_EQ(dates[0]->text(), DocDate::display(u"2024-03-12"_s));
    EXPECT_EQ(dates[0]->tone(), ToneLabel::Tone::normal);
    EXPECT_TRUE(dates[0]->toolTip().isEmpty());
    EXPECT_EQ(dates[1]->tone(), ToneLabel::Tone::orange);
    EXPECT_EQ(dates[1]->toolTip(), u"This date isn’t written on the page"_s);
    QStringList labels;
    for (QLabel *label : view.findChild<QWidget *>(u"tracePages"_s)->findChildren<QLabel *>())
        labels << label->text();
    EXPECT_TRUE(labels.contains(u"1 (first)"_s));
    EXPECT_TRUE(labels.contains(u"2"_s));
}

} // namespace
