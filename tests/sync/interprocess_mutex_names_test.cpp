// What interprocess_mutex makes of its name, and what it asks of the platform.

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"
#include "tests/sync/kernel_names.h"
#include "tests/sync/others.h"
#include "zarvo_logging/object_names.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// What the library passes to CreateMutexW.
class ObservedCreation {
  public:
    struct Call {
        bool hasSecurity;
        BOOL isInitialOwner;
        std::optional<std::wstring> name;
    };

    ObservedCreation() { s_calls.clear(); }

    const std::vector<Call>& Calls() const { return s_calls; }

  private:
    static HANDLE WINAPI Create(SECURITY_ATTRIBUTES* security, BOOL isInitialOwner, const wchar_t* name) {
        s_calls.push_back(
            {security != nullptr, isInitialOwner, name != nullptr ? std::optional<std::wstring>(name) : std::nullopt});
        return ::CreateMutexW(security, isInitialOwner, name);
    }

    static inline std::vector<Call> s_calls;

    const ImportPatch m_patch{LibraryUnderTest(), "CreateMutexW", &Create};
};

bool Exists(const std::wstring& fullName) {
    const HANDLE handle = OpenMutexW(SYNCHRONIZE, FALSE, fullName.c_str());
    if (handle != nullptr) {
        CloseHandle(handle);
    }
    return handle != nullptr;
}

TEST(InterprocessMutexName, WithoutABackslashIsPlacedInTheNamespaceOfTheFramework) {
    const std::wstring name = UniqueName(L"short");
    const std::wstring fullName = Zarvo::Logging::PrependZarvoObjectsNamespace(name.c_str());
    ASSERT_NE(fullName, name);
    {
        const interprocess_mutex mutex(name.c_str());
        EXPECT_TRUE(Exists(fullName));
        EXPECT_FALSE(Exists(name));
    }
    EXPECT_FALSE(Exists(fullName));
}

TEST(InterprocessMutexName, WithABackslashIsUsedUnchanged) {
    const std::wstring name = L"Local\\" + UniqueName(L"full");
    {
        const interprocess_mutex mutex(name.c_str());
        EXPECT_TRUE(Exists(name));
    }
    EXPECT_FALSE(Exists(name));
}

TEST(InterprocessMutexName, IsUnchangedWhereverTheBackslashStands) {
    interprocess_mutex mutex;
    for (const wchar_t* name : {L"Global\\a", L"\\a", L"a\\", L"\\", L"a\\b\\c"}) {
        EXPECT_EQ(mutex.CheckAndPrependZarvoObjectsNamespace(name), name);
    }
}

TEST(InterprocessMutexName, IsPrefixedWhateverItHoldsButABackslash) {
    interprocess_mutex mutex;
    for (const wchar_t* name : {L"a", L"", L"a/b", L"Global", L"\x00E4\x4E2D"}) {
        EXPECT_EQ(mutex.CheckAndPrependZarvoObjectsNamespace(name), Zarvo::Logging::PrependZarvoObjectsNamespace(name));
    }
}

TEST(InterprocessMutexName, IsHandedToThePlatformWithoutSecurityAndWithoutAnOwner) {
    const std::wstring name = UniqueName(L"call");
    const ObservedCreation creation;
    const interprocess_mutex mutex(name.c_str());

    ASSERT_EQ(creation.Calls().size(), 1U);
    EXPECT_FALSE(creation.Calls()[0].hasSecurity);
    EXPECT_EQ(creation.Calls()[0].isInitialOwner, FALSE);
    EXPECT_EQ(creation.Calls()[0].name, Zarvo::Logging::PrependZarvoObjectsNamespace(name.c_str()));
}

TEST(InterprocessMutexName, IsNoneForANullAndByDefault) {
    const ObservedCreation creation;
    const interprocess_mutex fromNull(nullptr);
    const interprocess_mutex byDefault;

    ASSERT_EQ(creation.Calls().size(), 2U);
    for (const auto& call : creation.Calls()) {
        EXPECT_FALSE(call.hasSecurity);
        EXPECT_EQ(call.isInitialOwner, FALSE);
        EXPECT_EQ(call.name, std::nullopt);
    }
}

TEST(InterprocessMutexName, WhenMissingNeverMakesTwoObjectsShareAMutex) {
    interprocess_mutex one(nullptr);
    interprocess_mutex two(nullptr);
    one.lock();
    OnAnotherThread([&] {
        EXPECT_NO_THROW(two.lock());
        two.unlock();
    });
    one.unlock();
}

TEST(InterprocessMutexName, OfAnExistingMutexOpensIt) {
    const std::wstring name = L"Local\\" + UniqueName(L"existing");
    const HANDLE existing = CreateMutexW(nullptr, TRUE, name.c_str());
    {
        interprocess_mutex mutex(name.c_str());
        mutex.lock();
        mutex.unlock();
    }
    EXPECT_NE(ReleaseMutex(existing), FALSE);
    CloseHandle(existing);
}

// The platform is not asked, so there is nothing to report.
TEST(InterprocessMutexName, IsRefusedWithoutAReportWhenTheEnvironmentGivesNoNamespace) {
    constexpr const wchar_t* kVariable = L"ZARVO_OBJECTS_NAMESPACE";
    const RecordedReports reports;
    const ObservedCreation creation;
    SetEnvironmentVariableW(kVariable, L"no\\namespace");
    EXPECT_THROW(const interprocess_mutex mutex(L"short"), std::runtime_error);
    EXPECT_NO_THROW(const interprocess_mutex mutex(L"Local\\full"));
    SetEnvironmentVariableW(kVariable, nullptr);
    EXPECT_EQ(creation.Calls().size(), 1U);
    EXPECT_TRUE(reports.All().empty());
}

}  // namespace
