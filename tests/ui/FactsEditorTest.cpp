#include "ui/FactsEditor.h"

#include "core/DocDate.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QCompleter>
#include <QDateEdit>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QStringListModel>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

#include "WindowFixture.h"

class FactsEditorTest : public WindowTest {
protected:
    // The folder's scans, filed by the model as Garden Club letters of 2024-03-05, and one more that
    // only serves as a marker of edits done.
    void openScans(const QStringList &names)
    {
        for (const QString &name : names)
            fakeScan(name + u".pdf"_s, u"A letter from the club about the party, number "_s + name);
        fakeScan(u"marker.pdf"_s, u"The marker scan that tells when the edits are stored"_s);
        openFolder();
    }

    const ScanDocument &record(const QString &name) const
    {
        return library->documentsByID().at(idOf(name + u".pdf"_s));
    }
    std::vector<ScanDocument> records() const
    {
        std::vector<ScanDocument> found;
        for (const std::int64_t id : shown)
            found.push_back(library->documentsByID().at(id));
        return found;
    }

    // An editor of the named scans in a window of its own, beside a field to move the focus to, told of
    // their records' changes as the inspector tells it.
    FactsEditor &edit(const QStringList &names)
    {
        shown.clear();
        for (const QString &name : names)
            shown.insert(idOf(name + u".pdf"_s));
        host = std::make_unique<QWidget>();
        auto *column = new QVBoxLayout(host.get());
        editor = new FactsEditor(*library, records(), host.get());
        elsewhere = new QLineEdit(host.get());
        column->addWidget(editor);
        column->addWidget(elsewhere);
        QObject::connect(
            library.get(), &Library::documentsChanged, editor, [this] { editor->setDocuments(records()); });
        host->show();
        host->activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(host.get()));
        return *editor;
    }

    template <typename T> T *part(const QString &name) const
    {
        T *found = editor->findChild<T *>(name);
        EXPECT_NE(found, nullptr) << qPrintable(name);
        return found;
    }
    QLineEdit *field() const { return part<QLineEdit>(u"organizationField"_s); }
    QComboBox *kinds() const { return part<QComboBox>(u"kindPicker"_s); }
    bool offersMultipleKinds() const { return kinds()->findText(u"Multiple"_s) >= 0; }

    // Moves the focus here, as a click would. The window system's events still queued are handled
    // first, as they are before a person's next click: the offscreen platform activates a completion
    // list even after it was hidden, so the editor's window is activated again.
    void focus(QWidget *widget)
    {
        QCoreApplication::processEvents();
        host->activateWindow();
        ASSERT_TRUE(waitUntil([&] { return QApplication::activeWindow() == host.get(); }));
        widget->setFocus();
    }

    // Every edit asked for so far is stored: one of the marker's own, asked for after them, is.
    void waitForEdits()
    {
        const QDate marker = QDate(2001, 1, 1).addDays(++markers);
        library->setDate({ idOf(u"marker.pdf"_s) }, marker);
        ASSERT_TRUE(waitUntil([&] { return record(u"marker"_s).date == marker.toString(Qt::ISODate); }));
    }

    // Picks a value of the type picker the way a person does: from its list.
    void pickKind(const QString &text)
    {
        QComboBox *picker = kinds();
        picker->showPopup();
        QAbstractItemView *list = picker->view();
        const QModelIndex item = list->model()->index(picker->findText(text), 0);
        list->scrollTo(item);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualRect(item).center());
    }

    DocumentIDSet shown;
    std::unique_ptr<QWidget> host;
    FactsEditor *editor = nullptr;
    QLineEdit *elsewhere = nullptr;
    int markers = 0;
};

