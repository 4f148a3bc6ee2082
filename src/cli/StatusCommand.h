#pragma once

#include <QStringList>

class ScanStore;

struct CatalogueStatus {
    int schemaVersion = 0;
    int scans = 0;
    int pendingText = 0;
    int pendingExtraction = 0;
    int problems = 0;
    bool operator==(const CatalogueStatus &) const = default;
};

// Counts of present scans, scans waiting for text or for the model, and problems (missing, or text or
// extraction failed).
CatalogueStatus catalogueStatus(ScanStore &store);

// `vellumark-cli status FOLDER [--json]`; returns the exit status.
int runStatusCommand(const QStringList &arguments);
