// Machines of one processor and of many, as far as the library knows.
#include <gtest/gtest.h>

#include <cstdint>

#include "concurrency/base/processors.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/faults/mixed_load.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

class MachineOfProcessors : public testing::TestWithParam<std::uint32_t> {
  protected:
    void SetUp() override { SetProcessorCountForTest(GetParam()); }
    void TearDown() override { SetProcessorCountForTest(0); }
};

TEST_P(MachineOfProcessors, DoesAllThatIsAskedForInEachLife) {
    ASSERT_EQ(ProcessorCount(), GetParam());
    for (int life = 0; life < 3; ++life) {
        const ConcurrencyLifetime lifetime;
        ExpectAMixedLoadToEnd();
    }
}

INSTANTIATE_TEST_SUITE_P(Of, MachineOfProcessors, testing::Values(1U, 64U));

}  // namespace
