#include "tests/support/resource_probe.h"

#include <mutex>

#include "tests/host/windows/kernel.h"
#include "tests/support/allocations.h"

namespace Zarvo::Test {

namespace {

// Not those of the system: there a thread that has ended may be seen for a while, and a sanitizer has one of its own.
std::int64_t CountThreads() {
    Host::ThisThread();
    return static_cast<std::int64_t>(Host::CountThreads());
}

}  // namespace

Resources Resources::Now() {
    Resources now;
    {
        const std::lock_guard lock(Host::KernelLock());
        now.threads = CountThreads();
        now.handles = static_cast<std::int64_t>(Host::CountHandles());
    }
    now.blocks = LiveBlocks();
    now.bytes = LiveBytes();
    return now;
}

}  // namespace Zarvo::Test
