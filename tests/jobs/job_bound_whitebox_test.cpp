#include "concurrency/jobs/job_bound.h"

#include <gtest/gtest.h>

#include "concurrency/base/processors.h"

namespace {

using namespace Orvane;

struct ProcessorsOf {
    explicit ProcessorsOf(std::uint32_t count) { Internal::SetProcessorCountForTest(count); }
    ~ProcessorsOf() { Internal::SetProcessorCountForTest(0); }
    ProcessorsOf(const ProcessorsOf&) = delete;
    ProcessorsOf& operator=(const ProcessorsOf&) = delete;
};

TEST(DefaultBound, IsTwiceTheProcessorsAndAtLeastEight) {
    for (const auto& [processors, bound] : {std::pair{1U, 8U}, {4U, 8U}, {5U, 10U}, {64U, 128U}}) {
        const ProcessorsOf machine(processors);
        EXPECT_EQ(DefaultBound(), bound);
    }
}

}  // namespace
