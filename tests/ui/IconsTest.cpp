#include "ui/Icons.h"

#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Every symbol the windows show.
const QStringList usedSymbols = { u"doc.text.magnifyingglass"_s, u"lock.shield"_s, u"tray.full"_s,
    u"questionmark.circle"_s, u"gearshape.2"_s, u"exclamationmark.triangle"_s, u"exclamationmark.triangle.fill"_s,
    u"building.2"_s, u"sidebar.right"_s, u"line.3.horizontal.decrease.circle"_s, u"doc.viewfinder"_s,
    u"questionmark.folder"_s, u"text.viewfinder"_s, u"arrow.up.circle"_s, u"pause.circle"_s, u"pause.circle.fill"_s,
    u"pencil"_s, u"checkmark.circle"_s, u"sparkles"_s, u"hourglass"_s, u"pause.fill"_s, u"play.fill"_s,
    u"cylinder.split.1x2"_s, u"magnifyingglass"_s, u"folder"_s };

int paintedPixels(const QIcon &icon, int size)
{
    const QImage image = icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
    int painted = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            painted += qAlpha(image.pixel(x, y)) > 0;
    return painted;
}

class IconsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        savedName = QIcon::themeName();
        savedPaths = QIcon::themeSearchPaths();
        savedFallbackPaths = QIcon::fallbackSearchPaths();
        QIcon::setThemeSearchPaths({ themes.path() });
        QIcon::setFallbackSearchPaths({});
    }
    void TearDown() override
    {
        QIcon::setThemeSearchPaths(savedPaths);
        QIcon::setFallbackSearchPaths(savedFallbackPaths);
        QIcon::setThemeName(savedName);
    }

    // A theme of the test's own with an icon of one colour for each of `names`, 16 pixels, in "places".
    void useTheme(const QString &theme, const QStringList &names, QColor colour)
    {
        const QDir dir(themes.path() + u'/' + theme);
        ASSERT_TRUE(dir.mkpath(u"16x16/places"_s));
        QFile index(dir.filePath(u"index.theme"_s));
        ASSERT_TRUE(index.open(QIODevice::WriteOnly));
        index.write("[Icon Theme]\nName=Test\nDirectories=16x16/places\n\n[16x16/places]\nSize=16\nType=Fixed\n");
        index.close();
        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(colour);
        for (const QString &name : names)
            ASSERT_TRUE(image.save(dir.filePath(u"16x16/places/"_s + name + u".png"_s)));
        QIcon::setThemeName(theme);
    }

    QTemporaryDir themes;
    QString savedName;
    QStringList savedPaths;
    QStringList savedFallbackPaths;
};

} // namespace

// A bare system: no icon theme at all, so every icon is the program's own drawing, at any size.
TEST_F(IconsTest, withoutAnIconTheme_everySymbolIsDrawn)
{
    QIcon::setThemeName(u"vellumark-test-none"_s);
    for (const QString &name : usedSymbols) {
        const QIcon icon = Icons::symbol(name);
        EXPECT_GT(paintedPixels(icon, 16), 10) << name.toStdString();
        EXPECT_GT(paintedPixels(icon, 48), 40) << name.toStdString();
    }
    EXPECT_GT(paintedPixels(Icons::application(), 64), 1000);
    EXPECT_TRUE(Icons::symbol(u"no.such.symbol").isNull());
}

// The desktop's theme gives the icons it has, so the app looks like the rest of the desktop; the
// drawings fill its gaps. Changing the theme while the app runs changes the icons.
TEST_F(IconsTest, themeIconsComeFirst_drawingsFillTheGaps)
{
    useTheme(u"vellumark-test-red"_s, { u"folder"_s }, Qt::red);
    EXPECT_EQ(Icons::symbol(u"folder").pixmap(16, 16).toImage().pixelColor(8, 8), QColor(Qt::red));
    EXPECT_GT(paintedPixels(Icons::symbol(u"magnifyingglass"), 16), 10);

    useTheme(u"vellumark-test-blue"_s, { u"folder"_s }, Qt::blue);
    EXPECT_EQ(Icons::symbol(u"folder").pixmap(16, 16).toImage().pixelColor(8, 8), QColor(Qt::blue));
}
