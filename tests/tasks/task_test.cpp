// The handle: name, identity, questions, cancellation, and the handle of no task.
#include "concurrency/tasks/task.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/future_notification_adapter.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/null_future_state.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/task_thread.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

static_assert(sizeof(Task) == sizeof(std::shared_ptr<void>), "a handle is one shared pointer");
static_assert(std::is_nothrow_move_constructible_v<Task> && std::is_nothrow_move_assignable_v<Task>);

std::wstring NameKeptOf(const std::wstring& name) {
    return Task(name.c_str(), nullptr).GetName();
}

TEST(Task, KeepsAName) {
    EXPECT_EQ(NameKeptOf(L"Read index"), L"Read index");
    EXPECT_EQ(NameKeptOf(L""), L"");
}

TEST(Task, KeepsTheFirst29CharactersOfAName) {
    const std::wstring exact = L"12345678901234567890123456789";
    ASSERT_EQ(exact.size(), 29U);

    EXPECT_EQ(NameKeptOf(exact), exact);
    EXPECT_EQ(NameKeptOf(exact + L"0"), exact);
    EXPECT_EQ(NameKeptOf(exact + std::wstring(10'000, L'x')), exact);
}

TEST(Task, CountsANamesCharactersInUtf16Units) {
    const std::wstring umlauts(40, L'\u00e4');
    EXPECT_EQ(NameKeptOf(umlauts), std::wstring(29, L'\u00e4'));

    std::wstring pairs;
    for (int count = 0; count < 20; ++count) {
        pairs += L"\xd83d\xde00";
    }
    EXPECT_EQ(NameKeptOf(pairs), pairs.substr(0, 29));
}

TEST(Task, NullNameIsAnEmptyName) {
    EXPECT_STREQ(Task(nullptr, ScriptedIn(State::NotStarted)).GetName(), L"");
}

TEST(Task, CopiesItsName) {
    wchar_t name[] = L"before";
    const Task task(name, nullptr);
    name[0] = L'B';

    EXPECT_STREQ(task.GetName(), L"before");
}

TEST(Task, NameLivesAsLongAsTheTask) {
    Task task(L"kept", ScriptedIn(State::Normal));
    const wchar_t* const name = task.GetName();
    const Task copy = task;
    task.Wait();
    task = {};

    EXPECT_STREQ(name, L"kept");
    EXPECT_EQ(copy.GetName(), name);
}

TEST(Task, CopiesOfAHandleAreEqual) {
    const Task original(L"same", ScriptedIn(State::NotStarted));
    const Task copy = original;
    Task assigned;
    assigned = copy;

    EXPECT_TRUE(copy == original);
    EXPECT_TRUE(assigned == original);
}

TEST(Task, HandlesBuiltAlikeAreNotEqual) {
    const auto state = ScriptedIn(State::NotStarted);

    EXPECT_FALSE(Task(L"same", state) == Task(L"same", state));
}

TEST(Task, MovingAHandleLeavesAnEmptyOne) {
    Task original(L"moved", ScriptedIn(State::NotStarted));
    const Task copy = original;
    const Task moved = std::move(original);

    EXPECT_TRUE(moved == copy);
    EXPECT_TRUE(original == Task());  // NOLINT(bugprone-use-after-move): that is the question
}

TEST(Task, SharesItsStateBetweenCopies) {
    Task task(L"shared", ScriptedIn(State::NotStarted));
    Task copy = task;
    copy.Cancel();

    EXPECT_TRUE(task.IsCancelled());
    EXPECT_EQ(task.GetWrapper(), copy.GetWrapper());
}

TEST(Task, ReleasesItsStateWithTheLastHandle) {
    auto state = ScriptedIn(State::NotStarted);
    const std::weak_ptr<ITaskState> watched = state;
    Task task(L"released", std::move(state));
    {
        const Task copy = task;
        task = {};
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

TEST(Task, GivesOutTheStateItWasMadeOf) {
    const auto state = ScriptedIn(State::NotStarted);

    EXPECT_EQ(Task(L"", state).GetWrapper(), state);
}

TEST(Task, IsBusyAndIsCancelledAsItsFutureSays) {
    for (const State state : kAllStates) {
        const Task task(L"", ScriptedIn(state));

        EXPECT_EQ(task.IsBusy(), state == State::Busy) << state;
        EXPECT_EQ(task.IsCancelled(), state == State::Cancelling || state == State::Cancelled) << state;
    }
}

TEST(Task, CancelledThroughItsFutureIsNoLongerCancelledAfterANormalEnd) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    const Task task(L"", std::make_shared<ScriptedState>(future));
    future->RequestCancel();
    EXPECT_TRUE(task.IsCancelled());

    future->SetValue();
    EXPECT_FALSE(task.IsCancelled());
}

TEST(Task, CancelledThroughItsHandleStaysCancelledWhateverTheOutcome) {
    for (const State state : kAllStates) {
        const FuturePointer future = AttachedFutureIn(state);
        Task task(L"", std::make_shared<ScriptedState>(future));
        task.Cancel();
        EXPECT_TRUE(task.IsCancelled()) << state;
        future->SetValue();
        EXPECT_TRUE(task.IsCancelled()) << state;
    }
}

TEST(Task, CancelRequestsCancellationOfItsFuture) {
    const FuturePointer busy = AttachedFutureIn(State::Busy);
    const FuturePointer fresh = AttachedFutureIn(State::NotStarted);
    Task(L"", std::make_shared<ScriptedState>(busy)).Cancel();
    Task(L"", std::make_shared<ScriptedState>(fresh)).Cancel();

    EXPECT_TRUE(busy->IsCancelling());
    EXPECT_TRUE(busy->GetCancellationObject()->IsRequested());
    EXPECT_TRUE(fresh->IsCancelled());
}

TEST(Task, CancelKeepsTheStateInPlace) {
    const auto state = ScriptedIn(State::Busy);
    Task task(L"", state);
    task.Cancel();
    task.Cancel();

    EXPECT_EQ(task.GetWrapper(), state);
}

TEST(Task, CancellingItselfThrowsAndEmptiesTheHandle) {
    bool thrown = false;
    bool emptied = false;
    Task task;
    FuturePointer future;
    task = MakeTask(
        L"",
        [&] {
            try {
                task.Cancel();
            } catch (const CancelRequestedException&) {
                thrown = true;
                emptied = IsEmptied(task);
                throw;
            }
        },
        future);
    task();

    EXPECT_TRUE(thrown);
    EXPECT_TRUE(emptied);
    EXPECT_TRUE(future->IsCancelled());
    EXPECT_TRUE(IsEmptied(task));
}

TEST(Task, CancellingItselfEndsTheRunThatKeepsItsOwnState) {
    bool destroyedDuringTheRun = false;
    bool running = false;
    const FuturePointer future = AttachedFutureIn(State::NotStarted);
    Task task;
    {
        auto state = std::make_shared<ScriptedState>(future);
        state->destroyed = [&] { destroyedDuringTheRun = running; };
        state->run = [&] {
            running = true;
            future->Start();
            EXPECT_THROW(task.Cancel(), CancelRequestedException);
            running = false;
        };
        task = Task(L"", std::move(state));
    }
    task();

    EXPECT_FALSE(running);
    EXPECT_FALSE(destroyedDuringTheRun);
}

// A future that refuses to be cancelled.
class RefusingFuture : public NullFutureState {
  public:
    bool IsCancelled() const override { return false; }
    void RequestCancel() override { throw std::runtime_error("refused"); }
};

TEST(Task, AnyOtherFailureToCancelIsPassedOnAndChangesNothing) {
    const auto state = std::make_shared<ScriptedState>(std::make_shared<RefusingFuture>());
    Task task(L"", state);

    EXPECT_THROW(task.Cancel(), std::runtime_error);
    EXPECT_FALSE(task.IsCancelled());
    EXPECT_EQ(task.GetWrapper(), state);
    PlainThread([&] { EXPECT_FALSE(task.IsBusy()); }).Join();  // the lock is free
}

// A future that, when it is first asked, has another thread ask its task something.
class AskingFuture : public NullFutureState {
  public:
    bool IsBusy() const override {
        Ask();
        return false;
    }
    bool IsCancelled() const override {
        Ask();
        return false;
    }
    void RequestCancel() override { Ask(); }

    Task task;
    mutable std::unique_ptr<PlainThread> asker;
    mutable bool askerWaited = false;

  private:
    void Ask() const {
        if (!asker) {
            asker = std::make_unique<PlainThread>([this] { (void)task.GetName(); });
            askerWaited = StillWaits(*asker);
        }
    }
};

// So that, for one, a reset sees the request and the task's own flag, or neither.
TEST(Task, HoldsItsLockWhileItAsksItsFuture) {
    const std::map<std::string, void (*)(Task&)> operations{
        {"Cancel", [](Task& task) { task.Cancel(); }},
        {"IsBusy", [](Task& task) { EXPECT_FALSE(task.IsBusy()); }},
        {"IsCancelled", [](Task& task) { EXPECT_FALSE(task.IsCancelled()); }},
        {"Reset", [](Task& task) { task.Reset(); }},
    };
    for (const auto& [name, operation] : operations) {
        const auto future = std::make_shared<AskingFuture>();
        Task task(L"", std::make_shared<ScriptedState>(future));
        future->task = task;
        operation(task);
        ASSERT_NE(future->asker, nullptr) << name;
        future->asker->Join();
        future->task = {};

        EXPECT_TRUE(future->askerWaited) << name;
    }
}

// On purpose: the handle cannot tell whose exception it is that comes back.
TEST(Task, CancelThatComesBackToTheCallersOwnTaskEmptiesTheCancelledHandle) {
    FuturePointer ownFuture;
    Task other(L"", ScriptedIn(State::Busy));
    std::shared_ptr<AbstractCancelNotifier> notifier;
    Task own = MakeTask(
        L"",
        [&] {
        // The other task passes its cancellation on to this one.
            const auto previous =
                ResetFutureObject(std::dynamic_pointer_cast<FutureState>(other.GetWrapper()->GetFuture()));
            notifier = FutureNotificationAdapter::CreateInstance(ownFuture);
            ResetFutureObject(previous);
            other.Cancel();
        },
        ownFuture);
    own();

    EXPECT_TRUE(ownFuture->IsCancelled());
    EXPECT_TRUE(IsEmptied(other));
    EXPECT_FALSE(IsEmptied(own));
}

TEST(Task, AnswersWhileItRuns) {
    Gate gate;
    TaskThread thread([&] { gate.Wait(); }, L"running");
    Task task = thread.GetTask();
    PlainThread asker([&] {
        EXPECT_TRUE(task.IsBusy());
        EXPECT_FALSE(task.IsCancelled());
        EXPECT_STREQ(task.GetName(), L"running");
        EXPECT_NE(task.GetWrapper(), nullptr);
    });
    EXPECT_TRUE(Eventually([&] { return asker.HasEnded(); }));
    gate.Open();
}

TEST(Task, WithANullStateIsAnEmptyTask) {
    Task task(L"named", nullptr);

    EXPECT_STREQ(task.GetName(), L"named");
    EXPECT_TRUE(IsEmptied(task));
    EXPECT_TRUE(task.IsCancelled());
    EXPECT_FALSE(task.IsBusy());
    task();
    task.Cancel();
    task.Reset();
    task.Wait();
    EXPECT_TRUE(IsEmptied(task));
}

TEST(Task, EmptyHandleActsAsAnEmptyTask) {
    const RecordedReports reports;
    Task task;

    EXPECT_STREQ(task.GetName(), L"");
    EXPECT_TRUE(task.IsCancelled());
    EXPECT_FALSE(task.IsBusy());
    EXPECT_TRUE(IsEmptied(task));
    task();
    task.Cancel();
    task.Reset();
    task.Wait();
    EXPECT_TRUE(task.IsCancelled());
    EXPECT_TRUE(reports.All().empty());
}

TEST(Task, EmptyHandlesAreEqualToEachOtherAndToNoTask) {
    EXPECT_TRUE(Task() == Task());
    EXPECT_FALSE(Task() == Task(L"", nullptr));
    const Task empty;
    const Task copy = empty;
    EXPECT_TRUE(copy == empty);
}

}  // namespace
