#pragma once

#include <QString>
#include <QStringList>

// Shows the files selected in the desktop's file manager, or, when none answers on the session bus,
// opens the folders that hold them.
void showInFileManager(const QStringList &paths);
inline void showInFileManager(const QString &path)
{
    showInFileManager(QStringList { path });
}
