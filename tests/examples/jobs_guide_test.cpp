// What docs/jobs.md shows, as a reader would try it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/jobs/testing.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/gate.h"

namespace {

using namespace std::chrono_literals;
using namespace Zarvo::Test;

// In ms. Far longer than a test may take.
constexpr DWORD kForEver = 3'600'000;

struct GuideFile {
    std::string content;
    std::size_t digest = 0;

    void Digest() { digest = std::hash<std::string>()(content); }
    std::size_t Size() const { return content.size(); }
};

class JobsGuide : public testing::Test {
  protected:
    const Orvane::ConcurrencyLifetime m_lifetime;
};

TEST_F(JobsGuide, AValueAndAnExceptionArrive) {
    const std::filesystem::path path = "Z:\\no\\such\\file";

    auto sum = Orvane::Run(L"Sum", [](int a, int b) { return a + b; }, 40, 2);
    auto size = Orvane::Run(L"Size", [path] { return std::filesystem::file_size(path); });

    EXPECT_EQ(sum.Get(), 42);
    try {
        size.Get();
        FAIL();
    } catch (const std::filesystem::filesystem_error& error) {
        EXPECT_EQ(error.path1(), path);
    }
}

TEST_F(JobsGuide, ACancelledJobTellsWhy) {
    auto nap = Orvane::Run(L"Nap", [] { Orvane::CancellableSleep(kForEver); });
    nap.Cancel();
    nap.Wait();

    EXPECT_EQ(Orvane::ToText(nap.GetCancelReason()), L"asked through its handle");
}

TEST_F(JobsGuide, ATokenCancelsTheJobAndReachesForeignWaits) {
    std::mutex mutex;
    std::condition_variable_any arrived;
    const bool hasData = false;
    Gate listening;
    std::stop_source stop;
    auto listen = Orvane::Run(L"Listen", stop.get_token(), [&] {
        std::unique_lock lock(mutex);
        listening.Open();
        return arrived.wait(lock, Orvane::StopTokenOfThisJob(), [&hasData] { return hasData; });
    });
    listening.Wait();

    stop.request_stop();

    EXPECT_FALSE(listen.Get()) << "what comes although it was asked is a value";
    EXPECT_EQ(listen.GetCancelReason().cause, Orvane::CancelCause::Token);
}

TEST_F(JobsGuide, ALimitEndsTheJobAndIsTold) {
    auto answer = Orvane::Run(L"Answer", [](DWORD milliseconds) { Orvane::CancellableSleep(milliseconds); }, kForEver);
    answer.CancelAfter(5ms);

    EXPECT_THROW(answer.Get(), Orvane::TimeLimitException);
}

TEST_F(JobsGuide, AGroupShowsEachEndAndFailsWithTheFirstFailure) {
    Orvane::JobGroup group(L"Digests", 8);
    for (int i = 0; i < 100; ++i) {
        group.Run((L"Digest " + std::to_wstring(i)).c_str(), [i] {
            if (i == 5) {
                throw std::invalid_argument("five");
            }
            Orvane::CancellableSleep(kForEver);
        });
    }
    std::wstring failures;
    std::size_t ends = 0;
    for (const Orvane::EndedJob& ended : group) {
        const Orvane::JobCounts now = group.Counts();
        EXPECT_LE(++ends, now.done + now.failed + now.cancelled);
        if (ended.error) {
            const std::string text = Orvane::ToText(ended.error);
            failures += ended.name + L": " + std::wstring(text.begin(), text.end());
        }
    }

    EXPECT_EQ(ends, 100U);
    EXPECT_EQ(failures, L"Digest 5: five");
    EXPECT_THROW(group.Wait(), std::invalid_argument);
}

TEST_F(JobsGuide, AScheduleThatShallFailItsGroupDoes) {
    std::atomic<int> runs = 0;
    Orvane::JobGroup group(L"Index");
    const auto refresh = [&runs] {
        if (++runs == 3) {
            throw std::runtime_error("third");
        }
    };
    group.Schedule(L"Refresh", 0s, 2ms, refresh, Orvane::OnFailure::FailGroup);

    EXPECT_THROW(group.Wait(), std::runtime_error);
    EXPECT_EQ(runs, 3);
}

TEST_F(JobsGuide, LoopsReachEachItemAndKeepTheOrder) {
    std::vector<GuideFile> files(1000);
    for (std::size_t i = 0; i < files.size(); ++i) {
        files[i].content.assign(i, 'x');
    }

    Orvane::ForEach(L"Digest", files, [](GuideFile& file) { file.Digest(); });
    const std::vector<std::size_t> sizes =
        Orvane::Map(L"Size", files, [](const GuideFile& file) { return file.Size(); }, 4);

    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(files[i].digest, std::hash<std::string>()(files[i].content));
        EXPECT_EQ(sizes[i], i);
    }
}

