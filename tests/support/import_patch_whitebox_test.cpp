// A program that is linked to the library's objects calls the platform through its own import table.
#include <gtest/gtest.h>

#include "concurrency/base/clock.h"
#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {
namespace {

void WINAPI SayItIsTheEpoch(LPFILETIME time) {
    *time = FILETIME{};
}

TEST(ImportPatch, ReachesTheLibrarysObjectsInThisProgram) {
    const ImportPatch patch(LibraryUnderTest(), "GetSystemTimePreciseAsFileTime", &SayItIsTheEpoch);

    const auto year1601 = Orvane::Internal::WallClock::now();
    EXPECT_EQ(year1601.time_since_epoch(), Orvane::Duration(-116'444'736'000'000'000));
}

}  // namespace
}  // namespace Zarvo::Test
