#pragma once

#include <QString>

// Shows the file selected in the desktop's file manager, or, when none answers on the session bus,
// opens the folder that holds it.
void showInFileManager(const QString &path);
