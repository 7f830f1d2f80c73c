// Lifetimes that end with their process, each in a program of its own.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

constexpr std::uint32_t kEndOfMain = 7;  // what the program's main returns when it gets there

ChildResult Play(const char* scene) {
    return RunChild("concurrency_lifetime_process_test_child", {scene});
}

// The program gets to the end of main, and says nothing after that.
void ExpectCleanExit(const char* scene) {
    const ChildResult child = Play(scene);

    EXPECT_EQ(child.exitCode, kEndOfMain);
    EXPECT_EQ(child.standardOutput, "end of main");
    EXPECT_EQ(child.standardError, "");
}

TEST(ConcurrencyLifetimeProcess, ClientThatNeverUninitialisesExitsCleanly) {
    ExpectCleanExit("never-uninitialise");
}

TEST(ConcurrencyLifetimeProcess, ClientThatNeverUninitialisesExitsCleanlyWhileTasksAreBlockedAndScheduled) {
    ExpectCleanExit("never-uninitialise-while-busy");
}

TEST(ConcurrencyLifetimeProcess, ClientThatNeverInitialisesMayUseThePoolAndExitsCleanly) {
    ExpectCleanExit("never-initialise");
}

TEST(ConcurrencyLifetimeProcess, StaticLifetimeObjectOfTheProgramIsTornDownAtItsEnd) {
    ExpectCleanExit("static-object");
}

// As without any initialisation, which tests/journeys shows.
TEST(ConcurrencyLifetimeProcess, OverrunAfterAnOverReleaseEndsTheProcessWithUnexpected) {
    const ChildResult child = Play("overrun-after-over-release");

    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(child.standardOutput,
              "Concurrency library not initialized before usage. Add calls to ConcurrencyInitialize() and "
              "ConcurrencyUninitialize() or use the ConcurrencyLifetime class.");
}

TEST(ConcurrencyLifetimeProcess, UnloadingTheLibraryGivesItsSlotsBack) {
    const ChildResult child = RunChild("library_unload_test_child");

    EXPECT_EQ(child.exitCode, 0U) << child.standardOutput << child.standardError;
}

}  // namespace
