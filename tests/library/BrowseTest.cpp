#include "library/LibraryFixture.h"

namespace {

class Browse : public CatalogueLibrary {
protected:
    // The visible scans by the one letter each one's file is named with.
    QString visible() const
    {
        QString letters;
        for (const ScanDocument &document : library->visibleDocuments())
            letters += document.path.front();
        return letters;
    }
};

TEST_F(Browse, sidebarViewsYearAndTypeFiltersAndTheirOrders)
{
    const auto acme = organization(u"Acme"_s);
    const auto zeta = organization(u"Zeta"_s);
    struct Scan {
        QString path, ocr, extract;
        std::optional<QString> date;
        std::optional<std::int64_t> organization;
        std::optional<QString> kind;
        bool missing = false;
    };
    const QString done = u"done"_s, pending = u"pending"_s;
    for (const Scan &scan : std::vector<Scan> { { u"b.pdf"_s, done, done, u"2024-05-01"_s, acme, u"Letter"_s },
             { u"A.pdf"_s, done, done, u"2024-05-01"_s, zeta, u"Bill"_s },
             { u"c.pdf"_s, done, u"manual"_s, u"2019-12-31"_s, acme, u"Utility bill"_s },
             { u"d.pdf"_s, done, u"manual"_s, {}, acme, {} }, // undated
             { u"e.pdf"_s, done, done, u"24-05-01"_s, {}, {} }, // a date without its century
             { u"f.pdf"_s, done, done, u"2025-01-01"_s, acme, u"Receipt"_s, true },
             { u"g.pdf"_s, done, pending, {}, {}, {} }, // waits for the model
             { u"h.pdf"_s, pending, pending, {}, {}, {} }, // waits to be read
             { u"i.pdf"_s, u"failed"_s, pending, {}, {}, {} }, { u"j.pdf"_s, done, u"failed"_s, {}, {}, {} } }) {
        add({ .path = scan.path,
                .ocrStatus = scan.ocr,
                .extractStatus = scan.extract,
                .missing = scan.missing,
                .date = scan.date,
                .organizationID = scan.organization },
            {}, scan.kind);
    }
    Library &library = open();

    // Newest date first, the same date in case-insensitive path order, undated scans last (by path).
    // Dates compare as text, so "24-05-01" goes before "2024-05-01".
    // The last view stays on for the year filter below.
    const std::vector<std::tuple<SidebarItem, QString>> views { { SidebarItem::all(), u"eAbcdghij"_s },
        { SidebarItem::needsReview(), u"edj"_s }, { SidebarItem::processing(), u"gh"_s },
        { SidebarItem::problems(), u"fij"_s }, { SidebarItem::organization(zeta + 100), QString() },
        { SidebarItem::organization(acme), u"bcd"_s } };
    for (const auto &[item, expected] : views) {
        library.setSidebar(item);
        EXPECT_EQ(visible(), expected);
        EXPECT_EQ(library.count(item), expected.size());
    }

    // The year filter narrows whatever the sidebar shows; "24-05-01" has no year.
    library.setYearFilter(2024);
    EXPECT_EQ(visible(), u"b"_s);
    library.setSidebar(SidebarItem::all());
    EXPECT_EQ(visible(), u"Ab"_s);
    library.setYearFilter(std::nullopt);

    // Years and types of present scans only: newest year first, types in the fixed list's order.
    EXPECT_EQ(library.years(), (std::vector<int> { 2024, 2019 }));
    EXPECT_EQ(library.kinds(), (QStringList { u"Bill"_s, u"Utility bill"_s, u"Letter"_s }));

    // The user's sort is stable: ties stay in path order.
    library.setSortOrder({ { SortComparator::Key::status, true }, { SortComparator::Key::file, false } });
    EXPECT_EQ(visible(), u"jihgedbAc"_s);
}

TEST_F(Browse, sidebarCountsYearsAndTypesFollowEditsAndVanishedFiles)
{
    const auto acme = organization(u"Acme"_s);
    const QString done = u"done"_s;
    const auto letter = add({ .path = u"a.pdf"_s,
                                .ocrStatus = done,
                                .extractStatus = done,
                                .date = u"2024-05-01"_s,
                                .organizationID = acme },
        {}, u"Letter"_s);
    const auto bill = add({ .path = u"b.pdf"_s,
                              .ocrStatus = done,
                              .extractStatus = done,
                              .date = u"2019-01-01"_s,
                              .organizationID = acme },
        {}, u"Bill"_s);
    Library &library = open();
    EXPECT_EQ(library.years(), (std::vector<int> { 2024, 2019 }));
    EXPECT_EQ(library.count(SidebarItem::needsReview()), 0);

    // The bill loses its date: it needs review, and its year is gone from the picker.
    blockingWait(library.setDate({ bill }, std::nullopt));
    EXPECT_EQ(library.years(), (std::vector<int> { 2024 }));
    EXPECT_EQ(library.count(SidebarItem::needsReview()), 1);
    blockingWait(library.setKind({ letter }, u"Bill"_s));
    EXPECT_EQ(library.kinds(), (QStringList { u"Bill"_s }));

    // A scan read again after its file went away counts under Problems only, and leaves the pickers.
    db->run(u"UPDATE documents SET missing = 1 WHERE id = ?"_s, { letter });
    blockingWait(library.setKind({ letter }, u"Bill"_s));
    EXPECT_EQ(library.count(SidebarItem::all()), 1);
    EXPECT_EQ(library.count(SidebarItem::problems()), 1);
    EXPECT_EQ(library.count(SidebarItem::organization(acme)), 1);
    EXPECT_TRUE(library.years().empty());
    EXPECT_EQ(library.kinds(), (QStringList { u"Bill"_s }));
}

TEST_F(Browse, findsEveryWordAsAPrefixIgnoringCaseAccentsAndPunctuationAndBlanksClearIt)
{
    const auto statement = add(
        { .path = u"2024/statement.pdf"_s, .ocrStatus = u"done"_s, .organizationID = organization(u"Acme Bank"_s) },
        u"Your monthly statement"_s);
    const auto letter
        = add({ .path = u"letter.pdf"_s, .ocrStatus = u"done"_s }, u"Acme wrote to the Bänker about \"quotes\""_s);
    add({ .path = u"other.pdf"_s, .ocrStatus = u"done"_s }, u"Nothing to see"_s);
    Library &search = open();

    search.setSearchText(u"acme bank"_s);
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches().has_value(); }));
    EXPECT_EQ(search.searchMatches(), (DocumentIDSet { statement, letter }));
    EXPECT_EQ(search.visibleDocuments().size(), 2u);
    search.setSearchText(u"\"quotes\" banker"_s);
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches() == DocumentIDSet { letter }; }));
    search.setSearchText(u"   "_s);
    EXPECT_EQ(search.searchMatches(), std::nullopt);
    EXPECT_EQ(search.visibleDocuments().size(), 3u);

    // While a search waits for a pause in typing, the last result stays; new lists search at once.
    const std::unique_ptr<Catalogue> catalogue = readAfresh();
    Browsing typing(*catalogue, 1h);
    typing.setSearchText(u"monthly"_s);
    QCoreApplication::processEvents();
    EXPECT_EQ(typing.searchMatches(), std::nullopt);
    db->run(u"UPDATE documents_fts SET text = 'monthly' WHERE rowid = ?"_s, { letter });
    blockingWait(catalogue->reload());
    ASSERT_TRUE(waitUntil([&] { return typing.searchMatches() == DocumentIDSet { statement, letter }; }));
    typing.setSearchText(u"nothing"_s);
    QCoreApplication::processEvents();
    EXPECT_EQ(typing.searchMatches(), (DocumentIDSet { statement, letter }));
}

TEST_F(Browse, aStaleSearchNeverOverwritesANewerOne)
{
    add({ .path = u"alpha.pdf"_s, .ocrStatus = u"done"_s }, u"alpha"_s);
    const auto beta = add({ .path = u"beta.pdf"_s, .ocrStatus = u"done"_s }, u"beta"_s);
    Library &search = open();
    std::vector<std::optional<DocumentIDSet>> published;
    // The connection ends with this test, before `published` goes: closing the library publishes too.
    QObject scope;
    QObject::connect(
        &search, &Library::searchMatchesChanged, &scope, [&] { published.push_back(search.searchMatches()); });

    // Without a pause both queries reach the store, and the first one's answer comes back first. The
    // catalogue is locked until both have started, so that the first can't be answered before that.
    db->execute(u"BEGIN EXCLUSIVE"_s);
    search.setSearchText(u"alpha"_s);
    search.setSearchText(u"beta"_s);
    db->execute(u"COMMIT"_s);
    ASSERT_TRUE(waitUntil([&] { return search.searchMatches().has_value(); }));
    QCoreApplication::processEvents();
    EXPECT_EQ(published, (std::vector<std::optional<DocumentIDSet>> { DocumentIDSet { beta } }));
}

} // namespace
