#pragma once

#include <QStringList>

// `vellumark-cli organizations FOLDER [--json]`: every organization with its number of scans.
int runOrganizationsCommand(const QStringList &arguments);

// `vellumark-cli rename-organization FOLDER OLD NEW`: renaming to another's name merges into it.
int runRenameOrganizationCommand(const QStringList &arguments);

// `vellumark-cli merge-organization FOLDER SOURCE TARGET`.
int runMergeOrganizationCommand(const QStringList &arguments);

// `vellumark-cli delete-organization FOLDER NAME`: its scans stay, filed under none.
int runDeleteOrganizationCommand(const QStringList &arguments);
