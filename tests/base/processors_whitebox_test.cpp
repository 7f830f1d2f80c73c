#include "concurrency/base/processors.h"

#include <gtest/gtest.h>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

int g_questions = 0;

TEST(ProcessorCount, IsAskedForOnce) {
    const ImportPatch machine(
        LibraryUnderTest(), "GetActiveProcessorCount", +[](WORD group) -> DWORD {
            EXPECT_EQ(group, ALL_PROCESSOR_GROUPS);
            ++g_questions;
            return 5;
        });
    SetProcessorCountForTest(0);
    g_questions = 0;

    EXPECT_EQ(ProcessorCount(), 5U);
    EXPECT_EQ(ProcessorCount(), 5U);
    EXPECT_EQ(g_questions, 1);
    SetProcessorCountForTest(0);
}

TEST(ProcessorCount, MayBeOne) {
    const ImportPatch machine(
        LibraryUnderTest(), "GetActiveProcessorCount", +[](WORD) -> DWORD {
            ++g_questions;
            return 5;
        });
    SetProcessorCountForTest(1);
    g_questions = 0;

    EXPECT_EQ(ProcessorCount(), 1U);
    EXPECT_EQ(g_questions, 0);
    SetProcessorCountForTest(0);
}

}  // namespace
