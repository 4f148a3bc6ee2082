#include "library/DocumentTableModel.h"
#include "library/DragItem.h"
#include "library/LibraryFixture.h"
#include "library/Provenance.h"
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
    const WorkState everything {
        .reading = { 7 }, .currentExtraction = u"b.pdf"_s, .paused = true, .requested = { 7 }, .modelUnavailable = true
    };
    WorkState asked = everything;
    asked.reading.clear();
    asked.currentExtraction = std::nullopt;
    WorkState paused = asked;
    paused.requested.clear();
    // Another file's name ending the same way is not this one.
    paused.reading = { 8 };
    paused.currentExtraction = u"ab.pdf"_s;
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

TEST(Provenance, theFirstConditionThatHoldsWinsAndTheButtonFollowsIt)
{
    using Action = Provenance::Action;
    ScanDocument scan { .id = 7, .path = u"2024/b.pdf"_s, .ocrStatus = OCRStatus::done };
    const auto with = [&scan](ExtractStatus extract, OCRStatus ocr = OCRStatus::done) {
        ScanDocument changed = scan;
        changed.extractStatus = extract;
        changed.ocrStatus = ocr;
        return changed;
    };
    const ProvenanceState idle { .pendingExtraction = 4 };
    ProvenanceState asking = idle;
    asking.work.currentExtraction = u"b.pdf"_s;
    asking.modelProblem = u"The local model is unavailable"_s;
    ProvenanceState away = idle;
    away.modelProblem = u"The local model is unavailable"_s;
    away.work.requested = { 7 };
    ProvenanceState asked = idle;
    asked.work.requested = { 7 };
    asked.work.paused = true;
    ProvenanceState paused = idle;
    paused.work.paused = true;
    // Another file whose name ends the same way is not this one.
    paused.work.currentExtraction = u"ab.pdf"_s;

    scan.error = u"The model gave up"_s;
    scan.organizationName = u"Garden Club"_s;
    const std::vector<std::tuple<ScanDocument, ProvenanceState, std::optional<QString>, Action>> cases {
        { with(ExtractStatus::manual), asking, u"Set by you."_s, Action::extractAgain },
        { with(ExtractStatus::failed), asking, u"The model gave up"_s, Action::extractAgain },
        { with(ExtractStatus::done), asking, u"Found by the local model."_s, Action::extractAgain },
        { with(ExtractStatus::pending), asking, u"Asking the local model…"_s, Action::none },
        { with(ExtractStatus::pending), away, u"The local model is unavailable."_s, Action::none },
        { with(ExtractStatus::pending), asked, u"Next up for the local model."_s, Action::none },
        { with(ExtractStatus::pending), idle, u"Waiting for the local model (4 in line)…"_s, Action::extractNow },
        { with(ExtractStatus::pending), paused, u"Paused."_s, Action::extractNow },
        { with(ExtractStatus::pending, OCRStatus::pending), idle, std::nullopt, Action::none },
        { with(ExtractStatus::manual, OCRStatus::pending), idle, u"Set by you."_s, Action::none },
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto &[document, state, text, action] = cases[i];
        const Provenance said = provenance(document, state);
        EXPECT_EQ(said.status, text) << "case " << i;
        EXPECT_EQ(said.action, action) << "case " << i;
        EXPECT_EQ(said.failed, document.extractStatus == ExtractStatus::failed) << "case " << i;
    }

    // The model's own answer is told only when it differs from the name filed by more than case.
    scan.modelOrganization = u"GARDEN CLUB"_s;
    EXPECT_EQ(provenance(with(ExtractStatus::done), idle).status, u"Found by the local model."_s);
    scan.modelOrganization = u"Garden Club e.V."_s;
    EXPECT_EQ(provenance(with(ExtractStatus::done), idle).status, u"The local model said “Garden Club e.V.”."_s);
    scan.error.reset();
    EXPECT_EQ(provenance(with(ExtractStatus::failed), idle).status, u""_s);
}

TEST(Provenance, theSimilarScanAndTheLogAreToldOnlyWhenThereIsSomethingToTell)
{
    ScanDocument scan { .id = 7, .path = u"b.pdf"_s, .ocrStatus = OCRStatus::done };
    ProvenanceState state;
    EXPECT_EQ(provenance(scan, state).similar, std::nullopt);
    scan.similarID = 3;
    EXPECT_EQ(provenance(scan, state).similar, std::nullopt);
    scan.similarPath = u"2023/old bill.pdf"_s;
    EXPECT_EQ(provenance(scan, state).similar, u"Looks like old bill.pdf; the model was given that as a hint."_s);
    state.similar = ScanDocument { .id = 3, .organizationName = u"Water Works"_s };
    EXPECT_EQ(provenance(scan, state).similar,
        u"Looks like old bill.pdf (Water Works); the model was given that as a hint."_s);

    scan.extractLog = u"page 1: Water Works"_s;
    EXPECT_FALSE(provenance(scan, state).showsLog);
    scan.extractStatus = ExtractStatus::failed;
    EXPECT_TRUE(provenance(scan, state).showsLog);
}

TEST(PageText, captionsNumberPagesOfLongerScansAndSayWhichWayTheyWereScanned)
{
    EXPECT_EQ(pageCaption(0, 1, {}), u""_s);
    EXPECT_EQ(pageCaption(0, 1, { 180 }), u"Scanned upside down"_s);
    EXPECT_EQ(pageCaption(1, 3, { 0, 90 }), u"Page 2 · Scanned sideways"_s);
    EXPECT_EQ(pageCaption(2, 3, { 0, 90 }), u"Page 3"_s);
    EXPECT_EQ(pageCaption(0, 2, { 270 }), u"Page 1 · Scanned sideways"_s);

    const QLocale english(QLocale::English, QLocale::UnitedStates);
    EXPECT_EQ(sizeText(1'234'567, 1, english), u"1.2 MB, 1 page"_s);
    EXPECT_EQ(sizeText(999, 3, english), u"999 bytes, 3 pages"_s);
    EXPECT_EQ(sizeText(2048, std::nullopt, english), u"2.0 kB"_s);
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
