#include "concurrency/base/processors.h"

#include <atomic>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

constinit std::atomic<std::uint32_t> g_processors = 0;  // 0: not read yet

}  // namespace

std::uint32_t ProcessorCount() noexcept {
    std::uint32_t count = g_processors.load(std::memory_order_relaxed);
    if (count == 0) {
        count = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
        g_processors.store(count, std::memory_order_relaxed);
    }
    return count;
}

void SetProcessorCountForTest(std::uint32_t count) noexcept {
    g_processors.store(count, std::memory_order_relaxed);
}

}  // namespace Orvane::Internal
