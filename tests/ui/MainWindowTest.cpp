#include "library/DocumentTableModel.h"
#include "library/SidebarModel.h"
#include "library/Thumbnails.h"
#include "store/Database.h"
#include "store/ScanStore.h"
#include "ui/DocumentTable.h"
#include "ui/EmptyState.h"
#include "ui/LibraryView.h"
#include "ui/RenameDialog.h"
#include "ui/SidebarView.h"
#include "ui/StatusBarView.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>
#include <QTest>
#include <QToolButton>

#include "WindowFixture.h"

namespace {

using Column = DocumentTableModel::Column;

} // namespace

class MainWindowTest : public WindowTest {
protected:
    DocumentTable &table() const { return *window->libraryView()->table(); }
    DocumentTableModel &rows() const { return *table().model(); }
    SidebarView &sidebar() const { return *window->libraryView()->sidebar(); }
    QString cell(std::int64_t id, int column) const
    {
        const std::optional<int> row = rows().rowOf(id);
        return row ? rows().index(*row, column).data().toString() : u"(not shown)"_s;
    }
    QStringList files() const
    {
        QStringList names;
        for (int row = 0; row < rows().rowCount(); ++row)
            names << rows().index(row, Column::file).data().toString();
        return names;
    }
    QModelIndex organizationRow(const QString &name) const
    {
        for (const Organization &organization : library->organizations()) {
            if (organization.name == name)
                return sidebar().sidebarModel()->indexOf(SidebarItem::organization(organization.id));
        }
        ADD_FAILURE() << qPrintable(name);
        return {};
    }
    bool welcomeShown() const
    {
        return find<QStackedWidget>(u"content"_s)->currentWidget()->objectName() == u"welcome"_s;
    }
};

TEST_F(MainWindowTest, welcomeOffersTheRememberedFolderShowsAFailedOpenAndGivesWayToTheOpenFolder)
{
    showWindow();
    EXPECT_EQ(window->windowTitle(), u"Vellumark"_s);
    EXPECT_TRUE(find<QPushButton>(u"chooseScansFolder"_s)->isVisible());
    EXPECT_FALSE(find<QPushButton>(u"openLastFolder"_s)->isVisible());
    EXPECT_FALSE(find<QLabel>(u"openError"_s)->isVisible());
    for (const QString &name : { u"rescanAction"_s, u"pauseAction"_s, u"reextractModelAction"_s,
             u"reextractIncompleteAction"_s, u"revealDatabaseAction"_s })
        EXPECT_FALSE(action(name)->isEnabled()) << qPrintable(name);
    EXPECT_TRUE(action(u"activityAction"_s)->isEnabled());
    // No update feed is configured.
    EXPECT_FALSE(action(u"checkForUpdatesAction"_s)->isEnabled());

    // A catalogue can't be made inside a regular file.
    QFile blocker(path(u"Letters"_s));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    chosenFolder = blocker.fileName();
    find<QPushButton>(u"chooseScansFolder"_s)->click();
    QLabel *error = find<QLabel>(u"openError"_s);
    EXPECT_TRUE(error->isVisible());
    EXPECT_TRUE(error->text().startsWith(u"Couldn't open Vellumark.sqlite in Letters: "_s))
        << qPrintable(error->text());
    EXPECT_TRUE(welcomeShown());

    const QString scans = path(u"Scans"_s);
    QDir().mkpath(scans);
    writeFakeScan(QDir(scans).filePath(u"a.pdf"_s), { u"Dear member, the garden party is on"_s });
    chosenFolder = scans;
    find<QPushButton>(u"openLastFolder"_s)->click();
    ASSERT_TRUE(waitForQuiet());
    EXPECT_FALSE(welcomeShown());
    EXPECT_TRUE(action(u"rescanAction"_s)->isEnabled());
    EXPECT_EQ(window->windowTitle(), u"Vellumark — 1 of 1 scans"_s);

    // Started again with that folder remembered but gone, the welcome view offers it by name.
    window.reset();
    library.reset();
    QDir(scans).removeRecursively();
    showWindow();
    library->restore();
    chosenFolder.reset();
    window->findChild<QAction *>(u"openFolderAction"_s)->trigger();
    EXPECT_EQ(chooserStartedIn, scans);
    QPushButton *openLast = find<QPushButton>(u"openLastFolder"_s);
    EXPECT_TRUE(openLast->isVisible());
    EXPECT_EQ(openLast->text(), u"Open “Scans”…"_s);
    EXPECT_EQ(openLast->toolTip(), scans);
    EXPECT_TRUE(find<QPushButton>(u"chooseDifferentFolder"_s)->isVisible());
    EXPECT_FALSE(find<QPushButton>(u"chooseScansFolder"_s)->isVisible());
}

