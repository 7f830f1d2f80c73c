#include "concurrency/cancellation/time_limit_exceptions.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tests/support/allocations.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

std::string WhatOf(std::chrono::nanoseconds limit) {
    return TimeLimitException(L"", limit).what();
}

TEST(TimeLimitException, SaysItsLimitInTheLargestUnitThatFits) {
    const std::string before = "TimeLimitException: the time limit of ";
    EXPECT_EQ(WhatOf(2s), before + "2 s");
    EXPECT_EQ(WhatOf(1s), before + "1 s");
    EXPECT_EQ(WhatOf(1s - 1ns), before + "999.999 ms");
    EXPECT_EQ(WhatOf(1ms), before + "1 ms");
    EXPECT_EQ(WhatOf(1us), before + "1 us");
    EXPECT_EQ(WhatOf(999ns), before + "999 ns");
    EXPECT_EQ(WhatOf(1ns), before + "1 ns");
    EXPECT_EQ(WhatOf(0s), before + "0 s");
    EXPECT_EQ(WhatOf(-1s), before + "0 s");
}

TEST(TimeLimitException, SaysThreeDigitsBehindThePointAtMost) {
    const std::string before = "TimeLimitException: the time limit of ";
    EXPECT_EQ(WhatOf(1500ms), before + "1.5 s");
    EXPECT_EQ(WhatOf(1050ms), before + "1.05 s");
    EXPECT_EQ(WhatOf(1001ms), before + "1.001 s");
    EXPECT_EQ(WhatOf(1s + 1us), before + "1 s");
    EXPECT_EQ(WhatOf(10s), before + "10 s");
}

TEST(TimeLimitException, NamesWhatHasTheLimit) {
    const TimeLimitException error(L"\x00c4rger", 2s);
    EXPECT_STREQ(error.what(), "TimeLimitException: the time limit of 2 s of \xC3\x84rger");
    EXPECT_EQ(error.GetName(), L"\x00c4rger");
    EXPECT_EQ(error.GetLimit(), 2s);
}

TEST(TimeLimitException, IsOfNoKnownLimitByDefault) {
    const TimeLimitException error;
    EXPECT_STREQ(error.what(), "TimeLimitException");
    EXPECT_EQ(error.GetName(), L"");
    EXPECT_EQ(error.GetLimit(), 0s);
}

TEST(TimeLimitException, KeepsItsLimitWhenItIsClonedAndThrownAgain) {
    const auto clone = TimeLimitException(L"Answer", 2s).Clone();
    try {
        clone->Rethrow();
        ADD_FAILURE() << "nothing thrown";
    } catch (const TimeLimitException& error) {
        EXPECT_STREQ(error.what(), "TimeLimitException: the time limit of 2 s of Answer");
        EXPECT_EQ(error.GetLimit(), 2s);
    }
}

// The limit counts more than its text.
TEST(TimeLimitException, DoesWithoutItsTextWhenThereIsNoMemoryForIt) {
    const auto details = std::make_shared<const Internal::TimeLimitDetails>(L"Answer", 2s);
    std::optional<TimeLimitException> error;
    {
        const NoMemory noMemory;
        error.emplace(details);
    }
    EXPECT_STREQ(error->what(), "TimeLimitException");
    EXPECT_EQ(error->GetLimit(), 2s);
}

TEST(TimeLimitRequestException, SaysItsLimitAsWell) {
    const TimeLimitRequestException error(std::make_shared<const Internal::TimeLimitDetails>(L"Answer", 2s));
    EXPECT_STREQ(error.what(), "TimeLimitRequestException: the time limit of 2 s of Answer");
    EXPECT_EQ(error.GetName(), L"Answer");
    EXPECT_EQ(error.GetLimit(), 2s);
    EXPECT_STREQ(TimeLimitRequestException(nullptr).what(), "TimeLimitRequestException");
}

}  // namespace