TEST_F(FactsEditorTest, severalScansUnderDifferentOrganizationsChangeOnlyWhenANameIsTyped)
{
    openScans({ u"a"_s, u"b"_s, u"c"_s });
    blockingWait(library->setOrganization({ idOf(u"c.pdf"_s) }, std::nullopt));
    edit({ u"a"_s, u"b"_s, u"c"_s });
    EXPECT_EQ(field()->text(), QString());
    EXPECT_EQ(field()->placeholderText(), u"Multiple"_s);

    // Neither Return nor leaving the empty field files them all under none.
    focus(field());
    QTest::keyClick(field(), Qt::Key_Return);
    focus(elsewhere);
    waitForEdits();
    EXPECT_EQ(record(u"a"_s).organizationName, u"Garden Club"_s);
    EXPECT_EQ(record(u"c"_s).organizationName, std::nullopt);

    // A name typed and left behind files them all.
    focus(field());
    QTest::keyClicks(field(), u"  Garden Club "_s);
    focus(elsewhere);
    ASSERT_TRUE(waitUntil([&] { return record(u"c"_s).organizationName == u"Garden Club"_s; }));
    EXPECT_EQ(field()->text(), u"Garden Club"_s);
    EXPECT_EQ(field()->placeholderText(), u"Unknown"_s);
}

TEST_F(FactsEditorTest, theFieldCommitsOnceAndNeverForScansItNoLongerEdits)
{
    openScans({ u"a"_s, u"b"_s });
    edit({ u"a"_s });
    EXPECT_EQ(field()->text(), u"Garden Club"_s);

    // Emptied, the field of a filed scan clears its organization.
    focus(field());
    field()->selectAll();
    QTest::keyClick(field(), Qt::Key_Backspace);
    QTest::keyClick(field(), Qt::Key_Return);
    ASSERT_TRUE(waitUntil([&] { return !record(u"a"_s).organizationName; }));

    // Leaving the field after Return doesn't send the name again, even once the scan was filed
    // elsewhere meanwhile.
    QTest::keyClicks(field(), u"Bigco"_s);
    QTest::keyClick(field(), Qt::Key_Return);
    ASSERT_TRUE(waitUntil([&] { return record(u"a"_s).organizationName == u"Bigco"_s; }));
    blockingWait(library->setOrganization({ idOf(u"a.pdf"_s) }, u"Zeta"_s));
    focus(elsewhere);
    waitForEdits();
    EXPECT_EQ(record(u"a"_s).organizationName, u"Zeta"_s);

    // Text typed for one scan is not filed under the next one shown.
    focus(field());
    QTest::keyClicks(field(), u" Holdings"_s);
    shown = { idOf(u"b.pdf"_s) };
    editor->setDocuments(records());
    EXPECT_EQ(field()->text(), u"Garden Club"_s);
    focus(elsewhere);
    waitForEdits();
    EXPECT_EQ(record(u"a"_s).organizationName, u"Zeta"_s);
    EXPECT_EQ(record(u"b"_s).organizationName, u"Garden Club"_s);
}

TEST_F(FactsEditorTest, typingOffersOtherOrganizationsAndTheMenuFilesUnderAnyOrNone)
{
    openScans({ u"a"_s, u"b"_s, u"c"_s });
    blockingWait(library->setOrganization({ idOf(u"b.pdf"_s) }, u"Café Gartenhaus"_s));
    blockingWait(library->setOrganization({ idOf(u"c.pdf"_s) }, u"Smith & Sons"_s));
    edit({ u"a"_s });

    const auto offered = [&] { return qobject_cast<QStringListModel *>(field()->completer()->model())->stringList(); };
    focus(field());
    field()->selectAll();
    QTest::keyClicks(field(), u"cafe"_s);
    EXPECT_EQ(offered(), QStringList { u"Café Gartenhaus"_s });
    EXPECT_TRUE(field()->completer()->popup()->isVisible());
    field()->selectAll();
    QTest::keyClicks(field(), u"Smith & Sons"_s);
    EXPECT_EQ(offered(), QStringList());
    EXPECT_FALSE(field()->completer()->popup()->isVisible());
    // Typing alone changes nothing, while the list of completions comes and goes.
    waitForEdits();
    EXPECT_EQ(record(u"a"_s).organizationName, u"Garden Club"_s);

    QMenu *menu = part<QToolButton>(u"organizationMenu"_s)->menu();
    const auto choose = [&](const QString &name) {
        Q_EMIT menu->aboutToShow();
        for (QAction *item : menu->actions()) {
            if (item->iconText() == name)
                return item->trigger();
        }
        ADD_FAILURE() << qPrintable(name);
    };
    // A choice from the menu replaces what was typed, which leaving the field doesn't bring back.
    choose(u"None"_s);
    EXPECT_EQ(field()->text(), QString());
    ASSERT_TRUE(waitUntil([&] { return !record(u"a"_s).organizationName; }));
    focus(elsewhere);
    waitForEdits();
    EXPECT_EQ(record(u"a"_s).organizationName, std::nullopt);
    choose(u"Smith & Sons"_s);
    ASSERT_TRUE(waitUntil([&] { return record(u"a"_s).organizationName == u"Smith & Sons"_s; }));
    EXPECT_EQ(field()->text(), u"Smith & Sons"_s);
}

