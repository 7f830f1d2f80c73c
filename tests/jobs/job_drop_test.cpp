// A handle that goes: outside of the job, inside of it, and with its callable.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job.h"
#include "concurrency/tasks/make_task.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class DroppedJob : public JobTest {};

TEST_F(DroppedJob, IsAskedAndWaitedFor) {
    bool hasLeft = false;  // plain: visible after the destructor
    const auto begun = std::make_shared<Gate>();
    {
        const auto job = Run(L"dropped", [&hasLeft, begun] {
            begun->Open();
            try {
                SleepUntilAsked();
            } catch (const CancelRequestedException&) {
                EXPECT_EQ(CancelReasonOfThisJob().cause, CancelCause::Dropped);
                hasLeft = true;
                throw;
            }
        });
        begun->Wait();
    }
    EXPECT_TRUE(hasLeft);
}

TEST_F(DroppedJob, IsWaitedForHoweverLongItTakes) {
    const auto mayEnd = std::make_shared<Gate>();
    std::optional<Job<void>> job = RunHeld(mayEnd);
    const BackgroundCall drop([&job] { job.reset(); });
    Sleep(50);
    EXPECT_TRUE(drop.IsRunning());
    mayEnd->Open();
    EXPECT_TRUE(drop.Ends());
}

TEST_F(DroppedJob, InARunThatWasAskedIsWaitedForAllTheSame) {
    bool hasEnded = false;
    const auto begun = std::make_shared<Gate>();
    auto outer = Run(L"outer", [&hasEnded, begun] {
        const auto inner = RunInNewThread(L"inner", [&hasEnded, begun] {
            begun->Open();
            try {
                SleepUntilAsked();
            } catch (const CancelRequestedException&) {
                Sleep(30);
                hasEnded = true;
            }
        });
        SleepUntilAsked();
    });
    begun->Wait();
    outer.Cancel();
    outer.Wait();
    EXPECT_TRUE(hasEnded);
}

// The handle is dropped by what the job itself calls.
class DroppedInside : public JobTest {
  protected:
    // Runs a job that drops its own handle through `drop`, and returns why it was asked.
    template <typename Drop>
    static CancelReason DropThrough(Drop drop) {
        const auto handle = std::make_shared<Job<void>>();
        const auto mayDrop = std::make_shared<Gate>();
        const auto ended = std::make_shared<Gate>();
        const auto reason = std::make_shared<CancelReason>();
        const std::weak_ptr<Job<void>> seen = handle;
        *handle = Run(L"drops itself", [=] {
            mayDrop->Wait();
            drop(*handle);
            EXPECT_EQ(handle->GetName(), L"");
            EXPECT_TRUE(IsCancellationRequested());
            EXPECT_THROW(CancellationPoint(), CancelRequestedException);
            *reason = CancelReasonOfThisJob();
            ended->Open();
        });
        mayDrop->Open();
        ended->Wait();
        return *reason;
    }
};

TEST_F(DroppedInside, IsAskedAndNotWaitedFor) {
    EXPECT_EQ(DropThrough([](Job<void>& job) { job = {}; }).cause, CancelCause::Dropped);
}

TEST_F(DroppedInside, AnInnerRunOnTheThreadIsAskedAndNotWaitedFor) {
    const auto inATask = [](Job<void>& job) {
        Internal::Task task = MakeTask(L"inner", [&job] { job = {}; });
        task();
    };
    EXPECT_EQ(DropThrough(inATask).cause, CancelCause::Dropped);
}

// Its failure is one that nobody reads.
TEST_F(DroppedInside, IsDetached) {
    const std::uint64_t before = UnreadFailureCount();
    const auto handle = std::make_shared<Job<void>>();
    const auto mayDrop = std::make_shared<Gate>();
    *handle = Run(L"drops itself", [=] {
        mayDrop->Wait();
        *handle = {};
        throw 42;
    });
    mayDrop->Open();
    EXPECT_TRUE(Eventually([&] { return UnreadFailureCount() == before + 1; }));
}

TEST_F(DroppedInside, TheCallableThatHoldsTheLastHandleEndsAllTheSame) {
    const auto mayEnd = std::make_shared<Gate>();
    std::weak_ptr<Job<std::shared_ptr<void>>> seen;
    std::atomic<bool> resultIsGone = false;
    {
        const auto handle = std::make_shared<Job<std::shared_ptr<void>>>();
        seen = handle;
        *handle = Run(L"holds itself", [handle, mayEnd, &resultIsGone] {
            mayEnd->Wait();
            return std::shared_ptr<void>(nullptr, [&resultIsGone](void*) { resultIsGone = true; });
        });
    }
    EXPECT_FALSE(seen.expired());
    mayEnd->Open();
    EXPECT_TRUE(Eventually([&] { return seen.expired() && resultIsGone; }));
}

TEST_F(DroppedInside, TheCallableThatNeverRunsEndsAllTheSame) {
    FullPool pool;
    const auto handle = std::make_shared<Job<void>>();
    *handle = Run(L"holds itself", [handle] {});
    const std::weak_ptr<Job<void>> seen = handle;
    handle->Cancel();
    EXPECT_TRUE(handle->IsReady());
    EXPECT_EQ(seen.use_count(), 1);
}

TEST_F(DroppedInside, AnotherJobIsWaitedFor) {
    auto outer = Run(L"outer", [] {
        bool hasLeft = false;
        const auto begun = std::make_shared<Gate>();
        {
            const auto other = RunInNewThread(L"other", [&hasLeft, begun] {
                begun->Open();
                try {
                    SleepUntilAsked();
                } catch (const CancelRequestedException&) {
                    hasLeft = true;
                }
            });
            begun->Wait();
        }
        EXPECT_TRUE(hasLeft);
    });
    outer.Get();
}

class DetachedJob : public JobTest {};

TEST_F(DetachedJob, GoesOnUnasked) {
    const auto mayEnd = std::make_shared<Gate>();
    std::atomic<int> result = 0;
    {
        auto job = Run(L"detached", [&result, mayEnd] {
            mayEnd->Wait();
            result = IsCancellationRequested() ? -1 : 1;
        });
        job.Detach();
        job.Detach();  // nothing
    }
    EXPECT_EQ(result, 0);
    mayEnd->Open();
    EXPECT_TRUE(Eventually([&] { return result == 1; }));
}

// Every object that is dropped while another thread waits for the same job would be an error of the program, but that a
// job ends while it is dropped is not.
TEST_F(DroppedJob, MayBeEndingAtThatMoment) {
    for (int i = 0; i < 200; ++i) {
        auto job = std::make_unique<Job<int>>(Run(L"ends", [i] {
            if (i % 3 == 0) {
                throw i;
            }
            return i;
        }));
        if (i % 2 == 0) {
            job->Detach();
        }
        job.reset();
    }
    SUCCEED();
}

}  // namespace
