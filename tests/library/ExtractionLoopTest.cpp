#include "core/Cancellation.h"
#include "library/LibraryFixture.h"
#include "support/ScriptedModel.h"

#include <QThread>

namespace {

using Kind = Extractor::GenerationError::Kind;

const QString waterBill = QStringLiteral("Acme Water utility bill for the spring quarter, amount due 42.10");
const QString newsletter = QStringLiteral("Garden club newsletter with the spring planting schedule inside");

class ExtractionLoop : public LibraryTest {
protected:
    std::vector<QString> queueEntries() const { return activityTitles(ActivityEntry::Kind::queue); }

    std::size_t count(const QString &title) const
    {
        std::size_t found = 0;
        for (const ActivityEntry &entry : library->activity().entries())
            found += entry.kind == ActivityEntry::Kind::queue && entry.title == title;
        return found;
    }

    // Every scan read and the extraction loop at rest.
    bool waitForQuiet()
    {
        return waitUntil(
            [&] { return library->pendingOCR() == 0 && !library->isReading() && !library->isExtracting(); });
    }

    template <typename T> T await(QCoro::Task<T> task)
    {
        std::optional<T> result;
        [](QCoro::Task<T> task, std::optional<T> &result) -> QCoro::Task<> { result = co_await task; }(
                                                              std::move(task), result);
        EXPECT_TRUE(waitUntil([&] { return result.has_value(); }));
        return std::move(*result);
    }

