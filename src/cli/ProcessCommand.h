#pragma once

#include <QStringList>

// `vellumark-cli process FOLDER [--watch] [--ignore-pause]`; returns the exit status.
int runProcessCommand(const QStringList &arguments);
