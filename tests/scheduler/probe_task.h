// A task that does nothing but tell what is done with it: what the scheduler asks before it hands it over, and how often
// the pool runs it. A real task can be run once only, between two resets.
//
//     Probe probe;
//     GlobalScheduler::Insert(ScheduledTask(probe.MakeTask(L"probe"), start, interval));
//     EXPECT_TRUE(Eventually([&] { return probe->asked == 1; }));
//
// Threads: the counters and switches from any; set the actions before the task is handed out. They are called with the
//     task locked: they must not touch it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "concurrency/tasks/itask_state.h"
#include "concurrency/tasks/task.h"

namespace Zarvo::Test {

struct ProbeRecord {
    // Once per turn of the task: asked whether it is busy by the scheduler, and run by the pool.
    std::atomic<int> asked = 0;
    std::atomic<int> ran = 0;
    // By the pool before a run, by the scheduler when a turn is over, and by whoever else asks.
    std::atomic<int> askedForCancellation = 0;

    std::atomic<bool> busy = false;
    std::atomic<bool> cancelled = false;
    std::atomic<bool> destroyed = false;

    std::function<void()> whenAsked = [] {};
    std::function<void()> whenDestroyed = [] {};
};

class ProbeState : public Orvane::Internal::ITaskState,
                   public Orvane::Internal::IFutureState,
                   public std::enable_shared_from_this<ProbeState> {
  public:
    explicit ProbeState(std::shared_ptr<ProbeRecord> record) : m_record(std::move(record)) {}
    ~ProbeState() override {
        m_record->whenDestroyed();
        m_record->destroyed = true;
    }
    ProbeState(const ProbeState&) = delete;
    ProbeState& operator=(const ProbeState&) = delete;

    void operator()() override { ++m_record->ran; }
    std::shared_ptr<ITaskState> Recreate() override { return nullptr; }
    std::shared_ptr<IFutureState> GetFuture() override { return shared_from_this(); }

    bool Start() override { return true; }
    void SetException(const Orvane::CloneableException&) override {}
    bool IsBusy() const override {
        m_record->whenAsked();
        ++m_record->asked;
        return m_record->busy;
    }
    bool IsReady() const override { return m_record->cancelled; }
    bool IsNormal() const override { return false; }
    bool IsCancelling() const override { return false; }
    bool IsCancelled() const override {
        ++m_record->askedForCancellation;
        return m_record->cancelled;
    }
    void Wait() override {}
    bool TimedWait(const Orvane::TimePoint&) override { return true; }
    void RequestCancel() override { m_record->cancelled = true; }
    void ConfirmCancel() override {}
    std::shared_ptr<Orvane::Internal::CancellationObject> GetCancellationObject() override { return nullptr; }

  private:
    const std::shared_ptr<ProbeRecord> m_record;
};

class Probe {
  public:
    Orvane::Internal::Task MakeTask(const wchar_t* name = L"probe") const {
        return Orvane::Internal::Task(name, std::make_shared<ProbeState>(m_record));
    }

    ProbeRecord* operator->() const { return m_record.get(); }

  private:
    const std::shared_ptr<ProbeRecord> m_record = std::make_shared<ProbeRecord>();
};

}  // namespace Zarvo::Test
