#pragma once

#include <QIcon>
#include <QStringView>

// The app's icons by the symbol names the windows use ("tray.full", "pause.circle.fill"…): the desktop's
// icon theme where it has a fitting icon, else a drawing that comes with the program, so that icons show
// on a system without any theme. Main thread only.
namespace Icons {

// A null icon for a name the program has no icon for.
QIcon symbol(QStringView name);
// Vellumark's own icon, for the windows.
QIcon application();

} // namespace Icons
