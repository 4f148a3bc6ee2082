#include "library/LibraryFixture.h"
#include "support/ScriptedModel.h"

#include <QThread>

namespace {

using Kind = Extractor::GenerationError::Kind;

const QString waterBill = u"Acme Water utility bill for the spring quarter, amount due 42.10"_s;
const QString filedWater = u"water.pdf: Filed / Acme Water, Utility bill, no date"_s;

class ExtractionLoop : public LibraryTest {
protected:
    std::vector<QString> queue() const { return activity(ActivityEntry::Kind::queue); }
    std::size_t count(const QString &title) const
    {
        return std::size_t(std::ranges::count_if(library->activity().entries(), [&](const ActivityEntry &entry) {
            return entry.kind == ActivityEntry::Kind::queue && entry.title == title;
        }));
    }
    bool waitForFiling()
    {
        return waitUntil([&] { return library->pendingExtraction() == 0 && !library->isExtracting(); });
    }
    // Opens the water bill's folder without waiting for it to be read.
    void openWithWaterBill(std::shared_ptr<ScriptedModel> with, LibraryOptions given = options())
    {
        fakeScan(u"water.pdf"_s, { waterBill });
        library = std::make_unique<Library>(given);
        library->setLanguageModel(std::move(with));
        library->open(folder.path(), false);
    }
    ScanDocument water() const { return *document(u"water.pdf"_s); }

    std::shared_ptr<ScriptedModel> model = std::make_shared<ScriptedModel>();
};

// Answers the water bill; refuses to give anything usable for every other page.
ScriptedModel::Reply billsOnly(const ScriptedModel::Call &call, const std::stop_token &)
{
    if (!call.request.prompt.contains("Acme"_L1))
        return Script::error(Kind::decodingFailure, u"not JSON"_s);
    if (call.structured)
        return Script::facts(true, u"Utility bill"_s, u"Acme Water"_s, QString());
    return Script::plain(true, u"Utility bill"_s, u"Acme Water"_s, QString());
}

TEST_F(ExtractionLoop, filesScansKeepsTheirTranscriptsAndGivesUpOnThoseNoPageAnswers)
{
    fakeScan(u"water.pdf"_s, { waterBill });
    fakeScan(u"club/news.pdf"_s, { u"Garden club newsletter with the spring planting schedule inside"_s });
    model->setRule(billsOnly);
    openLibrary(model);
    ASSERT_TRUE(waitForQuiet());

    EXPECT_EQ(water().extractStatus, ExtractStatus::done);
    EXPECT_EQ(water().organizationName, u"Acme Water"_s);
    const ScanDocument news = *document(u"club/news.pdf"_s);
    EXPECT_EQ(news.extractStatus, ExtractStatus::failed);
    EXPECT_EQ(count(u"Gave up"_s), 1u);
    const std::vector<QString> log = queue();
    EXPECT_NE(std::ranges::find(log, filedWater), log.end());

    // Both transcripts are kept: the failed one with every request it made.
    EXPECT_EQ(blockingWait(library->trace(water().id))->attempts.size(), 1u);
    EXPECT_GE(blockingWait(library->trace(news.id))->attempts.size(), 2u);

    // Trying other instructions changes nothing in the catalogue.
    const ScanDocument before = water();
    const Library::Trial trial = blockingWait(library->tryExtraction(before.id, u"Name the utility."_s));
    ASSERT_TRUE(trial.output);
    EXPECT_EQ(trial.output->organization, u"Acme Water"_s);
    EXPECT_TRUE(model->calls().back().request.instructions.contains("Name the utility."_L1));
    ASSERT_TRUE(waitUntil([&] { return library->activity().entries().back().file == u"water.pdf (Try)"_s; }));
    EXPECT_EQ(water(), before);
    EXPECT_EQ(queue().size(), 2u);
}

// A busy model, a pause while the model works, a server that stops, and its return.
TEST_F(ExtractionLoop, noScanIsMarkedWhileTheModelIsBusyPausedOrAwayAndFilingResumesWhenItReturns)
{
    const QString gone = u"The model server at 127.0.0.1:11434 isn't answering"_s;
    enum State { busy, working, stopping, back };
    std::atomic<State> state = busy;
    std::atomic<bool> asked = false;
    model->setRule([&state, &asked, gone, model = model.get()](
                       const ScriptedModel::Call &call, const std::stop_token &stop) -> ScriptedModel::Reply {
        if (state == busy)
            return Script::error(Kind::concurrentRequests, u"server busy"_s);
        for (asked = true; state == working && !stop.stop_requested();)
            QThread::msleep(5);
        if (state == stopping) {
            model->setAvailability({ false, gone });
            return Script::error(Kind::assetsUnavailable, gone);
        }
        return billsOnly(call, stop);
    });
    openWithWaterBill(model);
    ASSERT_TRUE(waitUntil([&] { return count(u"Model busy, retrying in 15 s"_s) >= 3; }));
    EXPECT_EQ(library->modelWaiting(), u"server busy"_s);

    // An answer that arrives after the pause is not saved.
    state = working;
    ASSERT_TRUE(waitUntil([&] { return asked.load(); }));
    library->setPaused(true);
    EXPECT_FALSE(library->isExtracting());
    state = back;
    // Time for a result that slipped through to be saved.
    waitUntil([] { return false; }, 300ms);
    EXPECT_EQ(water().extractStatus, ExtractStatus::pending);

    // The server stops while the scan is asked about; it is polled but neither asked nor logged again.
    state = stopping;
    library->setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return library->modelProblem() == gone; }));
    EXPECT_FALSE(library->isExtracting());
    const std::size_t calls = model->calls().size(), logged = queue().size();
    waitUntil([] { return false; }, 200ms);
    EXPECT_EQ(model->calls().size(), calls);
    EXPECT_EQ(queue().size(), logged);
    EXPECT_EQ(water().extractStatus, ExtractStatus::pending);

    state = back;
    model->setAvailability({ true, std::nullopt });
    ASSERT_TRUE(waitForFiling());
    EXPECT_EQ(library->modelProblem(), std::nullopt);
    EXPECT_EQ(library->modelWaiting(), std::nullopt);
    EXPECT_EQ(queue().back(), filedWater);
    EXPECT_EQ(count(u"Filed"_s), 1u);
    EXPECT_EQ(count(u"Gave up"_s), 0u);
}

TEST_F(ExtractionLoop, anotherModelChosenWhileTheFirstIsAwayIsAskedAtOnce)
{
    const auto away = std::make_shared<ScriptedModel>();
    away->setAvailability({ false, u"The model server at 127.0.0.1:9 isn't answering"_s });
    // The old model would only be asked again in an hour.
    LibraryOptions patient = options();
    patient.modelPoll = 1h;
    openWithWaterBill(away, patient);
    ASSERT_TRUE(waitUntil([&] { return library->modelProblem().has_value() && library->pendingOCR() == 0; }));

    model->setRule(billsOnly);
    library->setLanguageModel(model);
    ASSERT_TRUE(waitForFiling());
    EXPECT_EQ(library->modelProblem(), std::nullopt);
    EXPECT_EQ(water().extractStatus, ExtractStatus::done);
}

} // namespace
