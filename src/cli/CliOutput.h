#pragma once

#include <QString>

#include <cstdio>

inline void printOut(const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stdout);
}

inline void printErr(const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stderr);
}

// Exit statuses shared by every command.
namespace ExitStatus {
constexpr int success = 0;
constexpr int usage = 1;
constexpr int failed = 1; // the work asked for couldn't be done
constexpr int cannotOpen = 2;
constexpr int modelUnavailable = 3;
constexpr int interrupted = 130; // as a shell reports a command ended by Ctrl+C
} // namespace ExitStatus
