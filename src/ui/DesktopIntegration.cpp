#include "ui/DesktopIntegration.h"

#include "library/Library.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileInfo>
#include <QSet>
#include <QUrl>

void DesktopIntegration::showInFileManager(const QStringList &paths)
{
    if (paths.isEmpty())
        return;
    QStringList uris;
    for (const QString &path : paths)
        uris << QUrl::fromLocalFile(path).toString();
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"), QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("ShowItems"));
    call << uris << QString();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 3000);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return;
    QSet<QString> opened;
    for (const QString &path : paths) {
        const QString folder = QFileInfo(path).absolutePath();
        if (!opened.contains(folder)) {
            opened.insert(folder);
            QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
        }
    }
}

void DesktopIntegration::openInDefaultViewer(const QStringList &paths)
{
    for (const QString &path : paths)
        QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void DesktopIntegration::openInPreview(const Library &library, const DocumentIDSet &ids)
{
    openInDefaultViewer(library.presentFiles(ids));
}

void DesktopIntegration::revealInFinder(const Library &library, const DocumentIDSet &ids)
{
    showInFileManager(library.presentFiles(ids));
}

void DesktopIntegration::revealDatabase(const Library &library)
{
    if (const std::optional<QString> path = library.databasePath())
        showInFileManager({ *path });
}
