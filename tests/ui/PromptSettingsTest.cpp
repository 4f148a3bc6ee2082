#include "WindowFixture.h"
// After the fixture, whose first header teaches the tests to print texts.
#include "core/DocDate.h"
#include "extract/Instructions.h"
#include "ui/EmptyState.h"
#include "ui/PromptSettingsView.h"
#include "ui/ToneLabel.h"

#include <QClipboard>
#include <QJsonArray>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>

#include <tuple>

class PromptSettingsTest : public WindowTest {
protected:
    ~PromptSettingsTest() override { page.reset(); }

    PromptSettingsView &makePage()
    {
        // A window of the main window's, so that the fixture's look for unnamed controls covers it.
        page = std::make_unique<PromptSettingsView>(*library, window.get());
        page->setWindowFlag(Qt::Window);
        page->resize(640, 560);
        page->show();
        return *page;
    }
    template <typename T> T *child(const QString &name) const
    {
        T *found = page->findChild<T *>(name);
        EXPECT_NE(found, nullptr) << qPrintable(name);
        return found;
    }
    bool shown(const QString &name) const { return child<QWidget>(name)->isVisibleTo(page.get()); }
    QPlainTextEdit *editor() const { return child<QPlainTextEdit>(u"instructionsEditor"_s); }
    QPushButton *pageButton(const QString &name) const { return child<QPushButton>(name); }
    QString status() const { return child<QLabel>(u"instructionsStatus"_s)->text(); }
    QString explanation() const { return child<QLabel>(u"instructionsExplanation"_s)->text(); }
    void type(const QString &text) const { editor()->setPlainText(text); }
    // The instructions of the last request the model was sent.
    QString lastInstructions() const
    {
        const std::vector<StubRequest> chats = server.requests(u"/api/chat"_s);
        if (chats.empty())
            return {};
        return chats.back().json().value(u"messages"_s).toArray().at(0).toObject().value(u"content"_s).toString();
    }
    bool resultShown() const { return shown(u"trialResult"_s); }
    QString resultTitle() const { return child<QLabel>(u"trialTitle"_s)->text(); }
    ToneLabel *resultDetail() const { return child<ToneLabel>(u"trialDetail"_s); }
    // Whether a trial's answer or failure has been shown.
    bool waitForResult() const
    {
        return waitUntil([&] { return resultShown() && pageButton(u"tryInstructions"_s)->isEnabled(); });
    }

    std::unique_ptr<PromptSettingsView> page;
};

TEST_F(PromptSettingsTest, showsOnlyTheEmptyStateWithoutAFolderAndTheInstructionsOnceOneOpens)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    showWindow();
    makePage();
    EXPECT_TRUE(shown(u"noFolder"_s));
    EXPECT_FALSE(shown(u"instructionsEditor"_s));
    EXPECT_FALSE(shown(u"saveInstructions"_s));

    library->open(folder.path(), false);
    ASSERT_TRUE(waitForQuiet());
    EXPECT_FALSE(shown(u"noFolder"_s));
    EXPECT_TRUE(shown(u"instructionsEditor"_s));
    EXPECT_EQ(editor()->toPlainText(), Extractor::defaultInstructions());
    EXPECT_EQ(status(), u"Using the default instructions."_s);
    EXPECT_TRUE(explanation().contains(u"“"_s + QFileInfo(folder.path()).fileName() + u"”"_s))
        << qPrintable(explanation());
    EXPECT_FALSE(pageButton(u"restoreDefault"_s)->isEnabled());
    EXPECT_EQ(unnamedControls(), QStringList());

    // A folder that can't be opened leaves none open.
    library->open(path(u"a.pdf"_s), false);
    ASSERT_FALSE(library->folder());
    EXPECT_TRUE(shown(u"noFolder"_s));
    EXPECT_FALSE(shown(u"instructionsEditor"_s));
}

