// What an overrun does besides its report.
#include <gtest/gtest.h>

#include <cstdint>
#include <cwchar>
#include <list>
#include <memory>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/delay_report.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduler.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/lifetime/library_use.h"
#include "tests/scheduler/moments.h"
#include "tests/scheduler/overrun_report.h"
#include "tests/scheduler/probe_task.h"
#include "tests/scheduler/scratch_configuration.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/held_worker.h"
#include "tests/threadpool/pool_numbers.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

ScheduledTask BusyOnce(const Probe& probe) {
    probe->busy = true;
    return ScheduledTask(probe.MakeTask(L"Busy"), k1970, kOnce);
}

class OverrunConsequences : public testing::Test {
  protected:
    // A cycle of the library with one overrun.
    void Overrun() {
        const std::size_t before = m_reports.Count(L"Scheduler", kOverrun);
        {
            const ConcurrencyLifetime lifetime;
            GlobalScheduler::Insert(BusyOnce(Probe()));
            // A scheduler that is stopped before it looked leaves what was inserted.
            ASSERT_TRUE(Eventually([&] { return m_reports.Count(L"Scheduler", kOverrun) == before + 1; }));
        }
        EXPECT_EQ(m_reports.Count(L"Scheduler", kOverrun), before + 1);
    }

    ScratchConfiguration m_registry;
    const RecordedReports m_reports;
};

TEST_F(OverrunConsequences, IsOnlyAReportWithoutConfiguration) {
    Overrun();

    EXPECT_EQ(g_IntervalExceeded, 0);
}

TEST_F(OverrunConsequences, IsAFlagInModeOneOnly) {
    for (const std::uint32_t mode : {0U, 2U, 0x101U, 0xFFFF'FFFFU}) {
        m_registry.SetAssertMode(mode);
        Overrun();
        EXPECT_EQ(g_IntervalExceeded, 0) << "mode " << mode;
    }
    m_registry.SetAssertMode(REG_SZ, L"1", 4);
    Overrun();
    EXPECT_EQ(g_IntervalExceeded, 0) << "text";

    m_registry.SetAssertMode(1);
    EXPECT_EQ(g_IntervalExceeded, 0);
    Overrun();
    EXPECT_EQ(g_IntervalExceeded, 1);
}

TEST_F(OverrunConsequences, AreAFlagThatTheLibraryNeverClears) {
    m_registry.SetAssertMode(1);
    Overrun();
    ASSERT_EQ(g_IntervalExceeded, 1);

    m_registry.SetAssertMode(DWORD{0});
    Overrun();

    EXPECT_EQ(g_IntervalExceeded, 1);
}

// Nor do they wait for the first overrun.
TEST_F(OverrunConsequences, AreReadFromTheRegistryWhenTheSchedulerIsCreated) {
    const auto overrunAfterAChange = [this](DWORD whenCreated, DWORD later) {
        m_registry.SetAssertMode(whenCreated);
        const ConcurrencyLifetime lifetime;
        CreateScheduler();
        m_registry.SetAssertMode(later);
        Overrun();
    };

    overrunAfterAChange(0, 1);
    EXPECT_EQ(g_IntervalExceeded, 0);
    overrunAfterAChange(1, 0);
    EXPECT_EQ(g_IntervalExceeded, 1);
}

int g_flagAtTheReport = -1;

void NoteTheFlag(OrvaneLogging*, int, int, const wchar_t* category, const wchar_t*, ...) {
    if (std::wcscmp(category, L"Scheduler") == 0) {
        g_flagAtTheReport = g_IntervalExceeded;
    }
}

TEST_F(OverrunConsequences, AreAFlagAfterTheReport) {
    m_registry.SetAssertMode(1);
    const auto delay = std::make_shared<DelayReport>();
    delay->ReadConfiguration();
    Task report = delay->MakeReportTask(L"Busy");
    const ImportPatch noted(LibraryUnderTest(), kReportName, &NoteTheFlag);

    report();

    EXPECT_EQ(g_flagAtTheReport, 0);
    EXPECT_EQ(g_IntervalExceeded, 1);
}

// The pool is busy with something else while the scheduler ends.
TEST_F(OverrunConsequences, ComeTrueAfterTheSchedulerHasGone) {
    m_registry.SetAssertMode(1);
    const ConcurrencyLifetime lifetime;
    std::list<HeldWorker> workers;
    for (int i = 0; i < kFirstWorkers; ++i) {
        workers.emplace_back(&GlobalThreadPool::Queue);
    }
    const Probe probe;
    auto scheduler = std::make_unique<Scheduler>();
    scheduler->Queue()->Push(BusyOnce(probe));
    ASSERT_TRUE(Eventually([&] { return probe->destroyed.load(); }));
    scheduler.reset();
    EXPECT_EQ(m_reports.Count(L"Scheduler", kOverrun), 0U);

    for (HeldWorker& worker : workers) {
        worker.Release();
    }

    EXPECT_TRUE(Eventually([&] { return g_IntervalExceeded == 1; }));
    EXPECT_EQ(m_reports.Count(L"Scheduler", kOverrun), 1U);
}

}  // namespace
