#include "extract/Instructions.h"
#include "library/CatalogueLibrary.h"

#include <QSignalSpy>

namespace {

using Ids = std::vector<std::int64_t>;

const QString done = QStringLiteral("done");
const QString pending = QStringLiteral("pending");
const QString failed = QStringLiteral("failed");
const QString manual = QStringLiteral("manual");

class Edit : public CatalogueLibrary {
protected:
    const ScanDocument &document(std::int64_t id) { return library->documentsByID().at(id); }
    std::vector<QString> organizationNames()
    {
        std::vector<QString> names;
        for (const Organization &organization : library->organizations())
            names.push_back(organization.name + QLatin1Char(':') + QString::number(organization.documentCount));
        return names;
    }
    std::optional<QString> aliasOf(const QString &key)
    {
        return value(QStringLiteral("SELECT o.name FROM organization_aliases a JOIN organizations o ON o.id = "
                                    "a.organization_id WHERE a.alias_key = '")
            + key + QLatin1Char('\''));
    }
    // An edit reads again only what it changed, and the lists come out as a full reading gives them.
    void expectAsReadAfresh()
    {
        Catalogue afresh;
        afresh.setStore(Catalogue::Store::makeNow(folder.path()), folder.path());
        blockingWait(afresh.reload());
        EXPECT_EQ(library->documentsByID(), afresh.documentsByID());
        EXPECT_EQ(library->organizations(), afresh.organizations());
    }
};

TEST_F(Edit, filingByHandLearnsTheOverruledAnswersAndClearingRemovesEmptyOrganizations)
{
    const auto acme = organization(QStringLiteral("Acme Corp"));
    const auto first = add({ .path = QStringLiteral("a.pdf"),
                               .ocrStatus = done,
                               .extractStatus = done,
                               .date = QStringLiteral("2024-01-01"),
                               .organizationID = acme },
        {}, {}, QStringLiteral("ACME Corporation"));
    const auto second = add({ .path = QStringLiteral("b.pdf"),
                                .ocrStatus = done,
                                .extractStatus = done,
                                .date = QStringLiteral("2024-01-02"),
                                .organizationID = acme },
        {}, {}, QStringLiteral("Acme Corp."));
    Library &library = open();

    blockingWait(library.setOrganization({ first, second }, QStringLiteral("Bigco Holdings")));
    EXPECT_EQ(organizationNames(), (std::vector<QString> { QStringLiteral("Bigco Holdings:2") }));
    EXPECT_EQ(document(first).organizationName, QStringLiteral("Bigco Holdings"));
    EXPECT_EQ(document(first).extractStatus, ExtractStatus::manual);
    EXPECT_EQ(aliasOf(QStringLiteral("acme")), QStringLiteral("Bigco Holdings"));
    expectAsReadAfresh();

    // Manual scans teach nothing; with no organization left to file under, Bigco goes.
    blockingWait(library.setOrganization({ first, second }, std::nullopt));
    EXPECT_EQ(document(second).organizationID, std::nullopt);
    EXPECT_TRUE(library.organizations().empty());
    EXPECT_EQ(value(QStringLiteral("SELECT COUNT(*) FROM organization_aliases")), QStringLiteral("0"));
    // The search index follows.
    library.setSearchText(QStringLiteral("bigco"));
    ASSERT_TRUE(waitUntil([&] { return library.searchMatches().has_value(); }));
    EXPECT_EQ(library.searchMatches(), DocumentIDSet {});
}

TEST_F(Edit, renamingOrMergingIntoAnotherOrganizationMovesTheSidebarAlong)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto bigco = organization(QStringLiteral("Bigco"));
    const auto zeta = organization(QStringLiteral("Zeta"));
    const auto a
        = add({ .path = QStringLiteral("a.pdf"), .ocrStatus = done, .extractStatus = done, .organizationID = acme });
    const auto b
        = add({ .path = QStringLiteral("b.pdf"), .ocrStatus = done, .extractStatus = done, .organizationID = bigco });
    add({ .path = QStringLiteral("z.pdf"), .ocrStatus = done, .extractStatus = done, .organizationID = zeta });
    const auto unfiled = add({ .path = QStringLiteral("u.pdf"), .ocrStatus = done, .extractStatus = done });
    Library &library = open();