TEST_F(MainWindowTest, tableShowsFiledScansAndFollowsSortSearchAndFilters)
{
    fakeScan(u"b-garden.pdf"_s, u"The garden club invites you to the spring party"_s);
    fileEverythingAs(u"Garden Club"_s, u"Letter"_s, u"2024-03-05"_s);
    openFolder();
    fileEverythingAs(u"City Water"_s, u"Bill"_s, u"2023-11-20"_s);
    fakeScan(u"a-water.pdf"_s, u"Your water bill for November is due"_s);
    library->rescan();
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().size() == 2; }));
    ASSERT_TRUE(waitForQuiet());

    const std::int64_t garden = idOf(u"b-garden.pdf"_s);
    const std::int64_t water = idOf(u"a-water.pdf"_s);
    EXPECT_EQ(cell(garden, Column::organization), u"Garden Club"_s);
    EXPECT_EQ(cell(garden, Column::type), u"Letter"_s);
    EXPECT_EQ(cell(garden, Column::pages), u"1"_s);
    EXPECT_EQ(cell(garden, Column::status), u"Done"_s);
    EXPECT_EQ(cell(water, Column::organization), u"City Water"_s);
    // Newest first.
    EXPECT_EQ(files(), (QStringList { u"b-garden.pdf"_s, u"a-water.pdf"_s }));
    EXPECT_EQ(window->windowTitle(), u"Vellumark — 2 of 2 scans"_s);

    QTableView *view = table().view();
    const int fileHeader = view->horizontalHeader()->sectionViewportPosition(Column::file) + 5;
    QTest::mouseClick(view->horizontalHeader()->viewport(), Qt::LeftButton, {}, QPoint(fileHeader, 5));
    EXPECT_EQ(files(), (QStringList { u"a-water.pdf"_s, u"b-garden.pdf"_s }));

    QLineEdit *search = find<QLineEdit>(u"search"_s);
    QTest::keyClicks(search, u"water"_s);
    ASSERT_TRUE(waitUntil([&] { return rows().rowCount() == 1; }));
    EXPECT_EQ(files(), QStringList { u"a-water.pdf"_s });
    EXPECT_EQ(window->windowTitle(), u"Vellumark — 1 of 2 scans"_s);
    QTest::keyClicks(search, u"melon"_s);
    ASSERT_TRUE(waitUntil([&] { return rows().rowCount() == 0; }));
    EXPECT_TRUE(table().emptyState()->isVisible());
    EXPECT_EQ(table().emptyState()->title(), u"Nothing Here"_s);
    search->clear();
    library->setSearchText(QString());
    ASSERT_TRUE(waitUntil([&] { return rows().rowCount() == 2; }));

    QComboBox *year = find<QComboBox>(u"yearPicker"_s);
    EXPECT_EQ(year->itemText(0), u"All Years"_s);
    const int index2023 = year->findText(u"2023"_s);
    ASSERT_GE(index2023, 0);
    year->activated(index2023);
    EXPECT_EQ(library->year(), 2023);
    EXPECT_EQ(files(), QStringList { u"a-water.pdf"_s });
    QComboBox *type = find<QComboBox>(u"typePicker"_s);
    type->activated(type->findText(u"Letter"_s));
    EXPECT_EQ(rows().rowCount(), 0);
    year->activated(0);
    EXPECT_EQ(files(), QStringList { u"b-garden.pdf"_s });
}