    std::shared_ptr<ScriptedModel> model = std::make_shared<ScriptedModel>();
};

// Answers the water bill; refuses to give anything usable for every other page.
ScriptedModel::Reply billsOnly(const ScriptedModel::Call &call, const std::stop_token &)
{
    if (!call.request.prompt.contains(QLatin1String("Acme")))
        return Script::error(Kind::decodingFailure, QStringLiteral("not JSON"));
    if (call.structured)
        return Script::facts(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"), QString());
    return Script::plain(true, QStringLiteral("Utility bill"), QStringLiteral("Acme Water"), QString());
}

TEST_F(ExtractionLoop, filesScansKeepsTheirTranscriptsAndGivesUpOnThoseNoPageAnswers)
{
    fakeScan(QStringLiteral("water.pdf"), { waterBill });
    fakeScan(QStringLiteral("club/news.pdf"), { newsletter });
    model->setRule(billsOnly);
    openLibrary(model);
    ASSERT_TRUE(waitForQuiet());

    const ScanDocument water = *document(QStringLiteral("water.pdf"));
    EXPECT_EQ(water.extractStatus, ExtractStatus::done);
    EXPECT_EQ(water.organizationName, QStringLiteral("Acme Water"));
    EXPECT_EQ(water.kind, QStringLiteral("Utility bill"));
    ASSERT_TRUE(water.extractLog);
    EXPECT_FALSE(water.extractLog->isEmpty());
    EXPECT_EQ(library->organizations().size(), 1u);

    const ScanDocument news = *document(QStringLiteral("club/news.pdf"));
    EXPECT_EQ(news.extractStatus, ExtractStatus::failed);
    EXPECT_EQ(news.error, QStringLiteral("The local model wouldn\u2019t answer for any page of this document."));
    EXPECT_EQ(library->pendingExtraction(), 0);
    EXPECT_EQ(library->currentExtraction(), std::nullopt);

    std::vector<QString> queue = queueEntries();
    std::sort(queue.begin(), queue.end());
    ASSERT_EQ(queue.size(), 2u);
    EXPECT_EQ(queue[0],
        QStringLiteral("news.pdf: Gave up / The local model wouldn\u2019t answer for any page of this document."));
    EXPECT_EQ(queue[1], QStringLiteral("water.pdf: Filed / Acme Water, Utility bill, no date"));

    // Every request shows once, finished, under its scan's name.
    std::size_t requests = 0;
    for (const ActivityEntry &entry : library->activity().entries()) {
        if (entry.kind != ActivityEntry::Kind::model)
            continue;
        ++requests;
        EXPECT_NE(entry.outcome, QStringLiteral("Running"));
        EXPECT_TRUE(entry.file == QStringLiteral("water.pdf") || entry.file == QStringLiteral("news.pdf"));
    }
    EXPECT_EQ(requests, model->calls().size());

    // Both transcripts are kept: the failed one with every request it made.
    const std::optional<Extractor::Trace> filed = await(library->trace(water.id));
    ASSERT_TRUE(filed);
    EXPECT_EQ(filed->attempts.size(), 1u);
    const std::optional<Extractor::Trace> failed = await(library->trace(news.id));
    ASSERT_TRUE(failed);
    EXPECT_GE(failed->attempts.size(), 2u);
    // A scan the model gave up on counts as asked too.
    EXPECT_EQ(await(library->modelExtractionCount()), 2);

    // Trying other instructions changes nothing in the catalogue.
    const Library::Trial trial = await(library->tryExtraction(water.id, QStringLiteral("Name the utility.")));
    ASSERT_TRUE(trial.output);
    EXPECT_EQ(trial.output->organization, QStringLiteral("Acme Water"));
    EXPECT_EQ(trial.message, std::nullopt);
    EXPECT_TRUE(model->calls().back().request.instructions.contains(QLatin1String("Name the utility.")));
    ASSERT_TRUE(waitUntil([&] {
        const auto &entries = library->activity().entries();
        return entries.back().file == QStringLiteral("water.pdf (Try)") && entries.back().outcome == u"OK";
    }));
    EXPECT_EQ(*document(QStringLiteral("water.pdf")), water);
    EXPECT_EQ(queueEntries().size(), 2u);
}

TEST_F(ExtractionLoop, aBusyModelIsAskedAgainUntilItAnswersAndNoScanIsMarked)
{
    fakeScan(QStringLiteral("water.pdf"), { waterBill });
    std::atomic<bool> busy = true;
    model->setRule([&busy](const ScriptedModel::Call &call, const std::stop_token &stop) -> ScriptedModel::Reply {
        if (busy)
            return Script::error(Kind::concurrentRequests, QStringLiteral("server busy"));
        return billsOnly(call, stop);
    });
    library = std::make_unique<Library>(options());
    library->setLanguageModel(model);
    library->open(folder.path(), false);

    ASSERT_TRUE(waitUntil([&] { return count(QStringLiteral("Model busy, retrying in 15 s")) >= 3; }));
    EXPECT_EQ(library->modelWaiting(), QStringLiteral("server busy"));
    EXPECT_EQ(document(QStringLiteral("water.pdf"))->extractStatus, ExtractStatus::pending);
    EXPECT_EQ(count(QStringLiteral("Gave up")), 0u);

    busy = false;
    ASSERT_TRUE(waitUntil([&] { return library->pendingExtraction() == 0 && !library->isExtracting(); }));
    EXPECT_EQ(document(QStringLiteral("water.pdf"))->extractStatus, ExtractStatus::done);
    EXPECT_EQ(library->modelWaiting(), std::nullopt);
    EXPECT_EQ(count(QStringLiteral("Filed")), 1u);
}

TEST_F(ExtractionLoop, pausingWhileTheModelWorksLeavesTheScanPending)
{
    fakeScan(QStringLiteral("water.pdf"), { waterBill });
    std::atomic<bool> hold = true;
    model->setRule([&hold](const ScriptedModel::Call &call, const std::stop_token &stop) -> ScriptedModel::Reply {
        while (hold && !stop.stop_requested())
            QThread::msleep(5);
        throwIfCancelled(stop);
        return billsOnly(call, stop);
    });
    openLibrary(model);
    ASSERT_TRUE(waitUntil([&] { return library->currentExtraction() == QStringLiteral("water.pdf"); }));
    ASSERT_TRUE(waitUntil([&] { return !model->calls().empty(); }));

    library->setPaused(true);
    EXPECT_FALSE(library->isExtracting());
    EXPECT_EQ(library->currentExtraction(), std::nullopt);
    hold = false;
    // Time for a result that slipped through to be saved.
    waitUntil([] { return false; }, 300ms);
    EXPECT_EQ(document(QStringLiteral("water.pdf"))->extractStatus, ExtractStatus::pending);
    EXPECT_EQ(count(QStringLiteral("Filed")), 0u);

    library->setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return library->pendingExtraction() == 0 && !library->isExtracting(); }));
    EXPECT_EQ(count(QStringLiteral("Filed")), 1u);
}

