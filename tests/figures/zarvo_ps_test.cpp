// zarvo-ps asks this process.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/figures/figures_answer.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using Orvane::Internal::FiguresAnswer;

ChildResult Ask(const std::string& process = std::to_string(GetCurrentProcessId())) {
    return RunChild("zarvo-ps", {process});
}

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

class Switched {
  public:
    Switched() { SetEnvironmentVariableW(L"ZARVO_PS", L"1"); }
    ~Switched() { SetEnvironmentVariableW(L"ZARVO_PS", nullptr); }
    Switched(const Switched&) = delete;
    Switched& operator=(const Switched&) = delete;
};

TEST(ZarvoPs, PrintsWhatRunsAndTheFigures) {
    const Switched on;
    const RecordedReports reports;
    {
        const ConcurrencyLifetime lifetime;
        const auto job = RunSleeper(L"Fetch 17\x1b[2J\u00e4");
        const ChildResult first = Ask();
        EXPECT_EQ(first.exitCode, 0U) << first.standardError;
        EXPECT_TRUE(Contains(first.standardOutput, "pool: 8 workers, 7 idle, 0 queued")) << first.standardOutput;
        EXPECT_TRUE(Contains(first.standardOutput, "  Fetch 17?[2J\xc3\xa4: has run for ")) << first.standardOutput;
        Orvane::Run(L"Later", [] {}).Get();
        EXPECT_TRUE(Contains(Ask().standardOutput, "Later: 1 done"));  // no old answer
    }
    // It is in the log, too, line by line. The thread that says them has ended.
    EXPECT_EQ(reports.Count(L"Concurrency.Figures", L"%s"), 2U * 4 + 1 + 2);
}

TEST(ZarvoPs, SaysThatAProcessCannotBeAsked) {
    const ConcurrencyLifetime lifetime;
    const ChildResult result = Ask();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_TRUE(Contains(result.standardError, "was not started with ZARVO_PS=1"));
}

TEST(ZarvoPs, WantsAProcess) {
    EXPECT_EQ(Ask("some").exitCode, 2U);
    EXPECT_EQ(Ask("12x").exitCode, 2U);
    EXPECT_EQ(RunChild("zarvo-ps").exitCode, 2U);
}

// A process that is not to be trusted: the objects are there, and this test answers.
class FakeAnswer {
  public:
    FakeAnswer() {
        answer->magic = FiguresAnswer::kMagic;
        answer->version = FiguresAnswer::kVersion;
    }
    ~FakeAnswer() {
        UnmapViewOfFile(answer);
        CloseHandle(m_mapping);
        CloseHandle(asked);
    }
    FakeAnswer(const FakeAnswer&) = delete;
    FakeAnswer& operator=(const FakeAnswer&) = delete;

    const HANDLE asked =
        CreateEventW(nullptr, FALSE, FALSE, FiguresAnswer::NameOf(L"ask", GetCurrentProcessId()).c_str());

  private:
    const HANDLE m_mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(FiguresAnswer),
                                                FiguresAnswer::NameOf(L"answer", GetCurrentProcessId()).c_str());

  public:
    FiguresAnswer* const answer =
        static_cast<FiguresAnswer*>(MapViewOfFile(m_mapping, FILE_MAP_WRITE, 0, 0, sizeof(FiguresAnswer)));
};

TEST(ZarvoPs, DoesNotBelieveTheLength) {
    FakeAnswer fake;
    std::memset(fake.answer->text, 'x', FiguresAnswer::kRoom);
    fake.answer->length = 0xFFFFFFFF;
    const PlainThread answering([&fake] {
        WaitForSingleObject(fake.asked, INFINITE);
        fake.answer->sequence += 2;
    });
    const ChildResult result = Ask();
    EXPECT_EQ(result.exitCode, 0U) << result.standardError;
    EXPECT_EQ(result.standardOutput.size(), FiguresAnswer::kRoom);
}

TEST(ZarvoPs, GivesUpOnAProcessThatDoesNotAnswer) {
    const FakeAnswer fake;
    const ChildResult result = Ask();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_TRUE(Contains(result.standardError, "does not answer within ten seconds"));
}

TEST(ZarvoPs, GivesUpOnAnAnswerThatIsNeverWhole) {
    FakeAnswer fake;
    fake.answer->sequence = 7;
    EXPECT_EQ(Ask().exitCode, 1U);
}

TEST(ZarvoPs, RefusesWhatItDoesNotUnderstand) {
    FakeAnswer fake;
    ++fake.answer->version;
    const ChildResult result = Ask();
    EXPECT_EQ(result.exitCode, 1U);
    EXPECT_TRUE(Contains(result.standardError, "another version"));
}

}  // namespace
