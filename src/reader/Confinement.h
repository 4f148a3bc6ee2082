#pragma once

#include <QString>

#include <optional>

// What the reader may still do once it has started: read files, use the pipes and descriptors it
// already holds, manage memory and threads, tell the time. Opening a file for writing, making a folder
// or removing a file fails with EACCES (libraries that keep a cache carry on without it); any other
// call, such as opening a socket, starting a program or tracing a process, ends the process at once
// with SIGSYS.
namespace Confinement {

// Applies the filter to the calling process and every thread it starts afterwards; it can't be lifted.
// Returns why it couldn't be applied, if it couldn't.
std::optional<QString> apply();

} // namespace Confinement