TEST_F(PromptSettingsTest, theExplanationSaysWhetherTheModelRunsOnThisComputer)
{
    const auto where
        = [](const QString &server) { return PromptSettingsView::modelLocation(QUrl(server), u"scanbox"_s); };
    for (const QString &local : { u"http://127.0.0.1:11434"_s, u"http://127.0.0.5:8080"_s, u"http://localhost:11434"_s,
             u"http://LocalHost"_s, u"http://[::1]:8080"_s, u"http://0.0.0.0:11434"_s, u"http://ScanBox:11434"_s,
             u"http://scanbox.local:11434"_s })
        EXPECT_EQ(where(local), u"this computer"_s) << qPrintable(local);
    EXPECT_EQ(where(u"http://192.168.1.20:11434"_s), u"192.168.1.20"_s);
    EXPECT_EQ(where(u"https://models.example.org"_s), u"models.example.org"_s);
    EXPECT_EQ(where(u"http://scanbox-2:11434"_s), u"scanbox-2"_s);

    // The page asks the model settings each time it loads.
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    openFolder();
    makePage();
    EXPECT_TRUE(explanation().endsWith(u"runs on this computer."_s)) << qPrintable(explanation());
    QSettings().setValue(u"ModelServer"_s, u"http://models.example.org:11434"_s);
    page->reload();
    EXPECT_TRUE(explanation().endsWith(u"runs on models.example.org."_s)) << qPrintable(explanation());
}

TEST_F(PromptSettingsTest, onlyOneScanWithItsTextReadCanBeTriedAndOnlyFiledScansReextracted)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    fakeScan(u"b.pdf"_s, u"Garden club invoice for the yearly membership fee"_s);
    showWindow();
    library->setPaused(true);
    library->open(folder.path(), false);
    ASSERT_TRUE(waitUntil([&] { return synced && library->documentsByID().size() == 2; }));
    makePage();
    library->setSelection({ idOf(u"a.pdf"_s) });
    QPushButton *tryIt = pageButton(u"tryInstructions"_s);
    QPushButton *reextract = pageButton(u"saveAndReextract"_s);
    const auto tryButton = [&] { return std::tuple(tryIt->text(), tryIt->isEnabled(), tryIt->toolTip()); };
    const auto unread = tryButton();
    EXPECT_EQ(std::get<0>(unread), u"Try on Selected Scan"_s);
    EXPECT_FALSE(std::get<1>(unread));
    EXPECT_TRUE(std::get<2>(unread).contains(u"Select one scan"_s)) << qPrintable(std::get<2>(unread));
    EXPECT_EQ(reextract->text(), u"Save and Re-extract 0 Scans"_s);
    EXPECT_FALSE(reextract->isEnabled());

    // Once read and filed, both follow without the page being loaded again.
    library->setPaused(false);
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(tryIt->text(), u"Try on “a.pdf”"_s);
    EXPECT_TRUE(tryIt->isEnabled());
    EXPECT_NE(tryIt->toolTip(), std::get<2>(unread));
    EXPECT_TRUE(waitUntil([&] { return reextract->text() == u"Save and Re-extract 2 Scans"_s; }));
    EXPECT_TRUE(reextract->isEnabled());

    library->setSelection({ idOf(u"a.pdf"_s), idOf(u"b.pdf"_s) });
    EXPECT_EQ(tryButton(), unread);
}

TEST_F(PromptSettingsTest, saveIsOfferedForAChangedDraftAndReextractWhileTheModelHasFiledScans)
{
    for (int i = 1; i <= 12; ++i)
        fakeScan(u"scan%1.pdf"_s.arg(i), u"Garden club letter number %1 about the spring season"_s.arg(i));
    openFolder();
    makePage();
    QPushButton *save = pageButton(u"saveInstructions"_s);
    QPushButton *reextract = pageButton(u"saveAndReextract"_s);
    ASSERT_TRUE(waitUntil([&] { return reextract->isEnabled(); }));
    EXPECT_EQ(reextract->text(), u"Save and Re-extract 12 Scans"_s);
    EXPECT_FALSE(save->isEnabled());

    type(u"Be brief."_s);
    EXPECT_TRUE(save->isEnabled());
    EXPECT_TRUE(pageButton(u"restoreDefault"_s)->isEnabled());
    type(Extractor::defaultInstructions());
    EXPECT_FALSE(save->isEnabled());
    EXPECT_FALSE(pageButton(u"restoreDefault"_s)->isEnabled());
    EXPECT_TRUE(reextract->isEnabled());
}

TEST_F(PromptSettingsTest, restoreDefaultOnlyChangesTheDraftUntilItIsSaved)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    openFolder();
    makePage();
    type(u"Be brief."_s);
    pageButton(u"saveInstructions"_s)->click();
    EXPECT_EQ(library->customInstructions(), u"Be brief."_s);
    EXPECT_EQ(status(), u"Using custom instructions."_s);
    EXPECT_FALSE(pageButton(u"saveInstructions"_s)->isEnabled());

    pageButton(u"restoreDefault"_s)->click();
    EXPECT_EQ(editor()->toPlainText(), Extractor::defaultInstructions());
    EXPECT_EQ(status(), u"Using custom instructions."_s);
    EXPECT_EQ(library->customInstructions(), u"Be brief."_s);
    EXPECT_TRUE(pageButton(u"saveInstructions"_s)->isEnabled());

    // Loading again drops the unsaved draft.
    page->reload();
    EXPECT_EQ(editor()->toPlainText(), u"Be brief."_s);

    pageButton(u"restoreDefault"_s)->click();
    pageButton(u"saveInstructions"_s)->click();
    EXPECT_EQ(library->customInstructions(), std::nullopt);
    EXPECT_EQ(status(), u"Using the default instructions."_s);
    EXPECT_FALSE(pageButton(u"saveInstructions"_s)->isEnabled());
}

