// What the reporter answers to a tool in this process, which asks as zarvo-ps does.
#include "concurrency/figures/figures_answer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/figures/figures_reporter.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr const wchar_t* kAnswers = L"Concurrency.Figures";

// The event and the memory, as the reporter made them.
class Question {
  public:
    Question() {
        m_ask = ::CreateEventW(nullptr, FALSE, FALSE, Name(L"ask").c_str());
        m_eventWasThere = ::GetLastError() == ERROR_ALREADY_EXISTS;
        m_mapping = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(FiguresAnswer),
                                         Name(L"answer").c_str());
        m_memoryWasThere = ::GetLastError() == ERROR_ALREADY_EXISTS;
        m_answer = static_cast<FiguresAnswer*>(::MapViewOfFile(m_mapping, FILE_MAP_WRITE, 0, 0, sizeof(FiguresAnswer)));
    }
    ~Question() {
        ::UnmapViewOfFile(m_answer);
        ::CloseHandle(m_mapping);
        ::CloseHandle(m_ask);
    }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    bool EventWasThere() const { return m_eventWasThere; }
    bool MemoryWasThere() const { return m_memoryWasThere; }
    const FiguresAnswer& Answer() const { return *m_answer; }

    // The text of the next answer.
    std::string Ask() const {
        const std::uint32_t before = m_answer->sequence;
        ::SetEvent(m_ask);
        EXPECT_TRUE(Eventually([&] { return m_answer->sequence == before + 2; }));
        return {m_answer->text, m_answer->length};
    }

  private:
    static std::wstring Name(const wchar_t* what) { return FiguresAnswer::NameOf(what, ::GetCurrentProcessId()); }

    HANDLE m_ask = nullptr;
    HANDLE m_mapping = nullptr;
    FiguresAnswer* m_answer = nullptr;
    bool m_eventWasThere = false;
    bool m_memoryWasThere = false;
};

TEST(FiguresAnswer, HasItsMarksAndNoTextBeforeTheFirstQuestion) {
    const FiguresReporter reporter({0ms, true});
    const Question question;
    EXPECT_TRUE(question.EventWasThere());
    EXPECT_TRUE(question.MemoryWasThere());
    EXPECT_EQ(question.Answer().magic, FiguresAnswer::kMagic);
    EXPECT_EQ(question.Answer().version, FiguresAnswer::kVersion);
    EXPECT_EQ(question.Answer().sequence, 0U);
    EXPECT_EQ(question.Answer().length, 0U);
}

TEST(FiguresAnswer, ComesToEachQuestionAndStandsInTheLogLineByLine) {
    const RecordedReports reports;
    const FiguresReporter reporter({0ms, true});
    const Question question;
    std::size_t lines = 0;
    for (int i = 0; i < 3; ++i) {
        const std::string text = question.Ask();
        EXPECT_TRUE(text.starts_with("pool: 0 workers, 0 idle, 0 queued")) << text;
        EXPECT_TRUE(text.ends_with("\nrunning: 0\n")) << text;
        lines += static_cast<std::size_t>(std::ranges::count(text, '\n'));
        EXPECT_TRUE(Eventually([&] { return reports.Count(kAnswers, L"%s") == lines; }));
    }
    EXPECT_EQ(reports.Last().text, L"running: 0");
}

TEST(FiguresAnswer, ComesBesideTheLineOfEachInterval) {
    const RecordedReports reports;
    const FiguresReporter reporter({10ms, true});
    const Question question;
    EXPECT_TRUE(question.Ask().starts_with("pool: "));
    EXPECT_TRUE(Eventually([&] { return reports.Last().text.starts_with(L"0 workers, "); }));
    EXPECT_TRUE(question.Ask().starts_with("pool: "));
}

TEST(FiguresAnswer, BringsNoLineBeforeItsTime) {
    const RecordedReports reports;
    const FiguresReporter reporter({24h, true});
    const Question question;
    const std::string text = question.Ask();
    const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
    EXPECT_TRUE(Eventually([&] { return reports.Count(kAnswers, L"%s") == lines; }));
    EXPECT_EQ(question.Ask().substr(0, 6), "pool: ");
    EXPECT_TRUE(Eventually([&] { return reports.Count(kAnswers, L"%s") == 2 * lines; }));
    EXPECT_EQ(reports.Last().severity, 2);
    EXPECT_EQ(reports.Last().kind, 16);
}

class LongFiguresAnswer : public JobTest {};

int CountOf(const std::string& part, const std::string& text) {
    int count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST_F(LongFiguresAnswer, IsCutBetweenLines) {
    constexpr int kJobs = 14;
    std::vector<Orvane::Job<void>> jobs;
    for (int i = 0; i < kJobs; ++i) {
        jobs.push_back(RunSleeper(std::wstring(40'000, L'n').c_str()));
    }
    const FiguresReporter reporter({0ms, true});
    const Question question;
    const std::string text = question.Ask();
    EXPECT_NE(text.find("\nrunning: 14\n"), std::string::npos);
    EXPECT_LT(CountOf("has run for", text), kJobs);
    EXPECT_LE(text.size(), FiguresAnswer::kRoom);
    EXPECT_GT(text.size(), FiguresAnswer::kRoom - 50'000);
    EXPECT_TRUE(text.ends_with("\n"));
}

// Neither the event nor the memory is left, so that the next reporter has them for itself.
TEST(FiguresAnswer, IsGoneWithTheReporter) {
    for (int i = 0; i < 2; ++i) {
        {
            const FiguresReporter reporter({0ms, true});
            const Question question;
            EXPECT_NE(question.Ask(), "");
        }
        const Question question;
        EXPECT_FALSE(question.EventWasThere());
        EXPECT_FALSE(question.MemoryWasThere());
    }
}

TEST(FiguresAnswer, DoesNotGoWhereTheMemoryIsTaken) {
    const RecordedReports reports;
    const HANDLE taken = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(FiguresAnswer),
                                              FiguresAnswer::NameOf(L"answer", ::GetCurrentProcessId()).c_str());
    {
        const FiguresReporter reporter({0ms, true});
        EXPECT_EQ(reports.Count(kAnswers, L"zarvo-ps gets no answer: %hs"), 1U);
        const Question question;
        EXPECT_FALSE(question.EventWasThere());
        EXPECT_EQ(question.Answer().magic, 0U);
    }
    ::CloseHandle(taken);
    const Question question;
    EXPECT_FALSE(question.MemoryWasThere());
}

}  // namespace
