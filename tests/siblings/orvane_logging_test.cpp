#include "zarvo_orvane_logging/orvane_logging.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "tests/siblings/scratch_folder.h"
#include "tests/siblings/standard_error_into.h"
#include "tests/support/import_patch.h"
#include "tests/support/thread.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using Zarvo::Test::ImportPatch;
using Zarvo::Test::ReadLines;
using Zarvo::Test::ScratchFolder;
using Zarvo::Test::StandardErrorInto;
using Zarvo::Test::Thread;

namespace {

using Sink = OrvaneLogging::Sink;

// The log of this process goes to a file of the test's own, and nowhere afterwards.
class OrvaneLoggingTest : public testing::Test {
  protected:
    OrvaneLoggingTest() { g_OrvaneLogging.SetFileSink(File().c_str()); }
    ~OrvaneLoggingTest() override {
        g_OrvaneLogging.SetSink(Sink::None);
        g_OrvaneLogging.SetMinimumLevel(0);
    }

    [[nodiscard]] std::filesystem::path File() const { return m_folder.File(L"log.txt"); }
    [[nodiscard]] std::vector<std::string> Lines() const { return ReadLines(File()); }

    // The message of the only line.
    [[nodiscard]] std::string Message() const {
        const std::vector<std::string> lines = Lines();
        const std::string head = "[test] ";
        if (lines.size() != 1 || lines[0].find(head) == std::string::npos) {
            return "<not one line of category test>";
        }
        return lines[0].substr(lines[0].find(head) + head.size());
    }

    ScratchFolder m_folder;
};

// Stands in for another process in the middle of writing to the log file.
class FileTurnOfAnother {
  public:
    explicit FileTurnOfAnother(const std::filesystem::path& file)
        : m_file(CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, 0, nullptr)) {
        constexpr DWORD kPlaceHigh = 0x7FFFFFFF;
        EXPECT_NE(LockFile(m_file, 0, kPlaceHigh, 1, 0), FALSE) << GetLastError();
    }
    ~FileTurnOfAnother() { CloseHandle(m_file); }
    FileTurnOfAnother(const FileTurnOfAnother&) = delete;
    FileTurnOfAnother& operator=(const FileTurnOfAnother&) = delete;

  private:
    HANDLE m_file;
};

std::string NowInUtc() {
    SYSTEMTIME now;
    GetSystemTime(&now);
    char text[32];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u.%03u", now.wYear, now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond, now.wMilliseconds);
    return text;
}

}  // namespace

TEST_F(OrvaneLoggingTest, LineHasTimeSeverityKindIdsCategoryAndMessage) {
    const std::string before = NowInUtc();
    g_OrvaneLogging.Report(4, 16, L"Some.Category", L"taking %d turns with %s", 3, L"wide text");
    const std::string after = NowInUtc();

    ASSERT_THAT(Lines(), SizeIs(1));
    const std::string line = Lines()[0];
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts,
                                 std::regex(R"((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{7})Z 4 16 (\d+):(\d+) )"
                                            R"(\[Some\.Category\] taking 3 turns with wide text)")))
        << line;
    EXPECT_LE(before, parts[1].str().substr(0, before.size()));
    EXPECT_GE(after, parts[1].str().substr(0, after.size()));
    EXPECT_EQ(parts[2].str(), std::to_string(GetCurrentProcessId()));
    EXPECT_EQ(parts[3].str(), std::to_string(GetCurrentThreadId()));
}