TEST_F(MainWindowTest, selectionIsTheLibrarysAndSurvivesARowBeingFiled)
{
    fakeScan(u"one.pdf"_s, u"First letter from the club about the party"_s);
    fakeScan(u"two.pdf"_s, u"Second letter from the club about the party"_s);
    fakeScan(u"three.pdf"_s, u"Third letter from the club about the party"_s);
    openFolder();
    QTableView *view = table().view();
    view->selectRow(*rows().rowOf(idOf(u"two.pdf"_s)));
    EXPECT_EQ(library->selection(), DocumentIDSet { idOf(u"two.pdf"_s) });

    library->setSelection({ idOf(u"one.pdf"_s), idOf(u"three.pdf"_s) });
    DocumentIDSet shown;
    for (const QModelIndex &index : view->selectionModel()->selectedRows())
        shown.insert(rows().idAt(index.row()));
    EXPECT_EQ(shown, library->selection());

    // Typing a type into another scan updates its row; the selection stays as it was.
    waitFor(library->setKind({ idOf(u"two.pdf"_s) }, u"Invoice"_s));
    EXPECT_EQ(cell(idOf(u"two.pdf"_s), Column::type), u"Invoice"_s);
    EXPECT_EQ(cell(idOf(u"two.pdf"_s), Column::status), u"Edited"_s);
    EXPECT_EQ(view->selectionModel()->selectedRows().size(), 2);
    EXPECT_EQ(library->selection(), (DocumentIDSet { idOf(u"one.pdf"_s), idOf(u"three.pdf"_s) }));
}

TEST_F(MainWindowTest, pausingShowsInTheMenuTheStatusBarAndTheRows)
{
    QSettings().setValue(Library::pausedKey, true);
    fakeScan(u"one.pdf"_s, u"First letter"_s);
    fakeScan(u"two.pdf"_s, u"Second letter"_s);
    showWindow();
    library->open(folder.path(), false);
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().size() == 2; }));
    EXPECT_EQ(action(u"pauseAction"_s)->text(), u"Resume Processing"_s);
    StatusBarView *status = find<StatusBarView>(u"statusBar"_s);
    EXPECT_TRUE(status->summary().startsWith(u"Paused: 2 to read"_s)) << qPrintable(status->summary());
    EXPECT_FALSE(status->summary().contains(u"to extract"_s));
    EXPECT_EQ(cell(idOf(u"one.pdf"_s), Column::status), u"Paused"_s);
    EXPECT_EQ(find<QToolButton>(u"pauseButton"_s)->text(), u"Resume"_s);

    // A scan asked for runs even while paused, and says so.
    fileEverythingAs(u"Garden Club"_s, u"Letter"_s, u"2024-03-05"_s);
    library->request({ idOf(u"two.pdf"_s) });
    ASSERT_TRUE(waitUntil([&] { return cell(idOf(u"two.pdf"_s), Column::status) == u"Done"_s; }));
    EXPECT_EQ(cell(idOf(u"one.pdf"_s), Column::status), u"Paused"_s);

    QTest::keyClick(window.get(), Qt::Key_P, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_FALSE(library->paused());
    EXPECT_EQ(action(u"pauseAction"_s)->text(), u"Pause Processing"_s);
    EXPECT_EQ(find<QToolButton>(u"pauseButton"_s)->text(), u"Pause"_s);
    ASSERT_TRUE(waitForQuiet());
    EXPECT_EQ(status->summary(), u"Up to date"_s);
}

TEST_F(MainWindowTest, aScanWhoseFileIsGoneShowsFileMissingInRed)
{
    const QString gone = fakeScan(u"gone.pdf"_s, u"A letter that will be thrown away"_s);
    openFolder();
    QFile::remove(gone);
    library->rescan();
    const std::int64_t id = idOf(u"gone.pdf"_s);
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().at(id).missing; }));
    library->setSidebar(SidebarItem::problems());
    ASSERT_TRUE(waitUntil([&] { return cell(id, Column::status) == u"File missing"_s; }));
    const QModelIndex status = rows().index(*rows().rowOf(id), Column::status);
    EXPECT_EQ(StatusLabel::Tone(status.data(DocumentTableModel::StatusToneRole).toInt()), StatusLabel::Tone::red);
    EXPECT_TRUE(status.data(DocumentTableModel::PathRole).toString().isEmpty());

    QMenu *menu = table().menuFor({ id }, window.get());
    QAction *remove = menu->findChild<QAction *>(u"removeMissing"_s);
    ASSERT_TRUE(remove->isEnabled());
    remove->trigger();
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().empty(); }));
    delete menu;
}