TEST_F(PromptSettingsTest, eachFolderShowsItsOwnInstructions)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    openFolder();
    blockingWait(library->setCustomInstructions(u"Be brief."_s, false));
    QTemporaryDir other;
    library->open(other.path(), false);
    makePage();
    EXPECT_EQ(editor()->toPlainText(), Extractor::defaultInstructions());
    type(u"An unsaved draft."_s);

    // The folder's own text is read after it opened, and replaces the draft of the folder before.
    library->open(folder.path(), false);
    EXPECT_TRUE(waitUntil([&] { return editor()->toPlainText() == u"Be brief."_s; }))
        << qPrintable(editor()->toPlainText());
    EXPECT_EQ(status(), u"Using custom instructions."_s);
    EXPECT_FALSE(pageButton(u"saveInstructions"_s)->isEnabled());
}

TEST_F(PromptSettingsTest, saveAndReextractFilesTheModelsScansAgainAndLeavesHandEditedOnes)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    fakeScan(u"b.pdf"_s, u"Garden club invoice for the yearly membership fee"_s);
    fakeScan(u"c.pdf"_s, u"Garden club minutes of the autumn meeting"_s);
    openFolder();
    blockingWait(library->setOrganization({ idOf(u"c.pdf"_s) }, u"Hand Picked"_s));
    makePage();
    QPushButton *reextract = pageButton(u"saveAndReextract"_s);
    ASSERT_TRUE(waitUntil([&] { return reextract->text() == u"Save and Re-extract 2 Scans"_s; }))
        << qPrintable(reextract->text());

    fileEverythingAs(u"Riverside Council"_s, u"Invoice"_s, u"2024-04-01"_s);
    type(u"Name the sender as printed in the letterhead."_s);
    reextract->click();
    EXPECT_EQ(library->customInstructions(), u"Name the sender as printed in the letterhead."_s);
    const auto organizationOf
        = [&](const QString &name) { return library->documentsByID().at(idOf(name)).organizationName; };
    ASSERT_TRUE(waitUntil([&] {
        return organizationOf(u"a.pdf"_s) == u"Riverside Council"_s
            && organizationOf(u"b.pdf"_s) == u"Riverside Council"_s;
    }));
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(organizationOf(u"c.pdf"_s), u"Hand Picked"_s);
    EXPECT_TRUE(lastInstructions().startsWith(u"Name the sender as printed in the letterhead."_s))
        << qPrintable(lastInstructions());
    EXPECT_EQ(reextract->text(), u"Save and Re-extract 2 Scans"_s);
    EXPECT_EQ(status(), u"Using custom instructions."_s);
}

TEST_F(PromptSettingsTest, aTrialShowsTheAnswerToTheDraftAndStoresNothing)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    openFolder();
    const ScanDocument before = library->documentsByID().at(idOf(u"a.pdf"_s));
    makePage();
    library->setSelection({ idOf(u"a.pdf"_s) });
    type(u"Be brief."_s);
    StubReply answer = StubModelServer::ollamaChat(
        uR"({"firstPage":true,"kind":"Invoice","organization":"Trial Sender","dateLabel":"Date","date":"2024-06-01"})"_s);
    answer.hold = true;
    server.reply(u"POST"_s, u"/api/chat"_s, { answer });

    pageButton(u"tryInstructions"_s)->click();
    EXPECT_TRUE(shown(u"trialProgress"_s));
    EXPECT_FALSE(pageButton(u"tryInstructions"_s)->isEnabled());
    EXPECT_FALSE(resultShown());
    ASSERT_TRUE(waitUntil([&] { return !server.requests(u"/api/chat"_s).empty(); }));
    server.release();
    ASSERT_TRUE(waitForResult());
    EXPECT_FALSE(shown(u"trialProgress"_s));
    EXPECT_EQ(resultTitle(), u"Organization: Trial Sender"_s);
    EXPECT_TRUE(resultDetail()->text().contains(u"Invoice"_s)) << qPrintable(resultDetail()->text());
    EXPECT_TRUE(resultDetail()->text().contains(DocDate::display(u"2024-06-01"_s)))
        << qPrintable(resultDetail()->text());
    EXPECT_NE(resultDetail()->tone(), ToneLabel::Tone::orange);
    EXPECT_TRUE(lastInstructions().startsWith(u"Be brief."_s)) << qPrintable(lastInstructions());

    child<QToolButton>(u"copyTrialResult"_s)->click();
    const QString copied = QGuiApplication::clipboard()->text();
    EXPECT_TRUE(copied.contains(u"Trial Sender"_s) && copied.contains(u"Invoice"_s)) << qPrintable(copied);

    // Nothing of the trial was kept: not the answer, nor the draft.
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(library->documentsByID().at(idOf(u"a.pdf"_s)).organizationName, before.organizationName);
    EXPECT_EQ(library->customInstructions(), std::nullopt);
}

