#include "library/CatalogueLibrary.h"

#include <QSignalSpy>

namespace {

using Ids = std::vector<std::int64_t>;
using Row = CatalogueFixtures::Row;

const QString done = QStringLiteral("done");
const QString pending = QStringLiteral("pending");
const QString failed = QStringLiteral("failed");
const QString manual = QStringLiteral("manual");

class Browse : public CatalogueLibrary { };

TEST_F(Browse, sidebarViewsYearAndTypeFiltersAndTheirOrders)
{
    const auto acme = organization(QStringLiteral("Acme"));
    const auto zeta = organization(QStringLiteral("Zeta"));
    const auto later = add({ .path = QStringLiteral("b.pdf"),
                               .ocrStatus = done,
                               .extractStatus = done,
                               .date = QStringLiteral("2024-05-01"),
                               .organizationID = acme },
        {}, QStringLiteral("Letter"));
    const auto sameDay = add({ .path = QStringLiteral("A.pdf"),
                                 .ocrStatus = done,
                                 .extractStatus = done,
                                 .date = QStringLiteral("2024-05-01"),
                                 .organizationID = zeta },
        {}, QStringLiteral("Bill"));
    const auto older = add({ .path = QStringLiteral("c.pdf"),
                               .ocrStatus = done,
                               .extractStatus = manual,
                               .date = QStringLiteral("2019-12-31"),
                               .organizationID = acme },
        {}, QStringLiteral("Utility bill"));
    const auto undated
        = add({ .path = QStringLiteral("d.pdf"), .ocrStatus = done, .extractStatus = manual, .organizationID = acme });
    const auto shortDate = add({ .path = QStringLiteral("e.pdf"),
        .ocrStatus = done,
        .extractStatus = done,
        .date = QStringLiteral("24-05-01") });
    const auto missing = add({ .path = QStringLiteral("f.pdf"),
                                 .ocrStatus = done,
                                 .extractStatus = done,
                                 .missing = true,
                                 .date = QStringLiteral("2025-01-01"),
                                 .organizationID = acme },
        {}, QStringLiteral("Receipt"));
    const auto extracting = add({ .path = QStringLiteral("g.pdf"), .ocrStatus = done, .extractStatus = pending });
    const auto reading = add({ .path = QStringLiteral("h.pdf"), .ocrStatus = pending, .extractStatus = pending });
    const auto unreadable = add({ .path = QStringLiteral("i.pdf"), .ocrStatus = failed, .extractStatus = pending });
    const auto modelFailed = add({ .path = QStringLiteral("j.pdf"), .ocrStatus = done, .extractStatus = failed });
    Library &library = open();

    // Newest date first, the same date in case-insensitive path order, undated scans last (by path).
    // Dates compare as text, so "24-05-01" goes before "2024-05-01".
    EXPECT_EQ(visibleIDs(),
        (Ids { shortDate, sameDay, later, older, undated, extracting, reading, unreadable, modelFailed }));
    EXPECT_EQ(library.liveDocuments().size(), 9u);

    library.setSidebar(SidebarItem::needsReview());
    EXPECT_EQ(visibleIDs(), (Ids { shortDate, undated, modelFailed }));
    library.setSidebar(SidebarItem::processing());
    EXPECT_EQ(visibleIDs(), (Ids { extracting, reading }));
    library.setSidebar(SidebarItem::problems());
    EXPECT_EQ(visibleIDs(), (Ids { missing, unreadable, modelFailed }));
    library.setSidebar(SidebarItem::organization(acme));
    EXPECT_EQ(visibleIDs(), (Ids { later, older, undated }));
    EXPECT_EQ(library.count(SidebarItem::organization(acme)), 3);
    EXPECT_EQ(library.count(SidebarItem::organization(zeta + 100)), 0);
    EXPECT_EQ(library.count(SidebarItem::all()), 9);
    EXPECT_EQ(library.count(SidebarItem::needsReview()), 3);
    EXPECT_EQ(library.count(SidebarItem::processing()), 2);
    EXPECT_EQ(library.count(SidebarItem::problems()), 3);

    // The year and type filters narrow whatever the sidebar shows; "24-05-01" has no year.
    library.setYearFilter(2024);
    EXPECT_EQ(visibleIDs(), (Ids { later }));
    library.setSidebar(SidebarItem::all());
    EXPECT_EQ(visibleIDs(), (Ids { sameDay, later }));
    library.setKindFilter(QStringLiteral("Bill"));
    EXPECT_EQ(visibleIDs(), (Ids { sameDay }));
    library.setYearFilter(2019);
    EXPECT_EQ(visibleIDs(), Ids {});
    library.setYearFilter(std::nullopt);
    library.setKindFilter(std::nullopt);

    // Years and types of present scans only: newest year first, types in the fixed list's order.
    EXPECT_EQ(library.years(), (std::vector<int> { 2024, 2019 }));
    EXPECT_EQ(library.kinds(),
        (QStringList { QStringLiteral("Bill"), QStringLiteral("Utility bill"), QStringLiteral("Letter") }));

    // The user's sort is stable: ties stay in path order.
    library.setSortOrder({ { SortComparator::Key::organization, true } });
    EXPECT_EQ(visibleIDs(),
        (Ids { later, older, undated, sameDay, shortDate, extracting, reading, unreadable, modelFailed }));
    library.setSortOrder({ { SortComparator::Key::status, true }, { SortComparator::Key::file, false } });
    EXPECT_EQ(visibleIDs(),
        (Ids { modelFailed, unreadable, reading, extracting, shortDate, undated, later, sameDay, older }));
}

// Browsing on its own, over a catalogue read once, with the pause in typing a test chooses.
class Search : public CatalogueLibrary {
protected:
    Browsing &browse(std::chrono::milliseconds delay)
    {
        const QString path = folder.path();
        catalogue.setStore(Catalogue::Store::makeNow(path), path);
        blockingWait(catalogue.reload());
        browsing = std::make_unique<Browsing>(catalogue, delay);
        return *browsing;
    }

