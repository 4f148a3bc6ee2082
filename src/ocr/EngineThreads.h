#pragma once

#include <cstdlib>
#include <unistd.h>

// Tesseract asks OpenMP for up to ten threads per text line, and OpenMP's waiting threads spin against
// each other and the rest of the program: on a two-core machine a dense page took 13 s instead of 2 s
// (bench/README.md). OpenMP reads its thread limit from the environment once, when the library is
// loaded, before main runs; so a program that recognises text calls this first thing in main, and
// starts itself again with the limit set. A limit already in the environment is left alone.
inline void limitEngineThreads(char **argv)
{
    if (std::getenv("OMP_THREAD_LIMIT") != nullptr)
        return;
    ::setenv("OMP_THREAD_LIMIT", "1", 1);
    ::execv("/proc/self/exe", argv);
    // Starting again failed: carry on, only slower.
}
