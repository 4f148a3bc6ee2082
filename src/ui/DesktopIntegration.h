#pragma once

#include "library/Catalogue.h"

#include <QString>
#include <QStringList>

class Library;

// The desktop's own programs, for the app's commands that hand files over to them.
namespace DesktopIntegration {

// Shows the files selected in the desktop's file manager, or, when none answers on the session bus,
// opens the folders that hold them.
void showInFileManager(const QStringList &paths);
// Opens each file in the desktop's default program for its type.
void openInDefaultViewer(const QStringList &paths);

// The Library's commands of the same kind: the present scans' files in the default PDF viewer, or
// selected in the file manager; the catalogue file in the file manager.
void openInPreview(const Library &library, const DocumentIDSet &ids);
void revealInFinder(const Library &library, const DocumentIDSet &ids);
void revealDatabase(const Library &library);

} // namespace DesktopIntegration
