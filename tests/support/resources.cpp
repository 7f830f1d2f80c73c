#include <ostream>

#include "tests/support/eventually.h"
#include "tests/support/resource_probe.h"

namespace Zarvo::Test {

Resources operator-(const Resources& left, const Resources& right) {
    return {left.handles - right.handles, left.threads - right.threads, left.blocks - right.blocks,
            left.bytes - right.bytes};
}

std::ostream& operator<<(std::ostream& stream, const Resources& resources) {
    return stream << resources.handles << " handles, " << resources.threads << " threads, " << resources.blocks
                  << " blocks, " << resources.bytes << " bytes";
}

Resources GrowthOver(int times, const std::function<void()>& use, std::chrono::milliseconds patience) {
    constexpr int kSeries = 3;
    use();
    Resources growth;
    for (int series = 0; series < kSeries; ++series) {
        const ResourceProbe probe;
        for (int i = 0; i < times; ++i) {
            use();
        }
        if (Eventually([&] { return probe.Growth() == Resources{}; }, patience)) {
            return {};
        }
        growth = probe.Growth();
    }
    return growth;
}

}  // namespace Zarvo::Test
