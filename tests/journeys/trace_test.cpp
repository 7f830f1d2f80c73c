// The trace of a program that does some work of each kind.
#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "tests/support/child_process.h"
#include "tests/support/trace_events.h"

namespace {

using namespace Zarvo::Test;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

using Beside = std::map<std::string, std::string>;

class LibraryTrace : public testing::Test {
  protected:
    LibraryTrace()
        : m_path(std::filesystem::temp_directory_path() /
                 ("zarvo-trace-" + std::to_string(GetCurrentProcessId()) + ".json")) {}
    ~LibraryTrace() override {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }

    ChildResult Run(const std::string& program, const std::vector<std::string>& arguments = {}) {
        return RunChild(program, arguments, {{"ZARVO_TRACE", m_path.string()}});
    }

    void RunAll() {
        const ChildResult result = Run("trace_test_child");
        ASSERT_EQ(result.exitCode, 0u) << result.standardError;
        m_mutex = result.standardOutput;
        m_events = ReadTrace(m_path);
    }

    // The one event of this phase and name. None is an event without anything.
    TraceEvent One(const std::string& phase, const std::string& name, const std::string& category) const {
        TraceEvents found = Find(m_events, phase, name);
        std::erase_if(found, [&](const TraceEvent& event) { return event.category != category; });
        EXPECT_THAT(found, SizeIs(1)) << phase << " " << category << " " << name;
        return found.empty() ? TraceEvent() : found.front();
    }

    // Those of the thread that lie in between.
    TraceEvents Between(const TraceEvent& begin, const TraceEvent& end) const {
        TraceEvents between;
        std::copy_if(m_events.begin(), m_events.end(), std::back_inserter(between), [&](const TraceEvent& event) {
            return event.thread == begin.thread && event.time > begin.time && event.time < end.time;
        });
        return between;
    }

    TraceEvents InRun(const std::string& name, const std::string& category) const {
        return Between(One("B", name, category), One("E", name, category));
    }

    std::filesystem::path m_path;
    std::string m_mutex;  // for which the child has waited: its address
    TraceEvents m_events;
};

const Beside kReturned{{"outcome", "returned"}};

}  // namespace

TEST_F(LibraryTrace, IsSortedAndNestsAndEverySpanEnds) {
    RunAll();
    EXPECT_THAT(ProblemsIn(m_events), IsEmpty());
}

TEST_F(LibraryTrace, HasTheRunsOfTasksWithTheirOutcomes) {
    RunAll();
    EXPECT_EQ(One("E", "Plain", "task").arguments, kReturned);
    EXPECT_EQ(One("E", "Failing", "task").arguments, (Beside{{"outcome", "failed"}}));
    EXPECT_EQ(One("E", "Cancelled", "task").arguments, (Beside{{"outcome", "cancelled"}}));
    EXPECT_THAT(Find(InRun("Plain", "task"), "B", "Nested"), SizeIs(1));
    EXPECT_THAT(Find(InRun("Plain", "task"), "E", "Nested"), SizeIs(1));
}

TEST_F(LibraryTrace, HasTheRunsOfJobsWithTheirOutcomesAndHowTheyWereAsked) {
    RunAll();
    EXPECT_EQ(One("E", "Sum \"40 + 2\"", "job").arguments, kReturned);
    EXPECT_EQ(One("E", "Broken", "job").arguments, (Beside{{"outcome", "failed"}}));
    EXPECT_EQ(One("E", "Nap", "job").arguments, (Beside{{"outcome", "cancelled"}, {"asked", "through its handle"}}));
    EXPECT_EQ(One("E", "Fetch 1", "job").arguments,
              (Beside{{"outcome", "cancelled"}, {"asked", "with its group Import"}}));
    EXPECT_EQ(One("B", "Nap", "job").arguments, Beside());
    EXPECT_EQ(One("B", "Child", "job").arguments, (Beside{{"owner", "Parent"}}));
    EXPECT_EQ(One("B", "Fetch 1", "job").arguments, (Beside{{"group", "Import"}}));
}

TEST_F(LibraryTrace, SaysOnTheAskingThreadWhoIsAsked) {
    RunAll();
    const TraceEvents asked = Find(m_events, "i", "asked");
    const auto of = [&asked](const std::string& run) {
        const auto found = std::find_if(asked.begin(), asked.end(),
                                        [&run](const TraceEvent& event) { return event.arguments.at("run") == run; });
        return found == asked.end() ? TraceEvent() : *found;
    };
    const TraceEvent nap = of("Nap");
    EXPECT_EQ(nap.arguments, (Beside{{"run", "Nap"}, {"how", "through its handle"}}));
    EXPECT_NE(nap.thread, One("B", "Nap", "job").thread);
    EXPECT_EQ(nap.thread, of("Cancelled").thread);
    EXPECT_EQ(of("Fetch 2").arguments.at("how"), "with its group Import");
}