TEST_F(FactsEditorTest, theTypePickerOffersMultipleOnlyWhileTheKindsDiffer)
{
    openScans({ u"a"_s, u"b"_s });
    edit({ u"a"_s, u"b"_s });
    EXPECT_FALSE(offersMultipleKinds());
    EXPECT_EQ(kinds()->currentText(), u"Letter"_s);

    blockingWait(library->setKind({ idOf(u"b.pdf"_s) }, u"Invoice"_s));
    EXPECT_EQ(kinds()->currentText(), u"Multiple"_s);
    pickKind(u"Receipt"_s);
    ASSERT_TRUE(waitUntil([&] { return record(u"a"_s).kind == u"Receipt"_s && record(u"b"_s).kind == u"Receipt"_s; }));
    EXPECT_FALSE(offersMultipleKinds());
    EXPECT_EQ(kinds()->currentText(), u"Receipt"_s);

    pickKind(u"None"_s);
    ASSERT_TRUE(waitUntil([&] { return !record(u"a"_s).kind && !record(u"b"_s).kind; }));
}

TEST_F(FactsEditorTest, theDateIsPickedClearedAndSetToToday)
{
    openScans({ u"a"_s, u"b"_s });
    edit({ u"a"_s, u"b"_s });
    auto *picker = part<QDateEdit>(u"datePicker"_s);
    auto *button = part<QPushButton>(u"dateButton"_s);
    EXPECT_EQ(picker->date(), QDate(2024, 3, 5));

    // A day stepped in the picker is stored as the very day it shows.
    picker->setFocus();
    QTest::keyClick(picker, Qt::Key_Up);
    ASSERT_NE(picker->date(), QDate(2024, 3, 5));
    const QString picked = picker->date().toString(Qt::ISODate);
    ASSERT_TRUE(waitUntil([&] { return record(u"a"_s).date == picked && record(u"b"_s).date == picked; }));

    part<QToolButton>(u"clearDate"_s)->click();
    ASSERT_TRUE(waitUntil([&] { return !record(u"a"_s).date && !record(u"b"_s).date; }));
    EXPECT_FALSE(picker->isVisible());
    EXPECT_EQ(part<QLabel>(u"dateState"_s)->text(), u"None"_s);
    EXPECT_EQ(button->text(), u"Add Date"_s);
    button->click();
    ASSERT_TRUE(waitUntil([&] { return record(u"b"_s).date == DocDate::today(); }));

    blockingWait(library->setDate({ idOf(u"b.pdf"_s) }, QDate(2020, 1, 1)));
    EXPECT_EQ(part<QLabel>(u"dateState"_s)->text(), u"Multiple"_s);
    EXPECT_EQ(button->text(), u"Set Date"_s);
    button->click();
    ASSERT_TRUE(waitUntil([&] { return record(u"b"_s).date == DocDate::today(); }));
    EXPECT_TRUE(picker->isVisible());
}
