// An empty task, the same for everybody: it only reports to a finish line that it has run.
#pragma once

#include "bench/harness/finish_line.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/system_pool.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/task.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace Zarvo::Bench {

inline Orvane::Internal::Task EmptyTask(FinishLine& finish) {
    return Orvane::MakeTask(L"Empty", [&finish] { finish.Arrive(); });
}

inline void QueueEmptyTask(FinishLine& finish) {
    Orvane::Internal::GlobalThreadPool::Queue(EmptyTask(finish));
}

inline void ArriveAt(void* finish) {
    static_cast<FinishLine*>(finish)->Arrive();
}

inline void SubmitEmptyTask(BareDequePool& pool, FinishLine& finish) {
    pool.Submit(ArriveAt, &finish);
}

inline void SubmitEmptyTask(SystemPool& pool, FinishLine& finish) {
    pool.Submit<ArriveAt>(&finish);
}

// On the default pool.
inline void TrySubmitEmptyTask(FinishLine& finish) {
    TrySubmit<ArriveAt>(&finish);
}

}  // namespace Zarvo::Bench
