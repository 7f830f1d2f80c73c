#include "concurrency/errors/critical_section.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/scheduler/scheduler_teardown.h"
#include "concurrency/threadpool/thread_pool_teardown.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// What is called, in order, with critical sections that lie in `g_watched`. Others use the same functions.
std::vector<std::string> g_calls;
const void* g_watched = nullptr;

// The platform's function itself, past this program's patched imports.
template <typename Function>
Function* Platforms(const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), name)));
}

void Record(LPCRITICAL_SECTION section, const char* name) {
    const auto* const begin = static_cast<const char*>(g_watched);
    const auto* const address = reinterpret_cast<const char*>(section);
    if (begin != nullptr && address >= begin && address < begin + sizeof(CriticalSection)) {
        g_calls.emplace_back(name);
    }
}

using SectionFunction = void WINAPI(LPCRITICAL_SECTION);
SectionFunction* const g_initialize = Platforms<SectionFunction>("InitializeCriticalSection");
SectionFunction* const g_delete = Platforms<SectionFunction>("DeleteCriticalSection");
SectionFunction* const g_enter = Platforms<SectionFunction>("EnterCriticalSection");
SectionFunction* const g_leave = Platforms<SectionFunction>("LeaveCriticalSection");

// Storage for the one object that is watched.
class WatchedCriticalSection {
  public:
    WatchedCriticalSection() { g_watched = m_storage; }
    ~WatchedCriticalSection() { g_watched = nullptr; }
    WatchedCriticalSection(const WatchedCriticalSection&) = delete;
    WatchedCriticalSection& operator=(const WatchedCriticalSection&) = delete;

    CriticalSection* Build() { return new (m_storage) CriticalSection(); }

  private:
    alignas(CriticalSection) unsigned char m_storage[sizeof(CriticalSection)];
    ImportPatch m_initialize{LibraryUnderTest(), "InitializeCriticalSection", +[](LPCRITICAL_SECTION section) {
                                 Record(section, "initialize");
                                 g_initialize(section);
                             }};
    ImportPatch m_delete{LibraryUnderTest(), "DeleteCriticalSection", +[](LPCRITICAL_SECTION section) {
                             Record(section, "delete");
                             g_delete(section);
                         }};
    ImportPatch m_enter{LibraryUnderTest(), "EnterCriticalSection", +[](LPCRITICAL_SECTION section) {
                            Record(section, "enter");
                            g_enter(section);
                        }};
    ImportPatch m_leave{LibraryUnderTest(), "LeaveCriticalSection", +[](LPCRITICAL_SECTION section) {
                            Record(section, "leave");
                            g_leave(section);
                        }};
};

TEST(CriticalSection, HoldsAPlatformCriticalSectionAndAVirtualDestructorOnly) {
    static_assert(sizeof(CriticalSection) == sizeof(void*) + sizeof(CRITICAL_SECTION));
    static_assert(std::has_virtual_destructor_v<CriticalSection>);
    static_assert(!std::is_copy_constructible_v<CriticalSection>);
}

TEST(CriticalSection, IsInitialisedOnConstructionAndDeletedOnDestruction) {
    WatchedCriticalSection watched;

    CriticalSection* const section = watched.Build();
    EXPECT_EQ(g_calls, std::vector<std::string>{"initialize"});

    section->~CriticalSection();
    EXPECT_EQ(g_calls, (std::vector<std::string>{"initialize", "delete"}));
}

TEST(CriticalSection, LockEntersOnConstructionAndLeavesOnDestruction) {
    WatchedCriticalSection watched;
    CriticalSection* const section = watched.Build();
    g_calls.clear();

    {
        const CriticalSectionLock lock(*section);
        EXPECT_EQ(g_calls, std::vector<std::string>{"enter"});
    }
    EXPECT_EQ(g_calls, (std::vector<std::string>{"enter", "leave"}));
    section->~CriticalSection();
}

TEST(CriticalSection, BothCreationLocksAreOneObjectOfThisClassEach) {
    CriticalSection& pool = Orvane::Internal::ThreadPoolLock();
    CriticalSection& scheduler = Orvane::Internal::SchedulerLock();

    EXPECT_NE(&pool, &scheduler);
    EXPECT_EQ(&pool, &Orvane::Internal::ThreadPoolLock());
    EXPECT_EQ(&scheduler, &Orvane::Internal::SchedulerLock());
}

}  // namespace
