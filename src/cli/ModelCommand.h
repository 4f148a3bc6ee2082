#pragma once

#include <QStringList>

// `vellumark-cli model [--model-server URL] [--model NAME] [--json]`; returns the exit status.
int runModelCommand(const QStringList &arguments);
