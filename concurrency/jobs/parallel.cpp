#include "concurrency/jobs/parallel.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/group_core.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/run_record.h"
#include "concurrency/jobs/this_run.h"

namespace Orvane::Internal {

namespace {

// How many chunks each runner would take of what is left: large ones at first, single items at the end.
constexpr std::size_t kChunksPerRunner = 4;

struct Chunk {
    std::size_t begin;
    std::size_t end;
};

// The items that no runner has taken yet.
class Items {
  public:
    Items(std::size_t count, std::size_t runners) : m_count(count), m_share(runners * kChunksPerRunner) {}

    // Empty when nothing is left.
    Chunk Take() noexcept {
        std::size_t begin = m_next.load(std::memory_order_relaxed);
        std::size_t size = 0;
        do {
            size = begin < m_count ? (std::max)(std::size_t{1}, (m_count - begin) / m_share) : 0;
        } while (size != 0 && !m_next.compare_exchange_weak(begin, begin + size, std::memory_order_relaxed));
        return {begin, begin + size};
    }

    void CountDone(std::size_t done) noexcept { m_done.fetch_add(done, std::memory_order_relaxed); }
    bool AreAllDone() const noexcept { return m_done.load(std::memory_order_relaxed) == m_count; }

  private:
    const std::size_t m_count;
    const std::size_t m_share;
    std::atomic<std::size_t> m_next = 0;
    std::atomic<std::size_t> m_done = 0;
};

// Returns when nothing is left, or the run is asked.
void RunChunks(Items& items, void* context, RunChunk run, const std::atomic<bool>& isAsked) {
    for (Chunk chunk = items.Take(); chunk.begin != chunk.end; chunk = items.Take()) {
        const std::size_t done = run(context, chunk.begin, chunk.end, isAsked);
        items.CountDone(done);
        if (done != chunk.end - chunk.begin) {
            return;
        }
    }
}

// The runners are jobs of a group. Those that have not begun when nothing is left are dropped: one may be waiting for a growth of
// the pool.
class Runners {
  public:
    Runners(const wchar_t* name, std::size_t count, Items& items, void* context, RunChunk run)
        : m_name(name), m_group(name, count), m_items(items), m_context(context), m_run(run) {}

    void Start(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            m_group.Run(m_name, [this] { TakeItems(); });
        }
    }

    // The caller's part: a job like the others, so that their failures reach its items, too.
    void RunHere() noexcept {
        try {
            auto take = [this] { TakeItems(); };
            const auto& type = JobBody<decltype(take)>::Type();
            m_group.Core().RunHere(BuildInto(JobRef(m_group.Core().Make(m_name, type, type.module())), take).State());
        } catch (...) {
            m_group.Core().Fail(m_group.Core().Name(), std::current_exception());
        }
    }

    // If it throws, the end of the group waits for the runners.
    void Await() { static_cast<void>(m_group.Core().WaitUntilIdle(kNoDeadline)); }

    // Throws unless all items are done.
    void Rethrow() {
        if (m_items.AreAllDone() && m_group.Counts().failed == 0) {
            return;
        }
        m_group.Core().RethrowFirst();
        throw CancelledException();
    }

  private:
    void TakeItems() {
        RunChunks(m_items, m_context, m_run, RecordOfThisRun()->RequestedFlag());
        m_group.Core().DropWaiting();
    }

    const wchar_t* const m_name;
    JobGroup m_group;
    Items& m_items;
    void* const m_context;
    const RunChunk m_run;
};

}  // namespace

void RunInParallel(const wchar_t* name, std::size_t count, std::size_t bound, void* context, RunChunk run) {
    if (bound == 0) {
        throw std::invalid_argument("with a bound of 0 no item would ever be done");
    }
    const std::size_t runnerCount = (std::min)(bound, count);
    if (runnerCount == 0) {
        return;
    }
    Items items(count, runnerCount);
    const bool isInRun = GetFutureObject() != nullptr;
    Runners runners(name, runnerCount, items, context, run);
    runners.Start(isInRun ? runnerCount - 1 : runnerCount);
    if (isInRun) {
        runners.RunHere();
    }
    runners.Await();
    runners.Rethrow();
}

}  // namespace Orvane::Internal
