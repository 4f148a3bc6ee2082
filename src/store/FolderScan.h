#pragma once

#include "store/ScanStore.h"

#include <QString>

#include <functional>
#include <optional>
#include <vector>

// Every PDF under `folder`, at any depth, with paths relative to it ("Invoices/2024/a.pdf"), in the order
// the folder was walked. Hidden files and folders and the insides of packages are left out; a symbolic
// link counts when its target is a regular file inside the folder, under the target's path. Anything
// that can't be read is skipped; a size or time that can't be read is 0 or the distant past. A folder
// that doesn't exist gives an empty list. Reads no file contents.
std::vector<ScanStore::FileInfo> enumeratePDFs(const QString &folder);

// A directory that neither the folder scan nor the watcher enters: hidden ones and packages.
bool isSkippedDirectory(const QString &name);

// The modification time stored for a file whose time can't be read.
QDateTime distantPast();

// Hashes a file of `folder` given its relative path: SHA-256 of its whole content in lower-case
// hexadecimal, or absent when it can't be read.
std::function<std::optional<QString>(const QString &relativePath)> fileHasher(const QString &folder);
