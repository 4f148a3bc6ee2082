#include "extract/Instructions.h"
#include "library/LibraryFixture.h"

#include <QSignalSpy>

namespace {

const QString done = u"done"_s;

class Edit : public CatalogueLibrary {
protected:
    // A scan the model filed under `organization`.
    std::int64_t filed(const QString &path, std::optional<std::int64_t> organization = std::nullopt,
        std::optional<QString> date = std::nullopt)
    {
        return add(
            { .path = path, .ocrStatus = done, .extractStatus = done, .date = date, .organizationID = organization });
    }
    std::vector<QString> organizationNames()
    {
        std::vector<QString> names;
        for (const Organization &organization : library->organizations())
            names.push_back(organization.name + u':' + QString::number(organization.documentCount));
        return names;
    }
    // An edit reads again only what it changed, and the lists come out as a full reading gives them.
    void expectAsReadAfresh()
    {
        const std::unique_ptr<Catalogue> afresh = readAfresh();
        EXPECT_EQ(library->documentsByID(), afresh->documentsByID());
        EXPECT_EQ(library->organizations(), afresh->organizations());
    }
};

TEST_F(Edit, filingByHandAndClearingItKeepTheListsAndTheSearchAsAFullReadingWould)
{
    const auto acme = organization(u"Acme Corp"_s);
    const auto first = filed(u"a.pdf"_s, acme);
    const auto second = filed(u"b.pdf"_s, acme);
    Library &library = open();

    blockingWait(library.setOrganization({ first, second }, u"Bigco Holdings"_s));
    EXPECT_EQ(organizationNames(), std::vector { u"Bigco Holdings:2"_s });
    expectAsReadAfresh();

    // With no scan left to file under it, Bigco goes, from the search too.
    blockingWait(library.setOrganization({ first, second }, std::nullopt));
    EXPECT_EQ(document(second).organizationID, std::nullopt);
    EXPECT_TRUE(library.organizations().empty());
    library.setSearchText(u"bigco"_s);
    ASSERT_TRUE(waitUntil([&] { return library.searchMatches().has_value(); }));
    EXPECT_EQ(library.searchMatches(), DocumentIDSet {});
}

TEST_F(Edit, renamingOrMergingIntoAnotherOrganizationMovesTheSidebarAlong)
{
    const auto acme = organization(u"Acme"_s);
    const auto bigco = organization(u"Bigco"_s);
    const auto zeta = organization(u"Zeta"_s);
    const auto a = filed(u"a.pdf"_s, acme);
    filed(u"b.pdf"_s, bigco);
    filed(u"z.pdf"_s, zeta);
    const auto unfiled = filed(u"u.pdf"_s);
    Library &library = open();

    library.setSidebar(SidebarItem::organization(acme));
    // A new name that is another's merges the two.
    blockingWait(library.renameOrganization(acme, u"BIGCO"_s));
    EXPECT_EQ(organizationNames(), (std::vector { u"Bigco:2"_s, u"Zeta:1"_s }));
    EXPECT_EQ(document(a).organizationID, bigco);
    EXPECT_EQ(library.sidebar(), SidebarItem::all());
    expectAsReadAfresh();

    library.setSidebar(SidebarItem::organization(zeta));
    blockingWait(library.mergeOrganization(zeta, bigco));
    EXPECT_EQ(library.sidebar(), SidebarItem::organization(bigco));
    EXPECT_EQ(organizationNames(), std::vector { u"Bigco:3"_s });
    expectAsReadAfresh();

    // A scan no edit touched is not read again: a change behind the library's back stays unseen.
    db->run(u"UPDATE documents SET doc_kind = 'Letter' WHERE id = ?"_s, { unfiled });
    blockingWait(library.deleteOrganization(bigco));
    EXPECT_TRUE(library.organizations().empty());
    EXPECT_EQ(library.sidebar(), SidebarItem::all());
    EXPECT_EQ(document(a).extractStatus, ExtractStatus::done);
    EXPECT_EQ(document(a).organizationID, std::nullopt);
    EXPECT_EQ(document(unfiled).kind, std::nullopt);
}

TEST_F(Edit, factsSetByHandAndAskingAgainNeverUndoWhatWasFiledByHand)
{
    const auto acme = organization(u"Acme"_s);
    const auto edited = filed(u"edited.pdf"_s, acme, u"2024-01-01"_s);
    const auto complete = filed(u"complete.pdf"_s, acme, u"2024-01-01"_s);
    const auto undated = filed(u"undated.pdf"_s, acme);
    const auto byHand = add({ .path = u"hand.pdf"_s, .ocrStatus = done, .extractStatus = u"manual"_s });
    const auto broken = add({ .path = u"broken.pdf"_s, .ocrStatus = done, .extractStatus = u"failed"_s });
    Library &library = open();

    blockingWait(library.setDate({ edited }, QDate(987, 6, 5)));
    EXPECT_EQ(document(edited).date, u"0987-06-05"_s);
    EXPECT_EQ(document(edited).extractStatus, ExtractStatus::manual);

    // Only what the model filed without a date or failed on.
    blockingWait(library.reextractIncomplete());
    EXPECT_EQ(document(undated).extractStatus, ExtractStatus::pending);
    EXPECT_EQ(document(broken).extractStatus, ExtractStatus::pending);
    EXPECT_EQ(document(complete).extractStatus, ExtractStatus::done);

    // Instructions are kept only when they differ from the defaults; a change may ask about every
    // scan the model filed.
    blockingWait(library.setCustomInstructions(u"  Prefer short names.\n"_s, false));
    EXPECT_EQ(value(u"SELECT value FROM settings WHERE key = 'instructions'"_s), u"  Prefer short names.\n"_s);
    EXPECT_EQ(document(complete).extractStatus, ExtractStatus::done);
    blockingWait(library.setCustomInstructions(Extractor::defaultInstructions(), true));
    EXPECT_EQ(library.customInstructions(), std::nullopt);
    EXPECT_EQ(value(u"SELECT COUNT(*) FROM settings WHERE key = 'instructions'"_s), u"0"_s);
    EXPECT_EQ(document(complete).extractStatus, ExtractStatus::pending);
    EXPECT_EQ(document(edited).extractStatus, ExtractStatus::manual);
    EXPECT_EQ(document(byHand).extractStatus, ExtractStatus::manual);

    blockingWait(library.rerunOCR({ byHand }));
    blockingWait(library.reextract({ edited }));
    EXPECT_EQ(library.requested(), (DocumentIDSet { edited, byHand }));
    EXPECT_EQ(document(byHand).ocrStatus, OCRStatus::pending);
}

TEST_F(Edit, removeMissingAndRevealAndAFailedEditIsReportedWithNothingChanged)
{
    const auto present = filed(u"present.pdf"_s);
    const auto gone = add({ .path = u"gone.pdf"_s, .ocrStatus = done, .missing = true, .date = u"2020-01-01"_s });
    const auto goneToo = add({ .path = u"gone-too.pdf"_s, .missing = true });
    Library &library = open();

    // A missing scan is shown under problems, with the filters that hid it cleared.
    library.setYearFilter(2021);
    library.reveal(gone);
    EXPECT_EQ(library.sidebar(), SidebarItem::problems());
    EXPECT_EQ(library.year(), std::nullopt);
    EXPECT_EQ(library.selection(), DocumentIDSet { gone });

    // Only missing scans are removed.
    blockingWait(library.removeMissing({ present, gone }));
    EXPECT_EQ(library.documentsByID().size(), 2u);
    EXPECT_TRUE(library.documentsByID().contains(present));
    EXPECT_TRUE(library.documentsByID().contains(goneToo));
    EXPECT_EQ(library.selection(), DocumentIDSet {});

    db->execute(u"CREATE TRIGGER refuse BEFORE UPDATE ON documents BEGIN SELECT RAISE(ABORT, 'refused by a test'); "
                "END"_s);
    QSignalSpy failures(&library, &Library::editFailed);
    blockingWait(library.setKind({ present }, u"Bill"_s));
    ASSERT_EQ(failures.size(), 1);
    EXPECT_EQ(failures.at(0).at(0).toString(), u"refused by a test"_s);
    EXPECT_EQ(document(present).kind, std::nullopt);
}

} // namespace