TEST_F(JobsGuide, SeveralJobsAreWaitedForTogether) {
    Gate hold;
    auto loadUser = Orvane::Run(L"User", [] { return std::string("Ada"); });
    auto loadOrders = Orvane::Run(L"Orders", [] { return 3; });
    auto primary = Orvane::Run(L"Primary", [&hold] { hold.Wait(); });
    auto replica = Orvane::Run(L"Replica", [] {});

    auto [user, orders] = Orvane::WhenAll(loadUser, loadOrders);
    const std::size_t winner = Orvane::WhenAny(primary, replica);

    EXPECT_EQ(user, "Ada");
    EXPECT_EQ(orders, 3);
    EXPECT_EQ(winner, 1U);
    EXPECT_FALSE(Orvane::WhenAnyFor(1ms, primary));
    hold.Open();
}

TEST_F(JobsGuide, AnEndIsWaitedForBesideOtherHandles) {
    Gate hold;
    const HANDLE quit = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    auto job = Orvane::Run(L"Job", [&hold] { hold.Wait(); });
    const HANDLE handles[] = {job.EndEvent(), quit};

    EXPECT_EQ(WaitForMultipleObjects(2, handles, FALSE, INFINITE), WAIT_OBJECT_0 + 1);
    hold.Open();
    EXPECT_EQ(WaitForMultipleObjects(1, handles, FALSE, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(job.IsReady());
    CloseHandle(quit);
}

TEST_F(JobsGuide, VirtualTimePassesAtOnce) {
    Orvane::Testing::VirtualTime time;
    auto slow = Orvane::Run(L"Slow", [] { return Orvane::CancellableSleep(3'600'000), 42; });

    EXPECT_EQ(slow.Get(), 42);
    EXPECT_EQ(time.Elapsed(), 1h);
}

// The first lines of the table: what happens when.
TEST_F(JobsGuide, ADroppedHandleAsksAndWaits) {
    std::atomic<bool> hasLeft = false;
    {
        Gate begun;
        const auto job = Orvane::Run(L"Dropped", [&] {
            begun.Open();
            try {
                Orvane::CancellableSleep(kForEver);
            } catch (const Orvane::CancelRequestedException&) {
                hasLeft = Orvane::CancelReasonOfThisJob().cause == Orvane::CancelCause::Dropped;
                throw;
            }
        });
        begun.Wait();
    }
    EXPECT_TRUE(hasLeft);
}

TEST_F(JobsGuide, TheCancelOfAnotherJobIsAFailureLikeOthers) {
    auto outer = Orvane::Run(L"Outer", [] {
        auto inner = Orvane::Run(L"Inner", [] { Orvane::CancellableSleep(kForEver); });
        inner.Cancel();
        inner.Get();
    });
    outer.Wait();

    EXPECT_THROW(outer.Get(), Orvane::CancelledException);
    EXPECT_EQ(outer.GetCancelReason().cause, Orvane::CancelCause::None);
}

}  // namespace