TEST_F(LibraryTrace, HasTheTimeInTheQueuesUntilTheStart) {
    RunAll();
    const TraceEvent begins = One("b", "Plain", "queue");
    const TraceEvent ends = One("e", "Plain", "queue");
    EXPECT_EQ(begins.id, ends.id);
    EXPECT_NE(begins.thread, ends.thread);
    EXPECT_EQ(ends.arguments, (Beside{{"result", "taken"}}));
    EXPECT_EQ(ends.thread, One("B", "Plain", "task").thread);
    EXPECT_EQ(One("e", "Sum \"40 + 2\"", "job queue").arguments, (Beside{{"result", "started"}}));
    EXPECT_EQ(One("b", "Fetch 2", "job queue").arguments, (Beside{{"group", "Import"}}));
    EXPECT_EQ(One("e", "Fetch 2", "job queue").arguments, (Beside{{"result", "cancelled"}}));
    EXPECT_THAT(Find(m_events, "B", "Fetch 2"), IsEmpty());
}

TEST_F(LibraryTrace, HasTheWaitsInsideTheRuns) {
    RunAll();
    const TraceEvents sleeps = Find(InRun("Nap", "job"), "b", "CancellableSleep");
    ASSERT_THAT(sleeps, SizeIs(1));
    EXPECT_EQ(sleeps[0].arguments, Beside());
    EXPECT_THAT(Find(InRun("Nap", "job"), "e", "CancellableSleep"), SizeIs(1));
    EXPECT_THAT(Find(InRun("Parent", "job"), "b", "wait for jobs"), SizeIs(1));
    const TraceEvents locks = Find(InRun("Waiting", "job"), "b", "fifo_mutex::lock");
    ASSERT_THAT(locks, SizeIs(1));
    EXPECT_EQ(locks[0].arguments, (Beside{{"object", "0x" + m_mutex}}));
    EXPECT_THAT(Find(InRun("Waiting", "job"), "e", "fifo_mutex::lock"), SizeIs(1));
    EXPECT_THAT(Find(m_events, "b", "Task::Wait"), Not(IsEmpty()));
}

TEST_F(LibraryTrace, SaysWhichRunsHeldTheWorkersWhenThePoolGrew) {
    RunAll();
    const TraceEvents growths = Find(m_events, "i", "growth");
    ASSERT_THAT(growths, Not(IsEmpty()));
    const TraceEvents held = Find(m_events, "i", "holds a worker");
    const auto isHolding = [](const TraceEvent& event) { return event.arguments.at("run") == "Holding"; };
    EXPECT_GE(std::count_if(held.begin(), held.end(), isHolding), 5);
    for (const TraceEvent& event : held) {
        EXPECT_GE(std::stoll(event.arguments.at("ms")), 0);
        EXPECT_GT(std::stoll(event.arguments.at("thread")), 0);
        EXPECT_EQ(event.thread, growths[0].thread);
    }
}

TEST_F(LibraryTrace, SaysHowLateTheSchedulerComesAndWhatItSkips) {
    RunAll();
    const TraceEvents due = Find(m_events, "i", "due");
    ASSERT_THAT(due, Not(IsEmpty()));
    EXPECT_EQ(due[0].arguments.at("task"), "Slow");
    EXPECT_GE(std::stoll(due[0].arguments.at("late_us")), 0);
    const TraceEvents skips = Find(m_events, "i", "skip");
    ASSERT_THAT(skips, Not(IsEmpty()));
    EXPECT_EQ(skips[0].arguments, (Beside{{"task", "Slow"}}));
    EXPECT_EQ(skips[0].thread, due[0].thread);
    EXPECT_EQ(due.back().arguments.at("task"), "Ancient");
    EXPECT_GT(std::stoll(due.back().arguments.at("late_us")), 900'000'000'000'000'000);
}

TEST_F(LibraryTrace, NamesTheThreads) {
    RunAll();
    std::map<std::string, int> names;
    for (const TraceEvent& event : Find(m_events, "M", "thread_name")) {
        ++names[event.arguments.at("name")];
    }
    EXPECT_GE(names["Pool worker"], 8);
    EXPECT_EQ(names["Scheduler"], 1);
    EXPECT_EQ(names["Cancelled"], 1);
}

TEST_F(LibraryTrace, EndsWithTheLastWordsOfTheProcess) {
    EXPECT_EQ(Run("process_ends_test_child", {"worker"}).exitCode, kTerminated);
    const TraceEvents ends = Find(ReadTrace(m_path), "i", "process ends");
    ASSERT_THAT(ends, SizeIs(1));
    EXPECT_THAT(ends[0].arguments.at("why"), HasSubstr("ZarvoConcurrency ends the process: "));
}
