#include "library/SidebarModel.h"

#include "library/DragItem.h"
#include "library/LibraryFixture.h"
#include "library/ModelChecker.h"

#include <QMimeData>
#include <QPersistentModelIndex>
#include <QSignalSpy>

namespace {

class SidebarTest : public CatalogueLibrary {
protected:
    // "name count" of each row under the section.
    static QStringList rows(const SidebarModel &model, SidebarModel::Section section)
    {
        QStringList shown;
        const QModelIndex parent = model.index(section, 0);
        for (int row = 0; row < model.rowCount(parent); ++row) {
            const QModelIndex index = model.index(row, 0, parent);
            shown.append(index.data().toString() + u' ' + index.data(SidebarModel::CountRole).toString());
        }
        return shown;
    }
    static std::unique_ptr<QMimeData> text(const QString &payload)
    {
        auto data = std::make_unique<QMimeData>();
        data->setText(payload);
        return data;
    }
};

TEST_F(SidebarTest, countsAndOrganizationsFollowEditsKeepingRowsOnTheirItems)
{
    const auto acme = organization(u"Acme"_s);
    const auto zeta = organization(u"Zeta"_s);
    const QString done = u"done"_s;
    add({ .path = u"a.pdf"_s,
        .ocrStatus = done,
        .extractStatus = done,
        .date = u"2024-01-01"_s,
        .organizationID = acme });
    const auto undated = add({ .path = u"b.pdf"_s, .ocrStatus = done, .extractStatus = done, .organizationID = acme });
    const auto loose = add({ .path = u"c.pdf"_s, .ocrStatus = done, .extractStatus = done, .date = u"2024-01-01"_s });
    add({ .path = u"d.pdf"_s, .organizationID = zeta });
    add({ .path = u"e.pdf"_s, .ocrStatus = done, .extractStatus = done, .missing = true, .organizationID = zeta });
    Library &library = open();
    SidebarModel model(library);
    ModelChecker checker(&model);

    EXPECT_EQ(rows(model, SidebarModel::librarySection),
        (QStringList { u"All Scans 4"_s, u"Needs Review 2"_s, u"Processing 1"_s, u"Problems 1"_s }));
    EXPECT_EQ(rows(model, SidebarModel::organizationsSection), (QStringList { u"Acme 2"_s, u"Zeta 1"_s }));
    EXPECT_EQ(model.indexOf(SidebarItem::all()).data(Qt::AccessibleTextRole), u"All Scans, 4 scans"_s);
    for (const SidebarItem &item : { SidebarItem::problems(), SidebarItem::organization(zeta) })
        EXPECT_EQ(model.itemAt(model.indexOf(item)), item);
    EXPECT_EQ(model.itemAt(model.index(SidebarModel::organizationsSection, 0)), std::nullopt);

    const QPersistentModelIndex acmeRow = model.indexOf(SidebarItem::organization(acme));
    const QPersistentModelIndex zetaRow = model.indexOf(SidebarItem::organization(zeta));
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);

    // Renamed past Zeta: the row moves, and both rows stay on their organizations.
    blockingWait(library.renameOrganization(acme, u"Zulu"_s));
    EXPECT_EQ(rows(model, SidebarModel::organizationsSection), (QStringList { u"Zeta 1"_s, u"Zulu 2"_s }));
    EXPECT_EQ(model.itemAt(acmeRow), SidebarItem::organization(acme));
    EXPECT_EQ(model.itemAt(zetaRow), SidebarItem::organization(zeta));

    // Filing a scan under a new name adds a row; the review count drops once the undated scan gets a date.
    blockingWait(library.setOrganization({ loose }, u"Beta"_s));
    EXPECT_EQ(rows(model, SidebarModel::organizationsSection), (QStringList { u"Beta 1"_s, u"Zeta 1"_s, u"Zulu 2"_s }));
    blockingWait(library.setDate({ undated }, QDate(2024, 2, 2)));
    EXPECT_EQ(rows(model, SidebarModel::librarySection)[1], u"Needs Review 0"_s);

    // Merged away: the row goes and its scans count for the other.
    const auto beta = model.index(0, 0, model.index(SidebarModel::organizationsSection, 0))
                          .data(SidebarModel::OrganizationIdRole)
                          .toLongLong();
    blockingWait(library.mergeOrganization(beta, zeta));
    EXPECT_EQ(rows(model, SidebarModel::organizationsSection), (QStringList { u"Zeta 2"_s, u"Zulu 2"_s }));
    EXPECT_EQ(model.itemAt(zetaRow), SidebarItem::organization(zeta));
    EXPECT_TRUE(reset.isEmpty());
}

TEST_F(SidebarTest, scansDroppedOnAnOrganizationAreFiledThereAndAnOrganizationOnAnotherAsksToMerge)
{
    const auto acme = organization(u"Acme"_s);
    const auto zeta = organization(u"Zeta"_s);
    DocumentIDSet scans;
    for (const QString &name : { u"a.pdf"_s, u"b.pdf"_s, u"c.pdf"_s })
        scans.insert(add({ .path = name, .ocrStatus = u"done"_s, .extractStatus = u"done"_s }));
    // An organization without scans leaves the list after an edit.
    add({ .path = u"z.pdf"_s, .organizationID = zeta });
    Library &library = open();
    SidebarModel model(library);
    ModelChecker checker(&model);
    const QModelIndex acmeRow = model.indexOf(SidebarItem::organization(acme));
    const QModelIndex zetaRow = model.indexOf(SidebarItem::organization(zeta));
    QSignalSpy merges(&model, &SidebarModel::mergeRequested);

    // Only an organization row takes anything, and only what it can use.
    const auto dragged = text(scansPayload(scans));
    for (const QModelIndex &elsewhere :
        { QModelIndex(), model.index(SidebarModel::organizationsSection, 0), model.indexOf(SidebarItem::all()) })
        EXPECT_FALSE(model.canDropMimeData(dragged.get(), Qt::CopyAction, -1, -1, elsewhere));
    for (const QString &payload : { u"hello"_s, u"vellumark-docs:"_s, organizationPayload(zeta + 100) })
        EXPECT_FALSE(model.canDropMimeData(text(payload).get(), Qt::CopyAction, -1, -1, acmeRow))
            << payload.toStdString();

    ASSERT_TRUE(model.dropMimeData(dragged.get(), Qt::CopyAction, -1, -1, acmeRow));
    ASSERT_TRUE(waitUntil([&] {
        return std::ranges::all_of(scans, [&](std::int64_t id) { return document(id).organizationID == acme; });
    }));
    for (const std::int64_t id : scans)
        EXPECT_EQ(document(id).extractStatus, ExtractStatus::manual);
    EXPECT_EQ(acmeRow.data(SidebarModel::CountRole), 3);

    const std::unique_ptr<QMimeData> organization(model.mimeData({ acmeRow }));
    ASSERT_TRUE(organization);
    EXPECT_FALSE(model.dropMimeData(organization.get(), Qt::MoveAction, -1, -1, acmeRow));
    EXPECT_TRUE(merges.isEmpty());
    EXPECT_TRUE(model.dropMimeData(organization.get(), Qt::MoveAction, -1, -1, zetaRow));
    ASSERT_EQ(merges.size(), 1);
    EXPECT_EQ(merges[0][0].value<std::int64_t>(), acme);
    EXPECT_EQ(merges[0][1].value<std::int64_t>(), zeta);
    EXPECT_EQ(library.organizations().size(), 2u);
}

} // namespace
