#pragma once

#include "library/Catalogue.h"

#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

// The next scan for a work loop: one of the requested scans when one is ready, else, unless work is
// paused, whichever the store offers next. `next(store, among)` asks the store, among the given ids or
// all. A failing query counts as no job.
template <typename Next>
auto nextJob(std::shared_ptr<Catalogue::Store> store, DocumentIDSet requested, bool paused, Next next)
    -> QCoro::Task<std::invoke_result_t<Next &, ScanStore &, const std::optional<DocumentIDs> &>>
{
    using Job = std::invoke_result_t<Next &, ScanStore &, const std::optional<DocumentIDs> &>;
    if (!requested.empty()) {
        const std::optional<DocumentIDs> among = DocumentIDs(requested.begin(), requested.end());
        try {
            if (Job job = co_await store->run([among, next](ScanStore &s) { return std::invoke(next, s, among); }))
                co_return job;
        } catch (const std::exception &) {
        }
    }
    if (paused)
        co_return std::nullopt;
    try {
        co_return co_await store->run(
            [next](ScanStore &s) { return std::invoke(next, s, std::optional<DocumentIDs>()); });
    } catch (const std::exception &) {
    }
    co_return std::nullopt;
}
