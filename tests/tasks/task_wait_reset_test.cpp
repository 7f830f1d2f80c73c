// Waiting for a task that is started afresh meanwhile.
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/task_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// A task whose first run is awaited while it is started afresh.
class TaskWaitResetTest : public testing::Test {
  protected:
    void SetUp() override {
        m_firstFuture = AttachedFutureIn(State::Busy);
        m_secondFuture = AttachedFutureIn(State::NotStarted);
        m_second = std::make_shared<ScriptedState>(m_secondFuture);
        const auto first = std::make_shared<ScriptedState>(m_firstFuture);
        first->recreate = [this] { return m_second; };
        m_task = Task(L"", first);
        m_waiter = std::make_unique<SleepingWaiter>([task = m_task]() mutable { task.Wait(); }, *m_firstFuture);
        m_task.Reset();
        ASSERT_EQ(m_task.GetWrapper(), m_second);
    }

    bool WaiterReturns() {
        return Eventually([&] { return m_waiter->HasEnded(); });
    }

    FuturePointer m_firstFuture;
    FuturePointer m_secondFuture;
    std::shared_ptr<ScriptedState> m_second;
    Task m_task;
    std::unique_ptr<SleepingWaiter> m_waiter;
};

TEST_F(TaskWaitResetTest, WaitsForANewerRunThatIsBusy) {
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_firstFuture->SetValue();

    EXPECT_TRUE(StillWaits(*m_waiter));
    EXPECT_TRUE(m_task.IsBusy()) << "a handle calls a running task idle";
    EXPECT_EQ(m_task.GetWrapper(), m_second);
    m_secondFuture->SetValue();
    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, WaitsForANewerRunThatIsCancelling) {
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_secondFuture->RequestCancel();
    m_firstFuture->SetValue();

    EXPECT_TRUE(StillWaits(*m_waiter));
    m_secondFuture->ConfirmCancel();
    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, WaitsForANewerRunThatIsAboutToStart) {
    Gate taken;
    Gate mayStart;
    m_second->run = [&] {
        taken.Open();
        mayStart.Wait();
        m_secondFuture->Start();
        m_secondFuture->SetValue();
    };
    PlainThread runner([task = m_task]() mutable { task(); });
    taken.Wait();
    m_firstFuture->SetValue();

    EXPECT_TRUE(StillWaits(*m_waiter));
    mayStart.Open();
    EXPECT_TRUE(WaiterReturns());
    EXPECT_EQ(StateOf(*m_secondFuture), State::Normal);
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, DropsANewerStateThatHasNotStarted) {
    m_firstFuture->SetValue();

    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

// It can no longer run.
TEST_F(TaskWaitResetTest, LetsGoOthersWhoWaitForTheStateThatItDrops) {
    SleepingWaiter other([task = m_task]() mutable { task.Wait(); }, *m_secondFuture);
    m_firstFuture->SetValue();

    EXPECT_TRUE(WaiterReturns());
    EXPECT_TRUE(Eventually([&] { return other.HasEnded(); }));
    EXPECT_EQ(StateOf(*m_secondFuture), State::Cancelled);
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, DropsANewerRunThatHasEnded) {
    End(*m_secondFuture, State::Error);
    m_firstFuture->SetValue();

    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, WaitsForEveryNewerRunThatIsBusy) {
    const FuturePointer thirdFuture = AttachedFutureIn(State::Busy);
    const auto third = std::make_shared<ScriptedState>(thirdFuture);
    m_second->recreate = [&] { return third; };
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_firstFuture->SetValue();
    ASSERT_TRUE(StillWaits(*m_waiter));
    m_task.Reset();
    m_secondFuture->SetValue();

    EXPECT_TRUE(StillWaits(*m_waiter));
    thirdFuture->SetValue();
    EXPECT_TRUE(WaiterReturns());
    ExpectEmptied(m_task);
}

TEST_F(TaskWaitResetTest, CancelReachesTheNewerRunOnly) {
    StartRun(*m_secondFuture, RunsOn::AnotherThread);
    m_task.Cancel();

    EXPECT_EQ(StateOf(*m_firstFuture), State::Busy);
    EXPECT_EQ(StateOf(*m_secondFuture), State::Cancelling);
    m_firstFuture->SetValue();
    EXPECT_TRUE(StillWaits(*m_waiter));
    m_secondFuture->ConfirmCancel();
    EXPECT_TRUE(WaiterReturns());
}

// The end of an older run must not hide the newer one, which has been taken and has not started.
TEST(TaskWaitReset, WaitsForANewerRunThoughAnOlderOneHasReturned) {
    const FuturePointer firstFuture = AttachedFutureIn(State::Busy);
    const FuturePointer secondFuture = AttachedFutureIn(State::NotStarted);
    const auto first = std::make_shared<ScriptedState>(firstFuture);
    const auto second = std::make_shared<ScriptedState>(secondFuture);
    Gate firstTaken;
    Gate firstMayEnd;
    Gate secondTaken;
    Gate secondMayStart;
    first->recreate = [&] { return second; };
    first->run = [&] {
        firstTaken.Open();
        firstMayEnd.Wait();
    };
    second->run = [&] {
        secondTaken.Open();
        secondMayStart.Wait();
        secondFuture->Start();
        secondFuture->SetValue();
    };
    Task task(L"", first);
    const auto run = [task]() mutable { task(); };
    PlainThread older(run);
    firstTaken.Wait();
    SleepingWaiter waiter([task]() mutable { task.Wait(); }, *firstFuture);
    task.Reset();
    const PlainThread newer(run);
    secondTaken.Wait();
    firstMayEnd.Open();
    older.Join();
    firstFuture->SetValue();

    EXPECT_TRUE(StillWaits(waiter));
    secondMayStart.Open();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    EXPECT_EQ(StateOf(*secondFuture), State::Normal);
}

}  // namespace
