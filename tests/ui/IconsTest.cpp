#include "ui/Icons.h"

#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

int paintedPixels(const QIcon &icon, int size)
{
    const QImage image = icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
    int painted = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            painted += qAlpha(image.pixel(x, y)) > 0;
    return painted;
}

QColor centre(const QIcon &icon)
{
    return icon.pixmap(16, 16).toImage().pixelColor(8, 8);
}

// Icon themes of the test's own: none but those it makes.
class IconsTest : public ::testing::Test {
protected:
    void SetUp() override { QIcon::setThemeSearchPaths({ themes.path() }); }
    void TearDown() override
    {
        QIcon::setThemeSearchPaths(savedPaths);
        QIcon::setThemeName(savedName);
    }

    // A theme whose "folder" icon is all one colour.
    void useTheme(const QString &name, QColor folderColour)
    {
        const QDir dir(themes.path() + u'/' + name);
        ASSERT_TRUE(dir.mkpath(u"16x16/places"_s));
        QFile index(dir.filePath(u"index.theme"_s));
        ASSERT_TRUE(index.open(QIODevice::WriteOnly));
        index.write("[Icon Theme]\nName=Test\nDirectories=16x16/places\n[16x16/places]\nSize=16\nType=Fixed\n");
        index.close();
        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(folderColour);
        ASSERT_TRUE(image.save(dir.filePath(u"16x16/places/folder.png"_s)));
        QIcon::setThemeName(name);
    }

    QTemporaryDir themes;
    const QString savedName = QIcon::themeName();
    const QStringList savedPaths = QIcon::themeSearchPaths();
};

} // namespace

// A bare system: no icon theme at all, so every symbol the windows show is the program's own drawing.
TEST_F(IconsTest, withoutAnIconTheme_everySymbolIsDrawn)
{
    QIcon::setThemeName(u"vellumark-test-none"_s);
    const QStringList used = uR"(doc.text.magnifyingglass lock.shield tray.full questionmark.circle gearshape.2
        exclamationmark.triangle exclamationmark.triangle.fill building.2 sidebar.right
        line.3.horizontal.decrease.circle doc.viewfinder questionmark.folder text.viewfinder arrow.up.circle
        pause.circle pause.circle.fill pencil checkmark.circle sparkles hourglass pause.fill play.fill
        cylinder.split.1x2 magnifyingglass folder building.columns xmark.circle.fill trash text.bubble
        checkmark.circle.fill xmark.octagon.fill)"_s.split(QRegularExpression(u"\\s+"_s));
    for (const QString &name : used) {
        EXPECT_GT(paintedPixels(Icons::symbol(name), 16), 10) << name.toStdString();
        EXPECT_GT(paintedPixels(Icons::symbol(name), 48), 40) << name.toStdString();
    }
    EXPECT_GT(paintedPixels(Icons::application(), 64), 1000);
    EXPECT_TRUE(Icons::symbol(u"no.such.symbol").isNull());
}

// The desktop's theme gives the icons it has, so that the app looks like the rest of the desktop, and
// the drawings fill its gaps. A theme changed while the app runs changes the icons.
TEST_F(IconsTest, themeIconsComeFirst_drawingsFillTheGaps)
{
    useTheme(u"vellumark-test-red"_s, Qt::red);
    EXPECT_EQ(centre(Icons::symbol(u"folder")), QColor(Qt::red));
    EXPECT_GT(paintedPixels(Icons::symbol(u"magnifyingglass"), 16), 10);
    useTheme(u"vellumark-test-blue"_s, Qt::blue);
    EXPECT_EQ(centre(Icons::symbol(u"folder")), QColor(Qt::blue));
}