TEST_F(OrvaneLoggingTest, MessageOfAnyLengthIsWhole) {
    const std::wstring text(100'000, L'x');
    g_OrvaneLogging.Report(1, 16, L"test", L"<%s>", text.c_str());
    EXPECT_EQ(Message(), "<" + std::string(100'000, 'x') + ">");
}

TEST_F(OrvaneLoggingTest, TextIsWrittenInUtf8) {
    g_OrvaneLogging.Report(1, 16, L"test", L"%s", L"\u00E9 \u20AC \U0001F600");
    EXPECT_EQ(Message(), "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST_F(OrvaneLoggingTest, HalfACharacterIsReplaced) {
    const wchar_t halves[] = {0xD83D, L'a', 0xDE00, L'\0'};
    g_OrvaneLogging.Report(1, 16, L"test", L"%s", halves);
    EXPECT_EQ(Message(),
              "\xEF\xBF\xBD"
              "a"
              "\xEF\xBF\xBD");
}

TEST_F(OrvaneLoggingTest, ControlCharactersDoNotBreakTheLine) {
    g_OrvaneLogging.Report(1, 16, L"te\nst", L"a\r\nb\tc%sd%se", L"\x1B", L"\x85");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith("[te\\nst] a\\r\\nb\\tc\\x1bd\\x85e")));
}

TEST_F(OrvaneLoggingTest, NullTextsAreShownAsSuch) {
    g_OrvaneLogging.Report(1, 16, nullptr, L"%s %hs", nullptr, nullptr);
    g_OrvaneLogging.Report(1, 16, L"test", nullptr);
    EXPECT_THAT(Lines(), ElementsAre(EndsWith("[(null)] (null) (null)"), EndsWith("[test] (null)")));
}

TEST_F(OrvaneLoggingTest, RecordsBelowTheMinimumAreDropped) {
    g_OrvaneLogging.SetMinimumLevel(4);
    g_OrvaneLogging.Report(1, 16, L"test", L"one");
    g_OrvaneLogging.Report(4, 16, L"test", L"four");
    g_OrvaneLogging.Report(8, 16, L"test", L"eight");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith("four"), EndsWith("eight")));
}

TEST_F(OrvaneLoggingTest, FileIsAppendedTo) {
    g_OrvaneLogging.Report(1, 16, L"test", L"first");
    g_OrvaneLogging.SetSink(Sink::None);
    g_OrvaneLogging.SetFileSink(File().c_str());
    g_OrvaneLogging.Report(1, 16, L"test", L"second");
    EXPECT_THAT(Lines(), ElementsAre(EndsWith("first"), EndsWith("second")));
}

TEST_F(OrvaneLoggingTest, FileIsLetGoWhenAnotherSinkTakesOver) {
    g_OrvaneLogging.SetSink(Sink::None);
    HANDLE const alone = CreateFileW(File().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(alone, INVALID_HANDLE_VALUE) << GetLastError();
    CloseHandle(alone);
}

TEST_F(OrvaneLoggingTest, RecordsGoToTheNewestSinkOnly) {
    const std::filesystem::path other = m_folder.File(L"other.txt");
    g_OrvaneLogging.SetFileSink(other.c_str());
    g_OrvaneLogging.Report(1, 16, L"test", L"moved");
    EXPECT_THAT(Lines(), SizeIs(0));
    EXPECT_THAT(ReadLines(other), ElementsAre(EndsWith("moved")));
}

TEST_F(OrvaneLoggingTest, FileThatCannotBeOpenedThrowsAndTheSinkStays) {
    const std::filesystem::path nowhere = m_folder.File(L"missing folder") / L"log.txt";
    try {
        g_OrvaneLogging.SetFileSink(nowhere.c_str());
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::error_code(ERROR_PATH_NOT_FOUND, std::system_category()));
        EXPECT_THAT(error.what(), HasSubstr("missing folder"));
    }
    g_OrvaneLogging.Report(1, 16, L"test", L"still here");
    EXPECT_EQ(Message(), "still here");
}

TEST_F(OrvaneLoggingTest, NullPathIsRefusedAndTheSinkStays) {
    EXPECT_THROW(g_OrvaneLogging.SetFileSink(nullptr), std::invalid_argument);
    g_OrvaneLogging.Report(1, 16, L"test", L"still here");
    EXPECT_EQ(Message(), "still here");
}

