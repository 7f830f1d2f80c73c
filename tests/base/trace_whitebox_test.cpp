#include "concurrency/base/trace.h"

#include <gtest/gtest.h>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(TraceAccess, LeadsToTheTraceOfTheLoggingLibrary) {
    ASSERT_NE(FindTrace(), nullptr);
    EXPECT_EQ(FindTrace()->trace, &g_OrvaneTrace);
    EXPECT_EQ(g_trace, FindTrace());
}

// The framework's own logging library need not have it.
TEST(TraceAccess, IsMissingWhereTheLoggingLibraryHasNoTrace) {
    const ImportPatch patch(LibraryUnderTest(), "GetProcAddress", +[](HMODULE, LPCSTR) -> FARPROC { return nullptr; });

    EXPECT_EQ(FindTrace(), nullptr);
}

}  // namespace
