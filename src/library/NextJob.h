#pragma once

#include "library/Catalogue.h"

#include <memory>
#include <optional>

// The next scan for a work loop: one of the requested scans when one is ready, else, unless work is
// paused, whichever the store offers next. A failing query counts as no job.
template <typename Job>
QCoro::Task<std::optional<Job>> nextJob(std::shared_ptr<Catalogue::Store> store, DocumentIDSet requested, bool paused,
    std::optional<Job> (ScanStore::*next)(const std::optional<DocumentIDs> &))
{
    if (!requested.empty()) {
        const DocumentIDs among(requested.begin(), requested.end());
        try {
            if (std::optional<Job> job = co_await store->run([among, next](ScanStore &s) { return (s.*next)(among); }))
                co_return job;
        } catch (const std::exception &) {
        }
    }
    if (paused)
        co_return std::nullopt;
    try {
        co_return co_await store->run([next](ScanStore &s) { return (s.*next)(std::nullopt); });
    } catch (const std::exception &) {
    }
    co_return std::nullopt;
}
