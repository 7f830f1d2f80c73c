// The other resources: the registry script, the message table, the version.
#include "tests/com/registration.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace Zarvo::Test;

// The keys of registration.h, for installers that apply the script.
constexpr std::string_view kScript =
    "HKCR\r\n"
    "{\r\n"
    "    NoRemove TypeLib\r\n"
    "    {\r\n"
    "        NoRemove {55EC072B-2104-4EBD-A91F-41FA01B7F6E6}\r\n"
    "        {\r\n"
    "            1.0 = s 'FutureLib 1.0 Type Library'\r\n"
    "            {\r\n"
    "                0\r\n"
    "                {\r\n"
    "                    win32 = s '%Module%'\r\n"
    "                }\r\n"
    "                FLAGS = s '0'\r\n"
    "                HELPDIR = s ''\r\n"
    "            }\r\n"
    "        }\r\n"
    "    }\r\n"
    "}\r\n";

TEST(RegistryScript, SaysWhatRegistrationWritesInTheLineEndsOfThePlatform) {
    const HRSRC found = FindResourceExW(LibraryUnderTest(), L"REGISTRY", MAKEINTRESOURCEW(4104), 0x0409);
    ASSERT_NE(found, nullptr);
    const auto* const text = static_cast<const char*>(LockResource(LoadResource(LibraryUnderTest(), found)));
    const std::string_view script(text, SizeofResource(LibraryUnderTest(), found));

    EXPECT_EQ(script, kScript);
}

TEST(TypeLibraryResource, IsNumberThree) {
    EXPECT_NE(FindResourceExW(LibraryUnderTest(), L"TYPELIB", MAKEINTRESOURCEW(3), 0x0409), nullptr);
    EXPECT_EQ(FindResourceExW(LibraryUnderTest(), L"TYPELIB", MAKEINTRESOURCEW(1), 0x0409), nullptr);
}

// One event for each severity of the library's records; the record is the whole message.
TEST(MessageTable, ShowsARecordUnderEachSeverity) {
    for (const DWORD event : {0x40000001UL, 0x80000004UL, 0xC0000008UL}) {
        wchar_t record[] = L"Task [copy] started, 100% [of it] \"quoted\"";
        DWORD_PTR inserts[] = {reinterpret_cast<DWORD_PTR>(record)};
        wchar_t message[200];
        const DWORD length =
            FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, LibraryUnderTest(), event,
                           0x0409, message, 200, reinterpret_cast<va_list*>(inserts));
        EXPECT_EQ(std::wstring(message, length), std::wstring(record) + L"\r\n") << event;
    }
}

class VersionInformation : public testing::Test {
  protected:
    VersionInformation() {
        const std::wstring path = PathOf(LibraryUnderTest());
        m_data.resize(GetFileVersionInfoSizeW(path.c_str(), nullptr));
        EXPECT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(m_data.size()), m_data.data()));
    }

    std::wstring Text(const std::wstring& name) {
        void* text = nullptr;
        UINT length = 0;
        const std::wstring path = L"\\StringFileInfo\\040904B0\\" + name;
        EXPECT_TRUE(VerQueryValueW(m_data.data(), path.c_str(), &text, &length));
        return text != nullptr ? static_cast<const wchar_t*>(text) : L"";
    }

    std::vector<char> m_data;
};

TEST_F(VersionInformation, DescribesTheModule) {
    EXPECT_EQ(Text(L"FileDescription"), L"ZARVO Concurrency");
    EXPECT_EQ(Text(L"ProductName"), L"ZARVO Concurrency");
    EXPECT_EQ(Text(L"OriginalFilename"), L"ZarvoConcurrency.dll");
}

TEST_F(VersionInformation, IsTheProjects) {
    const std::wstring expected = std::to_wstring(ZARVO_VERSION_MAJOR) + L"." + std::to_wstring(ZARVO_VERSION_MINOR) +
                                  L"." + std::to_wstring(ZARVO_VERSION_PATCH) + L".0";
    EXPECT_EQ(Text(L"FileVersion"), expected);
    EXPECT_EQ(Text(L"ProductVersion"), expected);

    void* data = nullptr;
    UINT size = 0;
    ASSERT_TRUE(VerQueryValueW(m_data.data(), L"\\", &data, &size));
    const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(data);
    EXPECT_EQ(fixed.dwFileVersionMS, MAKELONG(ZARVO_VERSION_MINOR, ZARVO_VERSION_MAJOR));
    EXPECT_EQ(fixed.dwFileVersionLS, MAKELONG(0, ZARVO_VERSION_PATCH));
    EXPECT_EQ(fixed.dwProductVersionMS, fixed.dwFileVersionMS);
    EXPECT_EQ(fixed.dwProductVersionLS, fixed.dwFileVersionLS);
    EXPECT_EQ(fixed.dwFileType, static_cast<DWORD>(VFT_DLL));
}

}  // namespace
