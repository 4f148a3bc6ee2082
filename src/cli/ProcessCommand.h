#pragma once

#include <QStringList>

// `vellumark-cli process [FOLDER] [--watch] [--ignore-pause]`; returns the exit status. Without a
// FOLDER, --watch follows the folder the desktop app remembers.
int runProcessCommand(const QStringList &arguments);