TEST_F(MainWindowTest, scansDroppedOnAnOrganizationAreFiledThereByHand)
{
    fileEverythingAs(u"Garden Club"_s, u"Letter"_s, u"2024-03-05"_s);
    fakeScan(u"one.pdf"_s, u"First letter from the club"_s);
    openFolder();
    fileEverythingAs(u"City Water"_s, u"Bill"_s, u"2023-11-20"_s);
    fakeScan(u"two.pdf"_s, u"Water bill one"_s);
    fakeScan(u"three.pdf"_s, u"Water bill two"_s);
    fakeScan(u"four.pdf"_s, u"Water bill three"_s);
    library->rescan();
    ASSERT_TRUE(waitUntil([&] { return library->documentsByID().size() == 4; }));
    ASSERT_TRUE(waitForQuiet());

    const DocumentIDSet moved { idOf(u"two.pdf"_s), idOf(u"three.pdf"_s), idOf(u"four.pdf"_s) };
    QModelIndexList dragged;
    for (std::int64_t id : moved)
        dragged << rows().index(*rows().rowOf(id), Column::file);
    std::unique_ptr<QMimeData> payload(rows().mimeData(dragged));
    const QModelIndex garden = organizationRow(u"Garden Club"_s);
    ASSERT_TRUE(sidebar().sidebarModel()->canDropMimeData(payload.get(), Qt::MoveAction, -1, -1, garden));
    sidebar().sidebarModel()->dropMimeData(payload.get(), Qt::MoveAction, -1, -1, garden);
    ASSERT_TRUE(waitUntil([&] { return cell(idOf(u"four.pdf"_s), Column::organization) == u"Garden Club"_s; }));
    for (std::int64_t id : moved) {
        EXPECT_EQ(cell(id, Column::organization), u"Garden Club"_s);
        EXPECT_EQ(library->documentsByID().at(id).extractStatus, ExtractStatus::manual);
    }
    EXPECT_EQ(organizationRow(u"Garden Club"_s).data(SidebarModel::CountRole).toInt(), 4);

    // Something that isn't a payload of scans does nothing.
    QMimeData words;
    words.setText(u"two.pdf"_s);
    EXPECT_FALSE(sidebar().sidebarModel()->canDropMimeData(&words, Qt::MoveAction, -1, -1, garden));
}

TEST_F(MainWindowTest, organizationsAreMergedOnlyOnceConfirmedRenamedAndDeleted)
{
    fileEverythingAs(u"Garden Club"_s, u"Letter"_s, u"2024-03-05"_s);
    fakeScan(u"one.pdf"_s, u"First letter from the club"_s);
    openFolder();
    fileEverythingAs(u"Gardening Club"_s, u"Letter"_s, u"2024-04-05"_s);
    fakeScan(u"two.pdf"_s, u"Second letter from the club"_s);
    library->rescan();
    ASSERT_TRUE(waitUntil([&] { return library->organizations().size() == 2; }));
    ASSERT_TRUE(waitForQuiet());

    SidebarModel &model = *sidebar().sidebarModel();
    auto drag = [&](const QString &source, const QString &target) {
        std::unique_ptr<QMimeData> payload(model.mimeData({ organizationRow(source) }));
        const QModelIndex onto = organizationRow(target);
        if (model.canDropMimeData(payload.get(), Qt::MoveAction, -1, -1, onto))
            model.dropMimeData(payload.get(), Qt::MoveAction, -1, -1, onto);
    };
    QString asked;
    QString message;
    answer = [&](QDialog &dialog) {
        auto &box = dynamic_cast<QMessageBox &>(dialog);
        asked = box.text();
        message = box.informativeText();
        return click(dialog, u"Cancel"_s);
    };
    drag(u"Gardening Club"_s, u"Gardening Club"_s);
    EXPECT_TRUE(dialogsShown.empty());
    drag(u"Gardening Club"_s, u"Garden Club"_s);
    EXPECT_EQ(asked, u"Merge “Gardening Club” into “Garden Club”?"_s);
    EXPECT_EQ(message,
        u"1 scans move to “Garden Club”, and scans the model calls “Gardening Club” will be filed there from now on."_s);
    QCoreApplication::processEvents();
    EXPECT_EQ(library->organizations().size(), 2u);

    answer = [&](QDialog &dialog) { return click(dialog, u"Merge"_s); };
    drag(u"Gardening Club"_s, u"Garden Club"_s);
    ASSERT_TRUE(waitUntil([&] { return library->organizations().size() == 1; }));
    EXPECT_EQ(cell(idOf(u"two.pdf"_s), Column::organization), u"Garden Club"_s);

    const std::int64_t club = library->organizations().front().id;
    answer = [&](QDialog &dialog) {
        auto &rename = dynamic_cast<RenameDialog &>(dialog);
        EXPECT_EQ(rename.windowTitle(), u"Rename Organization"_s);
        EXPECT_EQ(rename.field()->text(), u"Garden Club"_s);
        rename.field()->setText(u"  Village Garden Club "_s);
        return click(dialog, u"Rename"_s);
    };
    std::unique_ptr<QMenu> menu(sidebar().menuFor(club, window.get()));
    menu->findChild<QAction *>(u"rename"_s)->trigger();
    ASSERT_TRUE(waitUntil([&] { return library->organizations().front().name == u"Village Garden Club"_s; }));
    EXPECT_EQ(cell(idOf(u"one.pdf"_s), Column::organization), u"Village Garden Club"_s);

    answer = [&](QDialog &dialog) {
        EXPECT_EQ(dynamic_cast<QMessageBox &>(dialog).text(), u"Delete “Village Garden Club”?"_s);
        return click(dialog, u"Delete"_s);
    };
    menu.reset(sidebar().menuFor(club, window.get()));
    menu->findChild<QAction *>(u"delete"_s)->trigger();
    ASSERT_TRUE(waitUntil([&] { return library->organizations().empty(); }));
    EXPECT_EQ(cell(idOf(u"one.pdf"_s), Column::organization), QString());
}

