#pragma once

#include <QJsonObject>
#include <QStringList>

struct ScanDocument;

// `vellumark-cli list FOLDER [--view …] [--organization NAME] [--year YYYY] [--type TYPE] [--search WORDS]
// [--json]`: the scans the app's table would show, newest date first; returns the exit status.
int runListCommand(const QStringList &arguments);

// `vellumark-cli search FOLDER WORDS… [--json]`: the same listing for a search.
int runSearchCommand(const QStringList &arguments);

// The scan's fields under their ScanDocument names.
QJsonObject documentJson(const ScanDocument &document);

// What the status column says about a scan when nothing is being worked on.
QString statusText(const ScanDocument &document);
