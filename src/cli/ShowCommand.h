#pragma once

#include <QStringList>

// vellumark-cli show FOLDER PATH-OR-ID [--json] [--transcript]: one scan's facts, its log and, on
// request, everything the model was asked and answered about it.
int runShowCommand(const QStringList &arguments);