TEST_F(PromptSettingsTest, aTrialTheModelCantAnswerShowsWhy)
{
    fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
    openFolder();
    makePage();
    library->setSelection({ idOf(u"a.pdf"_s) });

    server.reply(u"POST"_s, u"/api/chat"_s, { StubModelServer::json(503, R"({"error":"server busy"})") });
    pageButton(u"tryInstructions"_s)->click();
    ASSERT_TRUE(waitForResult());
    EXPECT_EQ(resultDetail()->tone(), ToneLabel::Tone::orange);
    EXPECT_TRUE(resultDetail()->text().contains(u"503"_s)) << qPrintable(resultDetail()->text());

    // No server at all.
    QSettings().setValue(u"ModelServer"_s, u"http://127.0.0.1:9"_s);
    library->modelSettingsChanged();
    pageButton(u"tryInstructions"_s)->click();
    ASSERT_TRUE(waitUntil([&] { return resultDetail()->text().contains(u"127.0.0.1:9"_s); }))
        << qPrintable(resultDetail()->text());
    EXPECT_TRUE(resultShown());
    EXPECT_EQ(resultDetail()->tone(), ToneLabel::Tone::orange);
}

class HeldTrialTest : public PromptSettingsTest {
protected:
    // The folder open, its scan selected, and a trial of it started whose answer the server holds back.
    void startHeldTrial(const QString &organization)
    {
        fakeScan(u"a.pdf"_s, u"Garden club newsletter for the spring season"_s);
        openFolder();
        makePage();
        library->setSelection({ idOf(u"a.pdf"_s) });
        StubReply held = StubModelServer::ollamaChat(
            uR"({"firstPage":true,"kind":"Letter","organization":"%1","dateLabel":"Date","date":"2024-03-05"})"_s.arg(
                organization));
        held.hold = true;
        server.reply(u"POST"_s, u"/api/chat"_s, { held });
        const std::size_t asked = server.requests(u"/api/chat"_s).size();
        pageButton(u"tryInstructions"_s)->click();
        ASSERT_TRUE(waitUntil([&] { return server.requests(u"/api/chat"_s).size() > asked; }));
    }
};

TEST_F(HeldTrialTest, aPageClosedDuringItsTrialIsLeftInPeace)
{
    startHeldTrial(u"Closed Page"_s);
    page.reset();
    server.release();

    // A new page's trial waits its turn for the model, so it answers after the first one ended.
    fileEverythingAs(u"Garden Club"_s, u"Letter"_s, u"2024-03-05"_s);
    makePage();
    pageButton(u"tryInstructions"_s)->click();
    ASSERT_TRUE(waitForResult());
    EXPECT_EQ(resultTitle(), u"Organization: Garden Club"_s);
}

TEST_F(HeldTrialTest, anAnswerForTheFolderBeforeIsDropped)
{
    startHeldTrial(u"Old Folder"_s);
    QTemporaryDir other;
    writeFakeScan(QDir(other.path()).filePath(u"z.pdf"_s),
        { u"Riverside council tax notice for the coming year, with kind regards from the office."_s });
    synced = false;
    library->open(other.path(), false);
    EXPECT_FALSE(shown(u"trialProgress"_s));
    server.release();
    // Filing z.pdf needs the model, which the trial holds until it has ended.
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(library->documentsByID().at(idOf(u"z.pdf"_s)).organizationName, u"Old Folder"_s);
    EXPECT_FALSE(resultShown());
    EXPECT_TRUE(shown(u"instructionsEditor"_s));
}