TEST_F(ExtractionLoop, aServerThatGoesAwayIsWatchedAndItsReturnResumesFiling)
{
    fakeScan(QStringLiteral("water.pdf"), { waterBill });
    const QString gone = QStringLiteral("The model server at 127.0.0.1:11434 isn't answering");
    // The server stops while the first page is asked about.
    model->setRule([model = model.get(), gone](
                       const ScriptedModel::Call &call, const std::stop_token &stop) -> ScriptedModel::Reply {
        if (model->calls().size() == 1) {
            model->setAvailability({ false, gone });
            return Script::error(Kind::assetsUnavailable, gone);
        }
        return billsOnly(call, stop);
    });
    library = std::make_unique<Library>(options());
    library->setLanguageModel(model);
    library->open(folder.path(), false);

    ASSERT_TRUE(waitUntil([&] { return library->modelProblem().has_value(); }));
    EXPECT_EQ(library->modelProblem(), gone);
    EXPECT_FALSE(library->isExtracting());
    // Polled again and again while away, but neither asked about the scan nor logged again.
    waitUntil([] { return false; }, 200ms);
    EXPECT_EQ(model->calls().size(), 1u);
    EXPECT_EQ(document(QStringLiteral("water.pdf"))->extractStatus, ExtractStatus::pending);
    EXPECT_EQ(queueEntries(),
        (std::vector<QString> { QStringLiteral("water.pdf: Model busy, retrying in 15 s / ") + gone,
            QStringLiteral(": Local model unavailable: ") + gone + QStringLiteral(" / ") }));

    model->setAvailability({ true, std::nullopt });
    ASSERT_TRUE(waitUntil([&] { return library->pendingExtraction() == 0 && !library->isExtracting(); }));
    EXPECT_EQ(library->modelProblem(), std::nullopt);
    const std::vector<QString> queue = queueEntries();
    ASSERT_EQ(queue.size(), 4u);
    EXPECT_EQ(queue[2], QStringLiteral(": Local model available / "));
    EXPECT_EQ(queue[3], QStringLiteral("water.pdf: Filed / Acme Water, Utility bill, no date"));
}

TEST_F(ExtractionLoop, anotherModelChosenWhileTheFirstIsAwayIsAskedAtOnce)
{
    fakeScan(QStringLiteral("water.pdf"), { waterBill });
    const auto away = std::make_shared<ScriptedModel>();
    away->setAvailability({ false, QStringLiteral("The model server at 127.0.0.1:9 isn't answering") });
    // The old model would only be asked again in an hour.
    LibraryOptions patient = options();
    patient.modelPoll = std::chrono::hours(1);
    library = std::make_unique<Library>(patient);
    library->setLanguageModel(away);
    library->open(folder.path(), false);
    ASSERT_TRUE(waitUntil([&] { return library->modelProblem().has_value() && library->pendingOCR() == 0; }));

    model->setRule(billsOnly);
    library->setLanguageModel(model);
    ASSERT_TRUE(waitUntil([&] { return library->pendingExtraction() == 0 && !library->isExtracting(); }));
    EXPECT_EQ(library->modelProblem(), std::nullopt);
    EXPECT_EQ(document(QStringLiteral("water.pdf"))->extractStatus, ExtractStatus::done);
}

} // namespace
