#include "concurrency/threadpool/work_queue.h"

#include <gtest/gtest.h>

#include <memory>

#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;

// A task that comes after the shutdown has cancelled everything stays where it is: its caller cancels it.
TEST(WorkQueue, WorkerLeavesWhatIsQueuedOnceAllIsCancelled) {
    WorkQueue queue;
    WorkerBatch batch;
    queue.CountWorkers(batch, 1);
    queue.Stop();
    queue.CancelAll();
    std::shared_ptr<FutureImpl<void>> future;
    WorkQueue::Entries entry;
    entry.emplace_back(MakeTask(L"late", [] {}, future));
    queue.Append(entry);

    TaskNote note;
    queue.RunWorker(batch, note);  // on this thread

    EXPECT_FALSE(future->IsReady());
    EXPECT_EQ(queue.GetLoad().queued, 1U);
    EXPECT_EQ(queue.GetLoad().workers, 0U);
}

}  // namespace
