#include "WindowFixture.h"
// After the fixture, whose first header teaches the tests to print texts.
#include "ui/ActivityView.h"
#include "ui/DocumentInspector.h"
#include "ui/InspectorView.h"
#include "ui/LibraryView.h"
#include "ui/SettingsWindow.h"
#include "ui/TraceSheet.h"

#include <QLabel>
#include <QPushButton>
#include <QToolButton>

class WindowsTest : public WindowTest {
protected:
    QDialog *transcript() const { return window->findChild<QDialog *>(u"transcript"_s); }
};

TEST_F(WindowsTest, theActivityAndSettingsWindowsOpenWithoutAFolderAndComeForwardWhenAskedAgain)
{
    showWindow();
    EXPECT_EQ(window->activityWindow(), nullptr);
    action(u"activityAction"_s)->trigger();
    ActivityView *activity = window->activityWindow();
    ASSERT_NE(activity, nullptr);
    EXPECT_TRUE(activity->isVisible());
    EXPECT_TRUE(activity->isWindow());
    EXPECT_EQ(activity->objectName(), u"activity"_s);
    activity->close();
    action(u"activityAction"_s)->trigger();
    EXPECT_EQ(window->activityWindow(), activity);
    EXPECT_TRUE(activity->isVisible());

    action(u"preferencesAction"_s)->trigger();
    SettingsWindow *settings = window->settingsWindow();
    ASSERT_NE(settings, nullptr);
    EXPECT_TRUE(settings->isVisible());
    EXPECT_EQ(settings->currentPage(), 0);
    // Preferences opens where the person left it.
    settings->present(2);
    settings->close();
    action(u"preferencesAction"_s)->trigger();
    EXPECT_EQ(settings->currentPage(), 2);
    EXPECT_EQ(window->settingsWindow(), settings);
}

TEST_F(WindowsTest, theInspectorOpensTheTranscriptOverTheWindowAndTheInstructionsPage)
{
    fakeScan(u"b.pdf"_s, u"Garden club letter"_s);
    openFolder();
    find<QToolButton>(u"inspectorToggle"_s)->click();
    library->setSelection({ idOf(u"b.pdf"_s) });
    auto *inspector = qobject_cast<DocumentInspector *>(window->libraryView()->inspector()->current());
    ASSERT_NE(inspector, nullptr);

    inspector->findChild<QPushButton *>(u"showTranscript"_s)->click();
    QDialog *sheet = transcript();
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    EXPECT_TRUE(sheet->isVisible());
    sheet->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(transcript(), nullptr);

    action(u"preferencesAction"_s)->trigger();
    window->settingsWindow()->present(1);
    Q_EMIT inspector->findChild<QLabel *>(u"editPrompt"_s)->linkActivated(u"instructions"_s);
    EXPECT_EQ(window->settingsWindow()->currentPage(), 0);
}
