#pragma once

#include <exception>
#include <stop_token>

// Thrown where long work notices that it was asked to stop; callers treat it as "no result", never as
// a failure of the scan being worked on.
struct Cancelled : std::exception {
    const char *what() const noexcept override { return "Cancelled"; }
};

inline void throwIfCancelled(const std::stop_token &token)
{
    if (token.stop_requested())
        throw Cancelled();
}