    // A name that cleans to nothing is ignored.
    blockingWait(library.renameOrganization(acme, QStringLiteral(" n/a ")));
    EXPECT_EQ(organizationNames().front(), QStringLiteral("Acme:1"));

    blockingWait(library.renameOrganization(bigco, QStringLiteral("Bigco Group")));
    EXPECT_EQ(document(b).organizationName, QStringLiteral("Bigco Group"));
    expectAsReadAfresh();

    library.setSidebar(SidebarItem::organization(acme));
    blockingWait(library.renameOrganization(acme, QStringLiteral("BIGCO GROUP")));
    EXPECT_EQ(
        organizationNames(), (std::vector<QString> { QStringLiteral("Bigco Group:2"), QStringLiteral("Zeta:1") }));
    EXPECT_EQ(document(a).organizationID, bigco);
    EXPECT_EQ(library.sidebar(), SidebarItem::all());
    EXPECT_EQ(aliasOf(QStringLiteral("acme")), QStringLiteral("Bigco Group"));
    expectAsReadAfresh();

    library.setSidebar(SidebarItem::organization(zeta));
    blockingWait(library.mergeOrganization(zeta, bigco));
    EXPECT_EQ(library.sidebar(), SidebarItem::organization(bigco));
    EXPECT_EQ(organizationNames(), (std::vector<QString> { QStringLiteral("Bigco Group:3") }));
    expectAsReadAfresh();

    // A scan no edit touched is not read again: a change behind the library's back stays unseen.
    db->run(QStringLiteral("UPDATE documents SET doc_kind = 'Letter' WHERE id = ?"), { unfiled });
    blockingWait(library.deleteOrganization(bigco));
    EXPECT_TRUE(library.organizations().empty());
    EXPECT_EQ(library.sidebar(), SidebarItem::all());
    EXPECT_EQ(document(a).extractStatus, ExtractStatus::done);
    EXPECT_EQ(document(a).organizationID, std::nullopt);
    EXPECT_EQ(document(unfiled).kind, std::nullopt);
}

TEST_F(Edit, factsStatusesAndBulkReextraction)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto filed = add({ .path = QStringLiteral("filed.pdf"),
        .ocrStatus = done,
        .extractStatus = done,
        .date = QStringLiteral("2024-01-01"),
        .organizationID = acme });
    const auto undated = add(
        { .path = QStringLiteral("undated.pdf"), .ocrStatus = done, .extractStatus = done, .organizationID = acme });
    const auto byHand = add({ .path = QStringLiteral("hand.pdf"), .ocrStatus = done, .extractStatus = manual });
    const auto broken = add({ .path = QStringLiteral("broken.pdf"), .ocrStatus = done, .extractStatus = failed });
    Library &library = open();

    blockingWait(library.setDate({ filed }, QDate(987, 6, 5)));
    blockingWait(library.setKind({ filed }, QStringLiteral("Invoice")));
    EXPECT_EQ(document(filed).date, QStringLiteral("0987-06-05"));
    EXPECT_EQ(document(filed).kind, QStringLiteral("Invoice"));
    EXPECT_EQ(document(filed).extractStatus, ExtractStatus::manual);

    // Only what the model filed without a date or failed on, never a scan filed by hand.
    blockingWait(library.reextractIncomplete());
    EXPECT_EQ(document(undated).extractStatus, ExtractStatus::pending);
    EXPECT_EQ(document(broken).extractStatus, ExtractStatus::pending);
    EXPECT_EQ(document(byHand).extractStatus, ExtractStatus::manual);
    EXPECT_EQ(library.pendingExtraction(), 2);

    blockingWait(library.rerunOCR({ byHand }));
    blockingWait(library.reextract({ filed }));
    EXPECT_EQ(library.requested(), (DocumentIDSet { filed, byHand }));
    EXPECT_EQ(document(byHand).ocrStatus, OCRStatus::pending);
    EXPECT_EQ(document(filed).extractStatus, ExtractStatus::pending);
    // Nothing was read or asked: this library holds its work.
    EXPECT_FALSE(library.isReading());
}

