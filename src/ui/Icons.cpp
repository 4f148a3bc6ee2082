#include "ui/Icons.h"

#include <QHash>
#include <QString>

#include <initializer_list>

namespace {

struct Symbol {
    QStringView name;
    // Icon-theme names that show the same thing, best first. None where no common name fits: a stand-in
    // from the theme that means something else would mislead more than the bundled drawing stands out.
    std::initializer_list<QStringView> themeNames;
};

constexpr Symbol symbols[] = {
    { u"arrow.up.circle", { u"go-up" } },
    { u"building.2", { u"x-office-address-book" } },
    { u"building.columns", {} },
    { u"checkmark.circle", { u"emblem-ok", u"emblem-default" } },
    // Drawn in a colour of the app's own, which a theme's coloured icon wouldn't take.
    { u"checkmark.circle.fill", {} },
    { u"cylinder.split.1x2", { u"drive-harddisk" } },
    { u"doc.on.doc", { u"edit-copy" } },
    { u"doc.text", { u"text-x-generic", u"x-office-document" } },
    { u"doc.text.magnifyingglass", { u"document-preview", u"x-office-document" } },
    { u"doc.viewfinder", { u"scanner" } },
    { u"exclamationmark.triangle", { u"dialog-warning" } },
    { u"exclamationmark.triangle.fill", { u"dialog-warning" } },
    { u"folder", { u"folder" } },
    { u"gearshape.2", { u"system-run", u"emblem-system" } },
    { u"hourglass", { u"appointment-soon" } },
    { u"line.3.horizontal.decrease.circle", { u"view-filter" } },
    { u"list.bullet.rectangle", { u"view-list-details", u"view-list-text" } },
    { u"lock.shield", { u"security-high" } },
    { u"magnifyingglass", { u"edit-find", u"system-search" } },
    { u"pause.circle", { u"media-playback-pause" } },
    { u"pause.circle.fill", { u"media-playback-pause" } },
    { u"pause.fill", { u"media-playback-pause" } },
    { u"pencil", { u"document-edit" } },
    { u"play.fill", { u"media-playback-start" } },
    { u"questionmark.circle", { u"dialog-question", u"help-faq" } },
    { u"questionmark.folder", {} },
    { u"sidebar.right", { u"sidebar-show-right", u"view-right-pane" } },
    { u"sparkles", {} },
    { u"text.bubble", {} },
    { u"text.viewfinder", {} },
    { u"trash", { u"user-trash", u"edit-delete" } },
    { u"tray.full", { u"mail-folder-inbox", u"mail-inbox" } },
    { u"xmark.circle.fill", { u"edit-clear" } },
    { u"xmark.octagon.fill", {} },
};

const Symbol *find(QStringView name)
{
    for (const Symbol &symbol : symbols)
        if (symbol.name == name)
            return &symbol;
    return nullptr;
}

QIcon resolve(const Symbol &symbol)
{
    for (QStringView themeName : symbol.themeNames)
        if (QIcon::hasThemeIcon(themeName.toString()))
            return QIcon::fromTheme(themeName.toString());
    return QIcon(QStringLiteral(":/vellumark/symbols/") + symbol.name + QStringLiteral(".svg"));
}

} // namespace

QIcon Icons::symbol(QStringView name)
{
    const Symbol *known = find(name);
    if (!known)
        return {};
    // Table rows ask for the same few icons over and over; looking them up in the theme means reading
    // directories, so each is looked up once per theme.
    static QHash<QStringView, QIcon> cache;
    static QString cachedTheme;
    if (QIcon::themeName() != cachedTheme) {
        cache.clear();
        cachedTheme = QIcon::themeName();
    }
    auto found = cache.constFind(known->name);
    if (found == cache.constEnd())
        found = cache.insert(known->name, resolve(*known));
    return *found;
}

QIcon Icons::application()
{
    return QIcon::fromTheme(
        QStringLiteral("org.vellumark.Vellumark"), QIcon(QStringLiteral(":/vellumark/org.vellumark.Vellumark.svg")));
}
