#include "library/LibraryFixture.h"

namespace {

using CatalogueTest = CatalogueLibrary;

// Another process writing holds the catalogue busy for longer than a read waits.
TEST_F(CatalogueTest, aReadThatFailsKeepsTheListsAndTheNextChangeReadsEverything)
{
    const auto acme = organization(u"Acme"_s);
    const auto bill = add({ .path = u"bill.pdf"_s, .ocrStatus = u"done"_s, .organizationID = acme });
    const auto letter = add({ .path = u"letter.pdf"_s, .ocrStatus = u"done"_s });
    const std::unique_ptr<Catalogue> lists = readAfresh();
    int published = 0;
    QObject::connect(lists.get(), &Catalogue::documentsChanged, lists.get(), [&] { ++published; });

    db->execute(u"BEGIN EXCLUSIVE"_s);
    blockingWait(lists->reload());
    blockingWait(lists->refresh({ bill, letter }, true));
    EXPECT_EQ(published, 0);
    EXPECT_EQ(lists->documentsByID().size(), 2u);
    ASSERT_EQ(lists->organizations().size(), 1u);
    EXPECT_EQ(lists->organizations()[0].documentCount, 1);
    const auto later = add({ .path = u"later.pdf"_s, .ocrStatus = u"done"_s });
    db->run(u"UPDATE documents SET organization_id = ? WHERE id = ?"_s, { acme, letter });
    db->execute(u"COMMIT"_s);

    // A refresh of one scan after the failure reads everything the failure may have hidden.
    blockingWait(lists->refresh({ bill }, false));
    EXPECT_EQ(published, 1);
    EXPECT_TRUE(lists->documentsByID().contains(later));
    EXPECT_EQ(lists->documentsByID().at(letter).organizationID, acme);
    EXPECT_EQ(lists->organizations()[0].documentCount, 2);
}

TEST_F(CatalogueTest, aRefreshReadsTheGivenScansAgainAndDropsThoseDeleted)
{
    const auto kept = add({ .path = u"kept.pdf"_s, .ocrStatus = u"done"_s });
    const auto deleted = add({ .path = u"deleted.pdf"_s, .ocrStatus = u"done"_s, .missing = true });
    const auto other = add({ .path = u"other.pdf"_s, .ocrStatus = u"done"_s });
    const std::unique_ptr<Catalogue> lists = readAfresh();

    db->run(u"UPDATE documents SET doc_date = '2024-05-01' WHERE id IN (?, ?)"_s, { kept, other });
    db->run(u"DELETE FROM documents WHERE id = ?"_s, { deleted });
    blockingWait(lists->refresh({ kept, deleted }, false));
    EXPECT_EQ(lists->documentsByID().at(kept).date, u"2024-05-01"_s);
    EXPECT_FALSE(lists->documentsByID().contains(deleted));
    // Untouched scans are not read again.
    EXPECT_EQ(lists->documentsByID().at(other).date, std::nullopt);
}

} // namespace
