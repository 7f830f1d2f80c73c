// Also the proof that the replaced import is the one that the library calls.
#include "tests/support/import_patch.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/handle_notification_adapter.h"

namespace Zarvo::Test {
namespace {

using Orvane::Internal::HandleNotificationAdapter;

using CreateEventFunction = HANDLE WINAPI(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR);

int g_calls = 0;
CreateEventFunction* g_original = nullptr;

HANDLE WINAPI FailToCreateEvent(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) {
    ++g_calls;
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

HANDLE WINAPI CountCreateEvent(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL initial, LPCWSTR name) {
    ++g_calls;
    return g_original(attributes, manual, initial, name);
}

// Whether the library manages to make an event.
bool LibraryCreatesEvents() {
    const auto adapter =
        std::dynamic_pointer_cast<HandleNotificationAdapter>(HandleNotificationAdapter::CreateInstance());
    return adapter->GetHandle() != nullptr;
}

TEST(ImportPatch, MakesTheLibrarysCallFail) {
    ASSERT_TRUE(LibraryCreatesEvents());
    g_calls = 0;
    const ImportPatch patch(LibraryUnderTest(), "CreateEventW", &FailToCreateEvent);

    EXPECT_FALSE(LibraryCreatesEvents());
    EXPECT_EQ(g_calls, 1);
}

TEST(ImportPatch, EndsWithItsScope) {
    {
        const ImportPatch patch(LibraryUnderTest(), "CreateEventW", &FailToCreateEvent);
    }
    g_calls = 0;

    EXPECT_TRUE(LibraryCreatesEvents());
    EXPECT_EQ(g_calls, 0);
}

TEST(ImportPatch, GivesTheReplacementTheOriginal) {
    g_calls = 0;
    const ImportPatch patch(LibraryUnderTest(), "CreateEventW", &CountCreateEvent);
    g_original = patch.Original<CreateEventFunction>();

    EXPECT_TRUE(LibraryCreatesEvents());
    EXPECT_EQ(g_calls, 1);
}

TEST(ImportPatch, InnerPatchGivesWayToTheOuterAgain) {
    const ImportPatch outer(LibraryUnderTest(), "CreateEventW", &FailToCreateEvent);
    g_original = outer.Original<CreateEventFunction>();
    {
        const ImportPatch inner(LibraryUnderTest(), "CreateEventW", &CountCreateEvent);
        EXPECT_TRUE(LibraryCreatesEvents());
    }
    EXPECT_FALSE(LibraryCreatesEvents());
}

TEST(ImportPatch, RefusesAFunctionThatTheModuleDoesNotImport) {
    EXPECT_THROW(ImportPatch(LibraryUnderTest(), "NoSuchFunction", &FailToCreateEvent), std::runtime_error);
}

}  // namespace
}  // namespace Zarvo::Test