TEST_F(OrvaneLoggingTest, LastErrorIsLeftAsItWas) {
    const StandardErrorInto file(m_folder.File(L"stderr.txt"));  // which is asked in vain whether it is a console
    g_OrvaneLogging.SetSink(Sink::StandardError);
    SetLastError(4711);
    g_OrvaneLogging.Report(1, 16, L"test", L"%s", L"anything");
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(OrvaneLoggingTest, ThreadsWriteWholeLinesAndLoseNone) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 10'000;
    std::vector<Thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < kRecords; ++i) {
                g_OrvaneLogging.Report(1, 16, L"test", L"%d %d %s end", thread, i, L"some text to tear");
            }
        });
    }
    for (Thread& thread : threads) {
        thread.join();
    }

    std::map<int, int> next;  // each thread's records come in its own order
    for (const std::string& line : Lines()) {
        int thread = -1;
        int number = -1;
        int length = 0;
        const std::size_t message = std::min(line.find("] "), line.size());
        std::sscanf(line.c_str() + message, "] %d %d some text to tear end%n", &thread, &number, &length);
        ASSERT_EQ(message + static_cast<std::size_t>(length), line.size()) << line;
        ASSERT_TRUE(line.starts_with("20")) << line;
        ASSERT_EQ(number, next[thread]++);
    }
    EXPECT_THAT(next, SizeIs(kThreads));
    for (const auto& [thread, count] : next) {
        EXPECT_EQ(count, kRecords) << thread;
    }
}

TEST_F(OrvaneLoggingTest, AnotherDllReportsFromItsStaticConstructorAndDestructor) {
    HMODULE const dll = LoadLibraryW(L"orvane_logging_test_dll.dll");
    ASSERT_NE(dll, nullptr);
    FreeLibrary(dll);
    EXPECT_THAT(Lines(), ElementsAre(EndsWith("[dll] static constructor"), EndsWith("[dll] static destructor")));
}

// Not every system appends in one step: two that write at the same time would overwrite each other.
TEST_F(OrvaneLoggingTest, WaitsWhileAnotherProcessWritesToTheFile) {
    std::optional<FileTurnOfAnother> other(File());
    Thread reporter([] { g_OrvaneLogging.Report(1, 16, L"test", L"after you"); });
    Sleep(50);
    EXPECT_THAT(Lines(), SizeIs(0));
    other.reset();
    reporter.join();
    EXPECT_EQ(Message(), "after you");
}

// The platform's clock and sleep, as the logging library sees them.
class FakeSleeps {
  public:
    explicit FakeSleeps(unsigned millisecondsEach) {
        s_each = millisecondsEach;
        s_count = 0;
    }

    static unsigned Count() { return s_count; }

  private:
    static ULONGLONG WINAPI Now() { return 5'000'000'000 + ULONGLONG{s_each} * s_count; }
    static void WINAPI SleepOnce(DWORD) { ++s_count; }

    static inline unsigned s_each;
    static inline unsigned s_count;

    HMODULE m_library = GetModuleHandleW(L"ZarvoOrvaneLogging.dll");
    ImportPatch m_clock{m_library, "GetTickCount64", &FakeSleeps::Now};
    ImportPatch m_sleep{m_library, "Sleep", &FakeSleeps::SleepOnce};
};

// A process that is stopped while it writes holds the others up for a second each time, however long a sleep of 1 ms is.
TEST_F(OrvaneLoggingTest, FileThatAnotherProcessNeverLetsGoIsWrittenToAfterASecond) {
    for (const unsigned millisecondsEach : {1U, 16U, 250U}) {
        const std::filesystem::path file = m_folder.File(std::to_wstring(millisecondsEach));
        g_OrvaneLogging.SetFileSink(file.c_str());
        const FileTurnOfAnother other(file);
        const FakeSleeps sleeps(millisecondsEach);
        g_OrvaneLogging.Report(1, 16, L"test", L"in spite of it");

        EXPECT_EQ(sleeps.Count(), (1000 + millisecondsEach - 1) / millisecondsEach);
        EXPECT_THAT(ReadLines(file), ElementsAre(EndsWith("in spite of it")));
    }
}

// As on a full disk: the file is open, but writing to it fails.
TEST_F(OrvaneLoggingTest, RecordThatTheFileDoesNotTakeGoesToStandardError) {
    const std::wstring name = LR"(\\.\pipe\zarvo-test-)" + std::to_wstring(GetCurrentProcessId());
    HANDLE const pipe = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr);
    g_OrvaneLogging.SetFileSink(name.c_str());
    DisconnectNamedPipe(pipe);
    {
        const StandardErrorInto file(File());
        g_OrvaneLogging.Report(8, 16, L"test", L"homeless");
    }
    CloseHandle(pipe);
    EXPECT_EQ(Message(), "homeless");
}
