// What is counted of runs that end, in ticks that the test chooses.
#include "concurrency/tasks/run_counts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "concurrency/cancellation/run.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

RunCounts CountsOfName(const std::wstring& name) {
    const auto all = CopyRunCounts();
    const auto found = all.find(name);
    return found != all.end() ? found->second : RunCounts();
}

std::uint64_t EndsOf(const std::wstring& name, RunEnd end) {
    return CountsOfName(name).ends[static_cast<std::size_t>(end)];
}

// A run that began just now, on this thread.
class CountedRun {
  public:
    explicit CountedRun(const std::wstring& name) {
        std::copy_n(name.begin(), (std::min)(name.size(), RunTitle::kCapacity - 1), title.name.begin());
    }

    void End(RunEnd end = RunEnd::Done) { CountRun(&title, run, end); }

    RunTitle title;
    const std::shared_ptr<CancellationObject> object = Run::Make();
    Run& run = *Run::Of(object);
};

TEST(RunCounts, TellTheEndsApart) {
    CountedRun(L"end of mine").End(RunEnd::Done);
    CountedRun(L"end of mine").End(RunEnd::Failed);
    CountedRun(L"end of mine").End(RunEnd::Failed);
    CountedRun(L"end of mine").End(RunEnd::Cancelled);
    EXPECT_EQ(EndsOf(L"end of mine", RunEnd::Done), 1U);
    EXPECT_EQ(EndsOf(L"end of mine", RunEnd::Failed), 2U);
    EXPECT_EQ(EndsOf(L"end of mine", RunEnd::Cancelled), 1U);
    EXPECT_EQ(CountsOfName(L"end of mine").ran.Count(), 4U);
}

TEST(RunCounts, TakeTheDigitsOfANameForOne) {
    CountedRun(L"Fetch 17 of 200").End();
    CountedRun(L"Fetch 9 of 31").End();
    CountedRun(L"Fetch of ").End();
    EXPECT_EQ(EndsOf(L"Fetch # of #", RunEnd::Done), 2U);
    EXPECT_EQ(EndsOf(L"Fetch of ", RunEnd::Done), 1U);
}

TEST(RunCounts, HaveTheWaitOfARunThatWasQueued) {
    CountedRun run(L"queued");
    run.title.queuedAt = run.run.startTick - 5'000;
    run.End();
    run.End();  // it was not queued again
    const RunCounts counts = CountsOfName(L"queued");
    EXPECT_EQ(counts.waited.Count(), 1U);
    EXPECT_EQ(counts.waited.Sum(), 5'000U);
    EXPECT_EQ(counts.ran.Count(), 2U);
}

TEST(RunCounts, LeaveTheNextTurnInTheQueueToTheNextRun) {
    CountedRun run(L"queued again");
    const std::uint64_t later = run.run.startTick + 1'000'000'000;
    run.title.queuedAt = later;
    run.End();
    EXPECT_EQ(CountsOfName(L"queued again").waited.Count(), 0U);
    EXPECT_EQ(run.title.queuedAt, later);
}

TEST(RunCounts, HaveTheTimeFromTheRequestToTheEnd) {
    CountedRun asked(L"asked");
    asked.run.askedTick = asked.run.startTick + 1;
    asked.End(RunEnd::Cancelled);
    CountedRun(L"asked").End();
    const RunCounts counts = CountsOfName(L"asked");
    EXPECT_EQ(counts.left.Count(), 1U);
    EXPECT_LE(counts.left.Sum() + 1, counts.ran.Sum());

    CountedRun alone(L"asked alone");
    alone.run.askedTick = alone.run.startTick + 1;
    alone.End(RunEnd::Cancelled);
    EXPECT_EQ(CountsOfName(L"asked alone").left.Sum() + 1, CountsOfName(L"asked alone").ran.Sum());
}

TEST(RunCounts, HaveNeitherPartsOfRunsNorRunsWithoutATitle) {
    CountedRun part(L"part");
    part.run.isNested = true;
    part.End();
    EXPECT_EQ(CountsOfName(L"part").Ended(), 0U);
    const std::size_t names = CopyRunCounts().size();
    CountRun(nullptr, CountedRun(L"none").run, RunEnd::Done);
    EXPECT_EQ(CopyRunCounts().size(), names);
}

TEST(RunCounts, OfOneThatNeverBeganAreThatItWasCancelled) {
    CountUnbegun(L"unbegun 3");
    const RunCounts counts = CountsOfName(L"unbegun #");
    EXPECT_EQ(counts.ends[static_cast<std::size_t>(RunEnd::Cancelled)], 1U);
    EXPECT_EQ(counts.ran.Count(), 0U);
}

TEST(RunCounts, KeepASmallNumberOfNamesAndCountTheRestAsOthers) {
    constexpr std::size_t kMany = 26 * 26;
    for (std::size_t i = 0; i < kMany; ++i) {
        const std::wstring letters{static_cast<wchar_t>(L'a' + i / 26), static_cast<wchar_t>(L'a' + i % 26)};
        CountedRun(L"name " + letters).End();
    }
    const auto all = CopyRunCounts();
    EXPECT_EQ(all.size(), 65U);
    std::uint64_t ended = 0;
    for (const auto& [name, counts] : all) {
        ended += counts.Ended();
        EXPECT_TRUE(name == L"(others)" || counts.Ended() == 1U);
    }
    EXPECT_EQ(ended, kMany);
    CountedRun(L"name aa").End();  // one that has its place goes on counting
    EXPECT_EQ(EndsOf(L"name aa", RunEnd::Done), 2U);
}

TEST(RunCounts, OfManyThreadsAreAddedUp) {
    constexpr int kThreads = 8;
    constexpr std::size_t kRuns = 500;
    std::vector<std::unique_ptr<PlainThread>> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.push_back(std::make_unique<PlainThread>([] {
            for (std::size_t run = 0; run < kRuns; ++run) {
                CountedRun(L"shared").End();
            }
        }));
    }
    std::uint64_t before = 0;
    while (before < kThreads * kRuns / 2) {  // read in the middle of it, too
        const std::uint64_t now = CountsOfName(L"shared").Ended();
        ASSERT_GE(now, before);
        before = now;
    }
    for (const auto& thread : threads) {
        thread->Join();
    }
    EXPECT_EQ(CountsOfName(L"shared").Ended(), kThreads * kRuns);
}

}  // namespace