TEST_F(Edit, customInstructionsAreStoredOnlyWhenTheyDifferFromTheDefaults)
{
    const auto filed = add({ .path = QStringLiteral("filed.pdf"), .ocrStatus = done, .extractStatus = done });
    Library &library = open();

    blockingWait(library.setCustomInstructions(QStringLiteral("  Prefer short names.\n"), false));
    EXPECT_EQ(library.customInstructions(), QStringLiteral("  Prefer short names.\n"));
    EXPECT_EQ(value(QStringLiteral("SELECT value FROM settings WHERE key = 'instructions'")),
        QStringLiteral("  Prefer short names.\n"));
    EXPECT_EQ(document(filed).extractStatus, ExtractStatus::done);

    blockingWait(library.setCustomInstructions(Extractor::defaultInstructions(), true));
    EXPECT_EQ(library.customInstructions(), std::nullopt);
    EXPECT_EQ(value(QStringLiteral("SELECT COUNT(*) FROM settings WHERE key = 'instructions'")), QStringLiteral("0"));
    EXPECT_EQ(document(filed).extractStatus, ExtractStatus::pending);

    blockingWait(library.setCustomInstructions(QStringLiteral(" \n\t"), false));
    EXPECT_EQ(library.customInstructions(), std::nullopt);
}

TEST_F(Edit, removeMissingAndRevealAndAFailedEditIsReportedWithNothingChanged)
{
    const auto present = add({ .path = QStringLiteral("present.pdf"), .ocrStatus = done, .extractStatus = done });
    const auto gone = add({ .path = QStringLiteral("gone.pdf"),
        .ocrStatus = done,
        .extractStatus = done,
        .missing = true,
        .date = QStringLiteral("2020-01-01") });
    const auto goneToo = add({ .path = QStringLiteral("gone-too.pdf"), .missing = true });
    Library &library = open();

    // A missing scan is shown under problems, with the filters that hid it cleared.
    library.setYearFilter(2021);
    library.reveal(gone);
    EXPECT_EQ(library.sidebar(), SidebarItem::problems());
    EXPECT_EQ(library.year(), std::nullopt);
    EXPECT_EQ(library.selection(), DocumentIDSet { gone });
    library.setKindFilter(QStringLiteral("Bill"));
    library.reveal(present + 1000);
    EXPECT_EQ(library.kind(), QStringLiteral("Bill"));

    blockingWait(library.removeMissing({ present, gone }));
    EXPECT_EQ(library.documentsByID().size(), 2u);
    EXPECT_TRUE(library.documentsByID().contains(present));
    EXPECT_TRUE(library.documentsByID().contains(goneToo));
    EXPECT_EQ(library.selection(), DocumentIDSet {});

    db->execute(QStringLiteral("CREATE TRIGGER refuse BEFORE UPDATE ON documents BEGIN SELECT RAISE(ABORT, "
                               "'refused by a test'); END"));
    QSignalSpy failures(&library, &Library::editFailed);
    blockingWait(library.setKind({ present }, QStringLiteral("Bill")));
    ASSERT_EQ(failures.size(), 1);
    EXPECT_EQ(failures.at(0).at(0).toString(), QStringLiteral("refused by a test"));
    EXPECT_EQ(document(present).kind, std::nullopt);
}

} // namespace
