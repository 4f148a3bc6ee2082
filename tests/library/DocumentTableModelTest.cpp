#include "library/DocumentTableModel.h"

#include "library/DragItem.h"
#include "library/LibraryFixture.h"
#include "library/ModelChecker.h"

#include <QMimeData>
#include <QPersistentModelIndex>
#include <QSignalSpy>

namespace {

class TableModel : public CatalogueLibrary {
protected:
    static std::vector<std::int64_t> rows(const DocumentTableModel &model)
    {
        std::vector<std::int64_t> ids;
        for (int row = 0; row < model.rowCount(); ++row)
            ids.push_back(model.index(row, 0).data(DocumentTableModel::IdRole).toLongLong());
        return ids;
    }
    std::vector<std::int64_t> visible() const
    {
        std::vector<std::int64_t> ids;
        for (const ScanDocument &document : library->visibleDocuments())
            ids.push_back(document.id);
        return ids;
    }
};

TEST_F(TableModel, anEditChangesOnlyItsScansRowAndWorkOnlyStatusCells)
{
    const auto filed = add({ .path = u"a.pdf"_s,
        .ocrStatus = u"done"_s,
        .extractStatus = u"done"_s,
        .date = u"2024-03-01"_s,
        .organizationID = organization(u"Acme"_s) });
    const auto unread = add({ .path = u"b.pdf"_s, .date = u"2024-02-01"_s });
    const auto other
        = add({ .path = u"c.pdf"_s, .ocrStatus = u"done"_s, .extractStatus = u"done"_s, .date = u"2024-01-01"_s });
    Library &library = open();
    DocumentTableModel model(library);
    ModelChecker checker(&model);
    ASSERT_EQ(rows(model), (std::vector { filed, unread, other }));
    const QPersistentModelIndex kept = model.index(1, DocumentTableModel::file);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy reshaped(&model, &QAbstractItemModel::layoutChanged);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);

    blockingWait(library.setKind({ filed }, u"Invoice"_s));
    ASSERT_FALSE(changed.isEmpty());
    for (const QList<QVariant> &signal : changed) {
        EXPECT_EQ(signal[0].toModelIndex().row(), 0);
        EXPECT_EQ(signal[1].toModelIndex().row(), 0);
    }
    EXPECT_EQ(model.index(0, DocumentTableModel::type).data(), u"Invoice"_s);
    EXPECT_EQ(model.index(0, DocumentTableModel::status).data(), u"Edited"_s);
    EXPECT_TRUE(reshaped.isEmpty() && removed.isEmpty() && reset.isEmpty());
    EXPECT_EQ(model.idAt(kept.row()), unread);

    // Pausing relabels only the scan still waiting for its text; asking for it puts it next.
    changed.clear();
    library.setPaused(true);
    ASSERT_EQ(changed.size(), 1);
    for (const int end : { 0, 1 }) {
        EXPECT_EQ(changed[0][end].toModelIndex().row(), 1);
        EXPECT_EQ(changed[0][end].toModelIndex().column(), DocumentTableModel::status);
    }
    EXPECT_EQ(model.index(1, DocumentTableModel::status).data(), u"Paused"_s);
    library.request({ unread });
    EXPECT_EQ(model.index(1, DocumentTableModel::status).data(), u"Next up"_s);
}

