#include "zarvo_logging/object_names.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <windows.h>

using Zarvo::Logging::PrependZarvoObjectsNamespace;

namespace {

constexpr const wchar_t* kVariable = L"ZARVO_OBJECTS_NAMESPACE";

class ObjectNames : public testing::Test {
  protected:
    ObjectNames() { SetEnvironmentVariableW(kVariable, nullptr); }
    ~ObjectNames() override { SetEnvironmentVariableW(kVariable, nullptr); }
};

}  // namespace

TEST_F(ObjectNames, NameIsPlacedInTheFrameworksNamespace) {
    EXPECT_EQ(PrependZarvoObjectsNamespace(L"name"), L"Global\\ZARVO_name");
}

TEST_F(ObjectNames, SystemAcceptsTheName) {
    const std::wstring name = PrependZarvoObjectsNamespace((L"test " + std::to_wstring(GetCurrentProcessId())).c_str());
    HANDLE const mutex = CreateMutexW(nullptr, FALSE, name.c_str());
    EXPECT_NE(mutex, nullptr) << GetLastError();
    HANDLE const again = OpenMutexW(SYNCHRONIZE, FALSE, name.c_str());
    EXPECT_NE(again, nullptr) << GetLastError();
    CloseHandle(again);
    CloseHandle(mutex);
}

TEST_F(ObjectNames, EmptyNameGivesThePrefixAlone) {
    EXPECT_EQ(PrependZarvoObjectsNamespace(L""), L"Global\\ZARVO_");
}

TEST_F(ObjectNames, NullNameIsRefused) {
    EXPECT_THROW(PrependZarvoObjectsNamespace(nullptr), std::invalid_argument);
}

TEST_F(ObjectNames, LongNameIsWhole) {
    const std::wstring name(1000, L'n');
    EXPECT_EQ(PrependZarvoObjectsNamespace(name.c_str()), L"Global\\ZARVO_" + name);
}

TEST_F(ObjectNames, EnvironmentReplacesTheNamespace) {
    for (const wchar_t* replacement : {L"Global\\", L"Local\\", L"Global\\test 1 ", L"Local\\test-", L"test."}) {
        SetEnvironmentVariableW(kVariable, replacement);
        EXPECT_EQ(PrependZarvoObjectsNamespace(L"name"), std::wstring(replacement) + L"name");
    }
    SetEnvironmentVariableW(kVariable, nullptr);
    EXPECT_EQ(PrependZarvoObjectsNamespace(L"name"), L"Global\\ZARVO_name");
}

TEST_F(ObjectNames, EmptyReplacementIsNone) {
    SetEnvironmentVariableW(kVariable, L"");
    EXPECT_EQ(PrependZarvoObjectsNamespace(L"name"), L"Global\\ZARVO_name");
}

TEST_F(ObjectNames, ReplacementWithAnotherBackslashIsRefused) {
    for (const wchar_t* replacement : {L"\\", L"Session\\1\\", L"Global\\a\\b", L"Local\\Global\\", L"global\\"}) {
        SetEnvironmentVariableW(kVariable, replacement);
        EXPECT_THROW(PrependZarvoObjectsNamespace(L"name"), std::runtime_error);
    }
}
