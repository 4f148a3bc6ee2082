#pragma once

#include <QStringList>

// `vellumark-cli set FOLDER PATH-OR-ID… [--organization NAME|--no-organization] [--type TYPE|--no-type]
// [--date YYYY-MM-DD|--no-date]`: files scans by hand; returns the exit status.
int runSetCommand(const QStringList &arguments);

// `vellumark-cli reextract FOLDER PATH-OR-ID…`: the model is asked about the scans again.
int runReextractCommand(const QStringList &arguments);

// `vellumark-cli reread FOLDER PATH-OR-ID…`: the scans' text is read again.
int runRereadCommand(const QStringList &arguments);