TEST_F(TableModel, filtersSearchesAndSortsMoveRowsWithTheirScans)
{
    const auto acme = organization(u"Acme"_s);
    const auto zeta = organization(u"Zeta"_s);
    struct Scan {
        QString path;
        std::optional<QString> date;
        std::optional<std::int64_t> organization;
        std::optional<QString> kind;
        QString ocr = u"done"_s;
    };
    for (const Scan &scan : std::vector<Scan> { { u"a.pdf"_s, u"2024-05-01"_s, acme, u"Bill"_s },
             { u"b.pdf"_s, u"2023-05-01"_s, zeta, u"Letter"_s }, { u"c.pdf"_s, u"2024-01-09"_s, acme, u"Letter"_s },
             { u"d.pdf"_s, {}, {}, {}, u"pending"_s }, { u"e.pdf"_s, u"2022-02-02"_s, zeta, u"Bill"_s },
             { u"f.pdf"_s, u"2024-07-07"_s, zeta, {} }, { u"g.pdf"_s, u"2021-01-01"_s, acme, u"Bill"_s },
             { u"h.pdf"_s, {}, acme, {}, u"failed"_s } })
        add({ .path = scan.path,
                .ocrStatus = scan.ocr,
                .extractStatus = u"done"_s,
                .date = scan.date,
                .organizationID = scan.organization },
            QStringView(u"acf").contains(scan.path.front()) ? u"water"_s : QString(), scan.kind);
    Library &library = open();
    DocumentTableModel model(library);
    ModelChecker checker(&model);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);

    // Every row held the way a selection holds it; those whose scan never left must still point at it.
    std::vector<std::pair<QPersistentModelIndex, std::int64_t>> held;
    for (int row = 0; row < model.rowCount(); ++row)
        held.emplace_back(model.index(row, DocumentTableModel::date), model.idAt(row));
    const std::vector<std::int64_t> first = rows(model);
    std::set<std::int64_t> stayed(first.begin(), first.end());
    const auto check = [&](const char *step) {
        EXPECT_EQ(rows(model), visible()) << step;
        const std::vector<std::int64_t> now = visible();
        std::erase_if(stayed, [&](std::int64_t id) { return std::ranges::find(now, id) == now.end(); });
        for (const auto &[index, id] : held) {
            if (index.isValid())
                EXPECT_EQ(model.idAt(index.row()), id) << step;
            else
                EXPECT_FALSE(stayed.contains(id)) << step;
        }
    };

    library.setSortOrder({ { SortComparator::Key::file, true } });
    check("file order");
    library.setSidebar(SidebarItem::organization(acme));
    check("one organization");
    library.setYearFilter(2024);
    check("and a year");
    library.setSidebar(SidebarItem::all());
    check("every organization of the year");
    library.setYearFilter(std::nullopt);
    check("no filter");
    model.sort(DocumentTableModel::status, Qt::DescendingOrder);
    EXPECT_EQ(library.sortOrder(), (SortOrder { { SortComparator::Key::status, false } }));
    EXPECT_EQ(model.sortColumn(), std::pair(int(DocumentTableModel::status), Qt::DescendingOrder));
    check("by status");
    model.sort(DocumentTableModel::thumbnail, Qt::AscendingOrder);
    EXPECT_EQ(library.sortOrder(), (SortOrder { { SortComparator::Key::status, false } }));
    model.sort(DocumentTableModel::organization, Qt::AscendingOrder);
    check("by organization");
    library.setKindFilter(u"Bill"_s);
    check("bills");
    library.setKindFilter(std::nullopt);
    library.setSearchText(u"water"_s);
    ASSERT_TRUE(waitUntil([&] { return library.searchMatches().has_value(); }));
    check("a search");
    library.setSearchText(QString());
    check("no search");
    EXPECT_TRUE(reset.isEmpty());
    EXPECT_TRUE(std::ranges::any_of(held, [](const auto &entry) { return entry.first.isValid(); }));
}

TEST_F(TableModel, aChangeScatteredOverManyRowsStillShowsTheVisibleScans)
{
    db->execute(u"BEGIN"_s);
    for (int i = 0; i < 700; ++i)
        add({ .path = QString::number(i).rightJustified(4, u'0') + u".pdf",
            .date = i % 2 ? u"2024-01-01"_s : u"2023-01-01"_s });
    db->execute(u"COMMIT"_s);
    Library &library = open();
    library.setSortOrder({ { SortComparator::Key::file, true } });
    DocumentTableModel model(library);
    ModelChecker checker(&model);

    library.setYearFilter(2024);
    EXPECT_EQ(model.rowCount(), 350);
    EXPECT_EQ(rows(model), visible());
    library.setYearFilter(std::nullopt);
    EXPECT_EQ(rows(model), visible());
    EXPECT_EQ(model.rowOf(model.idAt(699)), 699);
}

TEST_F(TableModel, rowsDragTheirScansAndAMissingFileHasNoPath)
{
    const auto first = add({ .path = u"x/a.pdf"_s, .date = u"2024-03-01"_s });
    const auto second = add({ .path = u"b.pdf"_s, .date = u"2024-02-01"_s });
    const auto gone = add({ .path = u"c.pdf"_s, .missing = true });
    Library &library = open();
    DocumentTableModel model(library);
    ModelChecker checker(&model);

    const std::unique_ptr<QMimeData> data(model.mimeData({ model.index(1, DocumentTableModel::file),
        model.index(0, DocumentTableModel::date), model.index(1, DocumentTableModel::status) }));
    ASSERT_TRUE(data);
    EXPECT_EQ(scansFromPayload(data->text()), (DocumentIDSet { first, second }));
    EXPECT_EQ(model.index(0, DocumentTableModel::file).data(), u"a.pdf"_s);
    EXPECT_EQ(model.index(0, 0).data(DocumentTableModel::PathRole), path(u"x/a.pdf"_s));

    library.setSidebar(SidebarItem::problems());
    ASSERT_EQ(model.rowOf(gone), 0);
    EXPECT_EQ(model.index(0, 0).data(DocumentTableModel::PathRole), QString());
    EXPECT_EQ(model.index(0, DocumentTableModel::status).data(), u"File missing"_s);
}

} // namespace
