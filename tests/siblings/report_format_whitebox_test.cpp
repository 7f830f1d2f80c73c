#include "zarvo_orvane_logging/report_format.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

using Orvane::Reports::AppendMessage;
using Orvane::Reports::WideText;

namespace {

std::wstring Format(const wchar_t* format, ...) {
    WideText text;
    va_list arguments;
    va_start(arguments, format);
    AppendMessage(format, arguments, text);
    va_end(arguments);
    return std::wstring(text.Text());
}

std::wstring FormatByStandardLibrary(const wchar_t* format, ...) {
    wchar_t buffer[256];
    va_list arguments;
    va_start(arguments, format);
    std::vswprintf(buffer, std::size(buffer), format, arguments);
    va_end(arguments);
    return buffer;
}

// Everything that may come before the type of an integer.
std::vector<std::wstring> FormatStarts() {
    std::vector<std::wstring> starts;
    for (const wchar_t* flags : {L"", L"-", L"0", L"-0"}) {
        const std::wstring start = std::wstring(L"[%") + flags;
        for (const wchar_t* width : {L"", L"1", L"12", L"30"}) {
            for (const wchar_t* precision : {L"", L".", L".0", L".1", L".9"}) {
                for (const wchar_t* size : {L"h", L"", L"l", L"ll", L"I64"}) {
                    starts.push_back(start + width + precision + size);
                }
            }
        }
    }
    return starts;
}

// Two pages, the second of which must not be touched.
class GuardedPage {
  public:
    GuardedPage() {
        m_pages = static_cast<char*>(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD before = 0;
        VirtualProtect(m_pages + kPage, kPage, PAGE_NOACCESS, &before);
    }
    ~GuardedPage() { VirtualFree(m_pages, 0, MEM_RELEASE); }
    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;

    // Room for `count` characters, right in front of the second page.
    template <typename Char>
    Char* Last(std::size_t count) {
        return reinterpret_cast<Char*>(m_pages + kPage) - count;
    }

  private:
    static constexpr std::size_t kPage = 4096;
    char* m_pages;
};

}  // namespace

TEST(ReportFormat, LiteralTextStaysAsItIs) {
    EXPECT_EQ(Format(L""), L"");
    EXPECT_EQ(Format(L"100%% of it, %%d"), L"100% of it, %d");
}

// Every combination of flags, width, precision and size, with the standard library for a model.
TEST(ReportFormat, IntegersLookAsTheStandardLibraryFormatsThem) {
    const long long values[] = {0,
                                1,
                                -1,
                                42,
                                255,
                                -300,
                                std::numeric_limits<int>::min(),
                                std::numeric_limits<int>::max(),
                                std::numeric_limits<long long>::min(),
                                std::numeric_limits<long long>::max()};
    int compared = 0;
    for (const std::wstring& start : FormatStarts()) {
        for (const wchar_t type : {L'd', L'i', L'u', L'x', L'X'}) {
            const std::wstring format = start + type + L"]";
            for (const long long value : values) {
                ASSERT_EQ(Format(format.c_str(), value), FormatByStandardLibrary(format.c_str(), value))
                    << std::string(format.begin(), format.end()) << " " << value;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 5'000);
}

TEST(ReportFormat, SizeOfAnObjectIsKnown) {
    EXPECT_EQ(Format(L"%zu %zx", std::size_t{5}, std::numeric_limits<std::size_t>::max()), L"5 ffffffffffffffff");
}

TEST(ReportFormat, AbsurdWidthIsBounded) {
    EXPECT_EQ(Format(L"%99999999999d", 1).size(), 4096u);
}

TEST(ReportFormat, TextIsWideUnlessTheFormatSaysNarrow) {
    EXPECT_EQ(Format(L"%s %ls %hs %S %lS", L"a", L"b", "c", "d", L"e"), L"a b c d e");
    EXPECT_EQ(Format(L"[%5s] [%-5s] [%.2s] [%5.1s]", L"abc", L"abc", L"abc", L"abc"), L"[  abc] [abc  ] [ab] [    a]");
    EXPECT_EQ(Format(L"[%5hs] [%-5hs] [%.2hs]", "abc", "abc", "abc"), L"[  abc] [abc  ] [ab]");
}

TEST(ReportFormat, TextIsReadUpToItsEndAtMost) {
    GuardedPage page;
    EXPECT_EQ(Format(L"%s", std::wcscpy(page.Last<wchar_t>(5), L"wide")), L"wide");
    EXPECT_EQ(Format(L"%hs", std::strcpy(page.Last<char>(7), "narrow")), L"narrow");
}

TEST(ReportFormat, TextIsReadUpToItsPrecisionAtMost) {
    GuardedPage page;
    EXPECT_EQ(Format(L"%.4s", std::wmemcpy(page.Last<wchar_t>(4), L"wide", 4)), L"wide");
    EXPECT_EQ(Format(L"%.6hs", static_cast<char*>(std::memcpy(page.Last<char>(6), "narrow", 6))), L"narrow");
}

// The thread's own, not the process's: an exception's text is in that one.
TEST(ReportFormat, NarrowTextComesFromTheThreadsCodePage) {
    const LCID previous = GetThreadLocale();
    ASSERT_TRUE(SetThreadLocale(MAKELCID(MAKELANGID(LANG_RUSSIAN, SUBLANG_DEFAULT), SORT_DEFAULT)));

    const std::wstring text = Format(L"[%hs] [%3.1hs]", "\xE4\xE0", "\xE4\xE0");

    SetThreadLocale(previous);
    EXPECT_EQ(text, L"[\u0434\u0430] [  \u0434]");
}

TEST(ReportFormat, LongNarrowTextIsWhole) {
    const std::string narrow(5000, 'n');
    EXPECT_EQ(Format(L"<%hs>", narrow.c_str()), L"<" + std::wstring(5000, L'n') + L">");
}

TEST(ReportFormat, CharactersAndPointersAreKnown) {
    EXPECT_EQ(Format(L"[%c] [%3c] [%-3c]", L'\u03A9', L'b', L'c'), L"[\u03A9] [  b] [c  ]");
    EXPECT_EQ(Format(L"%p %p", reinterpret_cast<void*>(0x12AB), nullptr), L"00000000000012AB 0000000000000000");
}

TEST(ReportFormat, UnknownConversionLeavesTheRestAsItStands) {
    EXPECT_EQ(Format(L"%d %n %d", 1, nullptr, 2), L"1 %n %d");
    EXPECT_EQ(Format(L"%d %.1f and on", 1, 2.0), L"1 %.1f and on");
    EXPECT_EQ(Format(L"%d %*d and on", 1, 5, 2), L"1 %*d and on");
    EXPECT_EQ(Format(L"50%"), L"50%");
    EXPECT_EQ(Format(L"%-5.3l"), L"%-5.3l");
}
