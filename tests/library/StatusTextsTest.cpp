#include "library/DocumentTableModel.h"
#include "library/DragItem.h"
#include "library/LibraryFixture.h"
#include "library/StatusLabel.h"
#include "library/StatusLine.h"
#include "support/ScriptedModel.h"

namespace {

using Tone = StatusLabel::Tone;

TEST(StatusLabel, theFirstConditionThatHoldsWinsComparingTheCurrentFileByName)
{
    ScanDocument scan { .id = 7, .path = u"2024/b.pdf"_s };
    const auto with = [&scan](OCRStatus ocr, ExtractStatus extract, bool missing = false) {
        ScanDocument changed = scan;
        changed.ocrStatus = ocr;
        changed.extractStatus = extract;
        changed.missing = missing;
        return changed;
    };
    const WorkState idle;
    const WorkState everything { .currentOCR = u"b.pdf"_s,
        .currentExtraction = u"b.pdf"_s,
        .paused = true,
        .requested = { 7 },
        .modelUnavailable = true };
    WorkState asked = everything;
    asked.currentOCR = asked.currentExtraction = std::nullopt;
    WorkState paused = asked;
    paused.requested.clear();
    // Another file's name ending the same way is not this one.
    paused.currentOCR = paused.currentExtraction = u"ab.pdf"_s;
    WorkState modelAway = idle;
    modelAway.modelUnavailable = true;

    const std::vector<std::tuple<ScanDocument, WorkState, QString, Tone>> cases {
        { with(OCRStatus::failed, ExtractStatus::failed, true), everything, u"File missing"_s, Tone::red },
        { with(OCRStatus::pending, ExtractStatus::pending, true), idle, u"File missing"_s, Tone::red },
        { with(OCRStatus::failed, ExtractStatus::failed), everything, u"Unreadable"_s, Tone::red },
        { with(OCRStatus::pending, ExtractStatus::pending), everything, u"Reading…"_s, Tone::secondary },
        { with(OCRStatus::pending, ExtractStatus::pending), asked, u"Next up"_s, Tone::secondary },
        { with(OCRStatus::pending, ExtractStatus::pending), paused, u"Paused"_s, Tone::secondary },
        { with(OCRStatus::pending, ExtractStatus::pending), modelAway, u"Reading…"_s, Tone::secondary },
        { with(OCRStatus::done, ExtractStatus::manual), everything, u"Edited"_s, Tone::secondary },
        { with(OCRStatus::done, ExtractStatus::failed), everything, u"Model failed"_s, Tone::orange },
        { with(OCRStatus::done, ExtractStatus::done), everything, u"Needs review"_s, Tone::orange },
        { with(OCRStatus::done, ExtractStatus::pending), everything, u"Extracting…"_s, Tone::secondary },
        { with(OCRStatus::done, ExtractStatus::pending), asked, u"Next up"_s, Tone::secondary },
        { with(OCRStatus::done, ExtractStatus::pending), paused, u"Paused"_s, Tone::secondary },
        { with(OCRStatus::done, ExtractStatus::pending), modelAway, u"Waiting"_s, Tone::orange },
        { with(OCRStatus::done, ExtractStatus::pending), idle, u"Extracting…"_s, Tone::secondary },
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto &[document, work, text, tone] = cases[i];
        const StatusLabel label = statusLabel(document, work);
        EXPECT_EQ(label.text, text) << "case " << i;
        EXPECT_EQ(label.tone, tone) << "case " << i;
    }

    scan.organizationID = 1;
    scan.date = u"2024-01-02"_s;
    EXPECT_EQ(statusLabel(with(OCRStatus::done, ExtractStatus::done), idle).text, u"Done"_s);
}

TEST(DragItem, payloadsReadBackWhatWasWrittenAndRefuseOtherTexts)
{
    EXPECT_EQ(scansPayload({ 12, 3, 7 }), u"vellumark-docs:3,7,12"_s);
    EXPECT_EQ(scansFromPayload(scansPayload({ 12, 3, 7 })), (DocumentIDSet { 3, 7, 12 }));
    EXPECT_EQ(scansFromPayload(u"vellumark-docs:4,,x,5 ,9"), (DocumentIDSet { 4, 9 }));
    EXPECT_EQ(scansFromPayload(u"vellumark-docs:"), DocumentIDSet {});
    EXPECT_EQ(scansFromPayload(u"4,5"), std::nullopt);
    EXPECT_EQ(scansFromPayload(organizationPayload(4)), std::nullopt);

    EXPECT_EQ(organizationFromPayload(organizationPayload(42)), 42);
    EXPECT_EQ(organizationFromPayload(u"vellumark-org:x"), std::nullopt);
    EXPECT_EQ(organizationFromPayload(scansPayload({ 42 })), std::nullopt);
}

class StatusLineTest : public CatalogueLibrary { };

TEST_F(StatusLineTest, pausedCountsOnlyWhatIsLeftAndNamesTheScansAskedFor)
{
    const auto first = add({ .path = u"a.pdf"_s });
    add({ .path = u"b.pdf"_s });
    add({ .path = u"c.pdf"_s, .ocrStatus = u"done"_s, .extractStatus = u"done"_s });
    Library &library = open();

    EXPECT_EQ(statusLine(library).work, u"Reading text: 2 left"_s);
    EXPECT_EQ(statusLine(library).paused, std::nullopt);
    library.setPaused(true);
    EXPECT_EQ(statusLine(library).paused, u"Paused: 2 to read"_s);
    EXPECT_EQ(statusLine(library).requested, std::nullopt);
    library.request({ first });
    EXPECT_EQ(statusLine(library).requested, u"1 more you asked for"_s);
    library.setPaused(false);
    EXPECT_EQ(statusLine(library).paused, std::nullopt);
    EXPECT_EQ(statusLine(library).model, std::nullopt);
}

class ModelAwayTest : public LibraryTest { };

TEST_F(ModelAwayTest, scansReadButNotFiledWaitAndTheStatusBarSaysWhy)
{
    fakeScan(u"bill.pdf"_s, { u"Water bill"_s });
    const auto away = std::make_shared<ScriptedModel>();
    away->setAvailability({ false, u"The model server at 127.0.0.1:9 isn't answering"_s });
    openLibrary(away);
    DocumentTableModel table(*library);
    ASSERT_TRUE(waitUntil(
        [&] { return library->modelProblem().has_value() && library->pendingOCR() == 0 && !library->currentOCR(); }));

    const StatusLine line = statusLine(*library);
    EXPECT_EQ(line.work, u"Finding organizations and dates: 1 left"_s);
    EXPECT_EQ(line.model, u"The model server at 127.0.0.1:9 isn't answering: organizations and dates are on hold"_s);
    ASSERT_EQ(table.rowCount(), 1);
    EXPECT_EQ(table.index(0, DocumentTableModel::status).data(), u"Waiting"_s);
    EXPECT_EQ(table.index(0, DocumentTableModel::status).data(DocumentTableModel::StatusToneRole), int(Tone::orange));
}

} // namespace
