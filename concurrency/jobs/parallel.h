// The same work for each item of a range.
//
//     Orvane::ForEach(L"Digest", files, [](File& file) { file.Digest(); });
//     std::vector<int> sizes = Orvane::Map(L"Size", files, [](const File& file) { return file.Size(); });
//
// Some runners take the items in chunks, so an item costs some ten nanoseconds, and not a task. At most `bound` items are under
// way at a time.
//
// Threads: any. On a thread that is in a run (of a job or another task) the caller is one of the runners; elsewhere (a window's
//     or STA thread, main) it only waits. The callable is shared by all runners, so it is called on several threads at a time.
// Cancellation: a cancellation point of the calling thread's own run. A request reaches all runners, which leave at the next
//     item, or in the cancellable waits of the item they are at. The call returns when they have left.
// Errors: the first failure in time ends the others and is thrown as its own type. A call that did not come to all items throws:
//     CancelRequestedException if the caller's run was asked, CancelledException otherwise. Also what JobGroup throws;
//     std::invalid_argument for a bound of 0; std::bad_alloc.
// Memory: everything before the call is visible to each item, and everything in the items after it.
// Lifetime: callable and range are used in place. They are not used any more when the call has returned or thrown.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <ranges>
#include <type_traits>
#include <utility>
#include <vector>

#include "concurrency/base/export.h"
#include "concurrency/jobs/job_bound.h"

namespace Orvane {

namespace Internal {

// Calls `run` for chunks of [0, count) on runners until it has been called for all. `run` looks at the flag before each item,
// and returns how many it has done.
using RunChunk = std::size_t (*)(void* context, std::size_t begin, std::size_t end, const std::atomic<bool>& isAsked);

ORVANE_CONCURRENCY_API void RunInParallel(const wchar_t* name, std::size_t count, std::size_t bound, void* context,
                                          RunChunk run);

template <typename Item>
void ForEachIndex(const wchar_t* name, std::size_t count, std::size_t bound, Item& item) {
    RunInParallel(name, count, bound, std::addressof(item),
                  [](void* context, std::size_t begin, std::size_t end, const std::atomic<bool>& isAsked) {
                      auto& call = *static_cast<Item*>(context);
                      std::size_t next = begin;
                      for (; next != end && !isAsked.load(std::memory_order_relaxed); ++next) {
                          call(next);
                      }
                      return next - begin;
                  });
}

// Calls `use` with the number of items and a function that gives the item of an index.
template <typename Range, typename Use>
decltype(auto) WithItems(Range& range, Use use) {
    const auto first = std::ranges::begin(range);
    if constexpr (std::ranges::random_access_range<Range>) {
        const auto count = static_cast<std::size_t>(std::ranges::distance(range));
        return use(count, [first](std::size_t index) -> decltype(auto) {
            return first[static_cast<std::iter_difference_t<decltype(first)>>(index)];
        });
    } else {
        std::vector<std::ranges::iterator_t<Range>> items;
        for (auto next = first; next != std::ranges::end(range); ++next) {
            items.push_back(next);
        }
        return use(items.size(), [&items](std::size_t index) -> decltype(auto) { return *items[index]; });
    }
}

}  // namespace Internal

// Calls the callable with each item of the range.
template <std::ranges::forward_range Range, typename F>
void ForEach(const wchar_t* name, Range&& range, F&& callable, std::size_t bound = DefaultBound()) {
    Internal::WithItems(range, [&](std::size_t count, auto item) {
        auto call = [&](std::size_t index) { static_cast<void>(std::invoke(callable, item(index))); };
        Internal::ForEachIndex(name, count, bound, call);
    });
}

// The same; returns what the calls return, in the order of the range: all of it, or it throws.
template <std::ranges::forward_range Range, typename F>
auto Map(const wchar_t* name, Range&& range, F&& callable, std::size_t bound = DefaultBound()) {
    using Result = std::decay_t<std::invoke_result_t<F&, std::ranges::range_reference_t<Range>>>;
    static_assert(!std::is_void_v<Result>, "Map() keeps what the callable returns: use ForEach()");
    return Internal::WithItems(range, [&](std::size_t count, auto item) {
        // Apart: std::vector<bool> has no objects of its own, and Result may have no default.
        std::vector<std::optional<Result>> kept(count);
        auto call = [&](std::size_t index) { kept[index].emplace(std::invoke(callable, item(index))); };
        Internal::ForEachIndex(name, count, bound, call);
        std::vector<Result> results;
        results.reserve(count);
        for (auto& result : kept) {
            results.push_back(std::move(*result));
        }
        return results;
    });
}

}  // namespace Orvane