    Catalogue catalogue;
    std::unique_ptr<Browsing> browsing;
};

TEST_F(Search, findsEveryWordAsAPrefixIgnoringCaseAccentsAndPunctuationAndBlanksClearIt)
{
    const auto acme = organization(QStringLiteral("Acme Bank"));
    const auto statement = add({ .path = QStringLiteral("2024/statement.pdf"),
                                   .ocrStatus = done,
                                   .extractStatus = done,
                                   .date = QStringLiteral("2024-03-01"),
                                   .organizationID = acme },
        QStringLiteral("Your monthly statement"));
    const auto letter = add({ .path = QStringLiteral("letter.pdf"), .ocrStatus = done, .extractStatus = done },
        QStringLiteral("Acme wrote to the Bänker about \"quotes\""));
    add({ .path = QStringLiteral("other.pdf"), .ocrStatus = done, .extractStatus = done },
        QStringLiteral("Nothing to see"));
    Browsing &search = browse(std::chrono::milliseconds(0));

    search.setSearchText(QStringLiteral("acme bank"));
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches().has_value(); }));
    EXPECT_EQ(search.searchMatches(), (DocumentIDSet { statement, letter }));
    EXPECT_EQ(search.visibleDocuments().size(), 2u);

    search.setSearchText(QStringLiteral("\"quotes\" banker"));
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches() == DocumentIDSet { letter }; }));

    search.setSearchText(QStringLiteral("   "));
    EXPECT_EQ(search.searchMatches(), std::nullopt);
    EXPECT_EQ(search.visibleDocuments().size(), 3u);

    // New lists run the search again at once, whatever the pause.
    search.setSearchText(QStringLiteral("monthly"));
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches() == DocumentIDSet { statement }; }));
    db->run(QStringLiteral("UPDATE documents_fts SET text = 'monthly' WHERE rowid = ?"), { letter });
    blockingWait(catalogue.reload());
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches() == DocumentIDSet { statement, letter }; }));
}

TEST_F(Search, aStaleSearchNeverOverwritesANewerOne)
{
    add({ .path = QStringLiteral("alpha.pdf"), .ocrStatus = done }, QStringLiteral("alpha"));
    const auto beta = add({ .path = QStringLiteral("beta.pdf"), .ocrStatus = done }, QStringLiteral("beta"));
    Browsing &search = browse(std::chrono::milliseconds(0));
    std::vector<std::optional<DocumentIDSet>> published;
    QObject::connect(
        &search, &Browsing::searchMatchesChanged, &search, [&] { published.push_back(search.searchMatches()); });

    // Without a pause both queries reach the store, and the first one's answer comes back first. The
    // catalogue is locked until both have started, so that the first can't be answered before that.
    db->execute(QStringLiteral("BEGIN EXCLUSIVE"));
    search.setSearchText(QStringLiteral("alpha"));
    search.setSearchText(QStringLiteral("beta"));
    db->execute(QStringLiteral("COMMIT"));
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches().has_value(); }));
    QCoreApplication::processEvents();
    EXPECT_EQ(published, (std::vector<std::optional<DocumentIDSet>> { DocumentIDSet { beta } }));
}

TEST_F(Search, whileANewSearchWaitsForThePauseInTypingTheLastResultStays)
{
    const auto beta = add({ .path = QStringLiteral("beta.pdf"), .ocrStatus = done }, QStringLiteral("beta"));
    Browsing &search = browse(std::chrono::hours(1));
    search.setSearchText(QStringLiteral("beta"));
    search.setSearchText(QStringLiteral("bet"));
    QCoreApplication::processEvents();
    EXPECT_EQ(search.searchMatches(), std::nullopt);
    blockingWait(catalogue.reload());
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches() == DocumentIDSet { beta }; }));
    search.setSearchText(QStringLiteral("alph"));
    QCoreApplication::processEvents();
    EXPECT_EQ(search.searchMatches(), DocumentIDSet { beta });
}

} // namespace
