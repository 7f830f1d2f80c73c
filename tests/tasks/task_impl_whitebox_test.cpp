// The record that the handles of a task share.
#include "concurrency/tasks/task_impl.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/null_task_wrapper.h"
#include "tests/support/eventually.h"
#include "tests/support/plain_thread.h"

namespace Orvane::Internal {

struct FieldOrder {
    static std::recursive_mutex& MutexOf(TaskImpl& task) { return task.m_mutex; }
    static const bool& CancelledOf(const TaskImpl& task) { return task.m_cancelled; }
    static const ITaskState* StateOf(const TaskImpl& task) { return task.m_wrapper.get(); }
    static wchar_t LastCharacterOf(const TaskImpl& task) { return task.m_name.back(); }

    static constexpr std::size_t kMutex = offsetof(TaskImpl, m_mutex);
    static constexpr std::size_t kName = offsetof(TaskImpl, m_name);
    static constexpr std::size_t kWrapper = offsetof(TaskImpl, m_wrapper);
    static constexpr std::size_t kCancelled = offsetof(TaskImpl, m_cancelled);
    static constexpr std::size_t kNameSize = sizeof(TaskImpl::m_name);
};

}  // namespace Orvane::Internal

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

static_assert(!std::is_polymorphic_v<TaskImpl>);
static_assert(!std::is_copy_constructible_v<TaskImpl>);

TEST(TaskImpl, FieldsLieInTheirDeclaredOrder) {
    EXPECT_EQ(FieldOrder::kMutex, 0U);
    EXPECT_EQ(FieldOrder::kName, sizeof(std::recursive_mutex));
    EXPECT_GE(FieldOrder::kWrapper, FieldOrder::kName + FieldOrder::kNameSize);
    EXPECT_EQ(FieldOrder::kCancelled, FieldOrder::kWrapper + sizeof(std::shared_ptr<ITaskState>));
}

TEST(TaskImpl, NameIsABufferOf30CharactersTerminatedWithin) {
    const TaskImpl task(L"1234567890123456789012345678901234567890", nullptr);

    EXPECT_EQ(FieldOrder::kNameSize, 30 * sizeof(wchar_t));
    EXPECT_EQ(FieldOrder::LastCharacterOf(task), L'\0');
}

TEST(TaskImpl, IsNotCancelledAtConstruction) {
    EXPECT_FALSE(FieldOrder::CancelledOf(TaskImpl(L"", nullptr)));
}

TEST(TaskImpl, NeverHoldsAnEmptyState) {
    TaskImpl task(L"", nullptr);
    EXPECT_NE(FieldOrder::StateOf(task), nullptr);
    task.Wait();
    EXPECT_NE(FieldOrder::StateOf(task), nullptr);
}

TEST(TaskImpl, CancelFromElsewhereSetsTheFlag) {
    TaskImpl task(L"", MakeTask(L"", [] {}).GetWrapper());
    task.Cancel();

    EXPECT_TRUE(FieldOrder::CancelledOf(task));
}

// The flag stays clear: the emptied state alone makes the task cancelled from then on.
TEST(TaskImpl, CancellingItselfLeavesTheFlagAsItWas) {
    std::unique_ptr<TaskImpl> task;
    bool thrown = false;
    const auto state = MakeTask(L"", [&] {
                           try {
                               task->Cancel();
                           } catch (const CancelRequestedException&) {
                               thrown = true;
                               throw;
                           }
                       }).GetWrapper();
    task = std::make_unique<TaskImpl>(L"", state);
    task->Run();

    EXPECT_TRUE(thrown);
    EXPECT_FALSE(FieldOrder::CancelledOf(*task));
    EXPECT_NE(FieldOrder::StateOf(*task), state.get());
    EXPECT_TRUE(task->IsCancelled());
}

TEST(TaskImpl, EveryOperationTakesTheMutex) {
    using Operation = void (*)(TaskImpl&);
    const std::vector<Operation> operations{
        [](TaskImpl& task) { task.Run(); },           [](TaskImpl& task) { task.Cancel(); },
        [](TaskImpl& task) { (void)task.GetName(); }, [](TaskImpl& task) { (void)task.GetWrapper(); },
        [](TaskImpl& task) { (void)task.IsBusy(); },  [](TaskImpl& task) { (void)task.IsCancelled(); },
        [](TaskImpl& task) { task.Reset(); },         [](TaskImpl& task) { task.Wait(); },
    };
    for (std::size_t index = 0; index < operations.size(); ++index) {
        TaskImpl task(L"", nullptr);
        std::unique_lock lock(FieldOrder::MutexOf(task));
        PlainThread caller([&] { operations[index](task); });

        EXPECT_FALSE(Eventually([&] { return caller.HasEnded(); }, std::chrono::milliseconds(20))) << index;
        lock.unlock();
    }
}

}  // namespace
