#pragma once

#include <QStringList>

// `vellumark-cli read FILE.pdf [--json] [--languages LANGS] [--timeout SECONDS]`; returns the exit status.
int runReadCommand(const QStringList &arguments);
