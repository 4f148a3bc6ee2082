#include "library/CatalogueLibrary.h"

namespace {

using Row = CatalogueFixtures::Row;

const QString done = QStringLiteral("done");

class CatalogueTest : public CatalogueLibrary {
protected:
    Catalogue &openCatalogue()
    {
        const QString path = folder.path();
        catalogue.setStore(Catalogue::Store::makeNow(path), path);
        blockingWait(catalogue.reload());
        return catalogue;
    }

    Catalogue catalogue;
};

// Another process writing holds the catalogue busy for longer than a read waits.
TEST_F(CatalogueTest, aReadThatFailsKeepsTheListsAndTheNextChangeReadsEverything)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto bill = add({ .path = QStringLiteral("bill.pdf"), .ocrStatus = done, .organizationID = acme });
    const auto letter = add({ .path = QStringLiteral("letter.pdf"), .ocrStatus = done });
    Catalogue &lists = openCatalogue();
    ASSERT_EQ(lists.documentsByID().size(), 2u);
    int published = 0;
    QObject::connect(&lists, &Catalogue::documentsChanged, &lists, [&] { ++published; });

    db->execute(QStringLiteral("BEGIN EXCLUSIVE"));
    blockingWait(lists.reload());
    blockingWait(lists.refresh({ bill, letter }, true));
    EXPECT_EQ(published, 0);
    EXPECT_EQ(lists.documentsByID().size(), 2u);
    ASSERT_EQ(lists.organizations().size(), 1u);
    EXPECT_EQ(lists.organizations()[0].documentCount, 1);
    const auto later = add({ .path = QStringLiteral("later.pdf"), .ocrStatus = done });
    db->run(QStringLiteral("UPDATE documents SET organization_id = ? WHERE id = ?"), { acme, letter });
    db->execute(QStringLiteral("COMMIT"));

    // A refresh of one scan after the failure reads everything the failure may have hidden.
    blockingWait(lists.refresh({ bill }, false));
    EXPECT_EQ(published, 1);
    EXPECT_TRUE(lists.documentsByID().contains(later));
    EXPECT_EQ(lists.documentsByID().at(letter).organizationID, acme);
    EXPECT_EQ(lists.organizations()[0].documentCount, 2);
}

TEST_F(CatalogueTest, aRefreshReadsTheGivenScansAgainAndDropsThoseDeleted)
{
    const auto kept = add({ .path = QStringLiteral("kept.pdf"), .ocrStatus = done });
    const auto deleted = add({ .path = QStringLiteral("deleted.pdf"), .ocrStatus = done, .missing = true });
    const auto other = add({ .path = QStringLiteral("other.pdf"), .ocrStatus = done });
    Catalogue &lists = openCatalogue();

    db->run(QStringLiteral("UPDATE documents SET doc_date = '2024-05-01' WHERE id IN (?, ?)"), { kept, other });
    db->run(QStringLiteral("DELETE FROM documents WHERE id = ?"), { deleted });
    blockingWait(lists.refresh({ kept, deleted }, false));
    EXPECT_EQ(lists.documentsByID().at(kept).date, QStringLiteral("2024-05-01"));
    EXPECT_FALSE(lists.documentsByID().contains(deleted));
    // Untouched scans are not read again.
    EXPECT_EQ(lists.documentsByID().at(other).date, std::nullopt);
}

} // namespace
