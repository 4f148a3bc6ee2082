#pragma once

#include <QString>
#include <QStringList>

// The desktop's own programs, for the app's commands that hand files over to them.
namespace DesktopIntegration {

// Shows the files selected in the desktop's file manager, or, when none answers on the session bus,
// opens the folders that hold them.
void showInFileManager(const QStringList &paths);
// Opens each file in the desktop's default program for its type.
void openInDefaultViewer(const QStringList &paths);

} // namespace DesktopIntegration