TEST_F(MainWindowTest, anEmptyFolderSaysSoAndEveryControlHasAnAccessibleName)
{
    openFolder();
    EXPECT_EQ(table().emptyState()->title(), u"No PDFs Yet"_s);
    EXPECT_EQ(window->windowTitle(), u"Vellumark — 0 of 0 scans"_s);
    EXPECT_EQ(unnamedControls(), QStringList());
}

TEST_F(MainWindowTest, thumbnailsComeFromTheRenderersAndAHangingFileCostsOnlyItsOwn)
{
    for (const QString &name : { u"a.pdf"_s, u"b.pdf"_s, u"c.pdf"_s })
        fakeScan(name, u"A letter called "_s + name);
    fakeScan(u"hangs.pdf"_s, QString::fromLatin1(fakeRenderHang) + u" a letter whose picture never comes"_s);
    openFolder();
    auto key = [&](const QString &name) {
        const QModelIndex row = rows().index(*rows().rowOf(idOf(name)), Column::thumbnail);
        return Thumbnails::key(row.data(DocumentTableModel::PathRole).toString(),
            row.data(DocumentTableModel::ModifiedRole).toDateTime(),
            row.data(DocumentTableModel::RotationRole).toInt());
    };
    auto renders = [&](const QString &name) {
        QFile log(path(QString::fromLatin1(fakeRenderLog)));
        if (!log.open(QIODevice::ReadOnly))
            return 0;
        return int(QString::fromUtf8(log.readAll()).count(name));
    };
    // The table paints, asks for every thumbnail, and gets those of the files that render while the
    // other file's renderer hangs.
    ASSERT_TRUE(waitUntil([&] {
        table().view()->viewport()->repaint();
        return Thumbnails::shared().cached(key(u"a.pdf"_s)) && Thumbnails::shared().cached(key(u"b.pdf"_s))
            && Thumbnails::shared().cached(key(u"c.pdf"_s));
    }));
    EXPECT_EQ(renders(u"hangs.pdf"_s), 1);
    // Painting on after the hung render was given up neither shows a picture for it nor tries again.
    QDeadlineTimer past(3s);
    while (!past.hasExpired()) {
        table().view()->viewport()->repaint();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    EXPECT_FALSE(Thumbnails::shared().cached(key(u"hangs.pdf"_s)));
    EXPECT_EQ(renders(u"hangs.pdf"_s), 1);
    // A picture of a page, upright.
    const QImage upright = *Thumbnails::shared().cached(key(u"a.pdf"_s));
    EXPECT_LT(upright.width(), upright.height());
}

TEST_F(MainWindowTest, aCatalogueFromANewerVersionOpensAndKeepsItsVersion)
{
    fakeScan(u"one.pdf"_s, u"A letter from the club"_s);
    {
        ScanStore store(folder.path());
    }
    const auto version = [&] {
        Database db(path(ScanStore::fileName));
        Statement statement = db.prepare(u"PRAGMA user_version"_s);
        statement.step();
        return statement.int64(0);
    };
    Database(path(ScanStore::fileName)).run(u"PRAGMA user_version = 99"_s);
    openFolder();
    EXPECT_FALSE(welcomeShown());
    EXPECT_EQ(rows().rowCount(), 1);
    EXPECT_EQ(version(), 99);
}
