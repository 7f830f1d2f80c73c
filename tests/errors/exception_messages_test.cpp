// How the message of an exception is formatted, and when what() follows it.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"
#include "tests/errors/error_records.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

constexpr char kUnspecified[] = "Message not specified";
// A failure, and so a negative number.
constexpr std::int32_t kSomeHresult = static_cast<std::int32_t>(0x80040005);

TEST(ExceptionComMessage, ExceptionTakesTheComFormWithTheGivenCodeAndGuid) {
    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"text");

    EXPECT_FALSE(error.isNamed);
    EXPECT_EQ(error.hresult, kSomeHresult);
    EXPECT_EQ(error.guid, kSomeGuid);
}

TEST(ExceptionComMessage, NullFormatLeavesBothMessagesAsTheyWere) {
    const ExceptionCOM error(kSomeHresult, kSomeGuid, nullptr);

    EXPECT_STREQ(error.message, L"");
    EXPECT_STREQ(error.what(), kUnspecified);
    EXPECT_EQ(error.hresult, kSomeHresult);
}

TEST(ExceptionComMessage, FormatsItsArguments) {
    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"%d of %u: %x, %%", -3, 7U, 0xABCU);

    EXPECT_STREQ(error.message, L"-3 of 7: abc, %");
    EXPECT_STREQ(error.what(), "-3 of 7: abc, %");
}

TEST(ExceptionComMessage, PercentSTakesAWideString) {
    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"file %s is gone", L"index.dat");

    EXPECT_STREQ(error.message, L"file index.dat is gone");
    EXPECT_STREQ(error.what(), "file index.dat is gone");
}

TEST(ExceptionComMessage, EmptyFormatReplacesTheNarrowMessageByAnEmptyOne) {
    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"");

    EXPECT_STREQ(error.message, L"");
    EXPECT_STREQ(error.what(), "");
}

TEST(ExceptionComMessage, TextOf1023CharactersIsKeptWhole) {
    const std::wstring text(1023, L'a');

    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"%s", text.c_str());

    EXPECT_EQ(error.message, text);
    EXPECT_EQ(error.what(), std::string(1023, 'a'));
}

TEST(ExceptionComMessage, TextOf1024CharactersIsCutAndWhatSaysNothing) {
    const std::wstring text(1024, L'a');

    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"%s", text.c_str());

    EXPECT_EQ(error.message, text.substr(0, 1023));
    EXPECT_STREQ(error.what(), kUnspecified);
}

TEST(ExceptionComMessage, WhatIsInTheCodePageOfTheThread) {
    const LCID previous = GetThreadLocale();
    ASSERT_TRUE(SetThreadLocale(MAKELCID(MAKELANGID(LANG_RUSSIAN, SUBLANG_DEFAULT), SORT_DEFAULT)));

    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"%s", L"\x0434\x0430");

    SetThreadLocale(previous);
    EXPECT_STREQ(error.message, L"\x0434\x0430");
    EXPECT_STREQ(error.what(), "\xE4\xE0");
}

TEST(ExceptionComMessage, FailedConversionLeavesTheNarrowMessage) {
    const ImportPatch noConversion(
        LibraryUnderTest(), "WideCharToMultiByte",
        +[](UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) { return 0; });

    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"still %s", L"there");

    EXPECT_STREQ(error.message, L"still there");
    EXPECT_STREQ(error.what(), kUnspecified);
}

TEST(ExceptionComMessage, ConversionThatFailsAfterItsMeasureLeavesTheNarrowMessage) {
    const ImportPatch measureOnly(
        LibraryUnderTest(), "WideCharToMultiByte",
        +[](UINT, DWORD, LPCWCH, int, LPSTR text, int, LPCCH, LPBOOL) { return text == nullptr ? 12 : 0; });

    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"still %s", L"there");

    EXPECT_STREQ(error.message, L"still there");
    EXPECT_STREQ(error.what(), kUnspecified);
}

// Of an empty text, too, what() says that there is none.
TEST(ExceptionComMessage, FailedConversionOfAnEmptyTextLeavesTheNarrowMessage) {
    const ImportPatch noConversion(
        LibraryUnderTest(), "WideCharToMultiByte",
        +[](UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL) { return 0; });

    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"");

    EXPECT_STREQ(error.message, L"");
    EXPECT_STREQ(error.what(), kUnspecified);
}

TEST(ExceptionComMessage, FormattingThatFailsKeepsWhatWasWrittenAndWhatSaysNothing) {
#ifdef _UCRT
    const ImportPatch failure(
        LibraryUnderTest(), "__stdio_common_vsnwprintf_s",
        +[](std::uint64_t, wchar_t* text, std::size_t, std::size_t, const wchar_t*, void*, va_list) {
            std::wcscpy(text, L"part");
            return -1;
        });
#else
    const ImportPatch failure(
        LibraryUnderTest(), "_vsnwprintf_s", +[](wchar_t* text, std::size_t, std::size_t, const wchar_t*, va_list) {
            std::wcscpy(text, L"part");
            return -1;
        });
#endif

    const ExceptionCOM error(kSomeHresult, kSomeGuid, L"part %s", L"whole");

    EXPECT_STREQ(error.message, L"part");
    EXPECT_STREQ(error.what(), kUnspecified);
}

TEST(Unexpected, StandsForEUnexpectedWithTheZeroGuid) {
    const Unexpected error(L"in %s", L"the test");

    EXPECT_FALSE(error.isNamed);
    EXPECT_EQ(error.hresult, static_cast<std::int32_t>(0x8000FFFF));
    EXPECT_EQ(error.guid, kZeroGuid);
    EXPECT_STREQ(error.message, L"in the test");
    EXPECT_STREQ(error.what(), "in the test");
}

TEST(Unexpected, WithANullFormatHasNoMessage) {
    const wchar_t* const none = nullptr;

    const Unexpected error(none);

    EXPECT_STREQ(error.message, L"");
    EXPECT_STREQ(error.what(), kUnspecified);
    EXPECT_EQ(error.hresult, static_cast<std::int32_t>(0x8000FFFF));
}

TEST(Unexpected, BuiltFromMoreThan1023CharactersHasACutMessageAndWhatSaysMessageNotSpecified) {
    const std::wstring text(1500, L'u');

    const Unexpected error(L"%s", text.c_str());

    EXPECT_EQ(error.message, text.substr(0, 1023));
    EXPECT_STREQ(error.what(), kUnspecified);
}

}  // namespace
