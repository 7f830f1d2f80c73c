// What a debugger reads, by the exported symbol alone.
#include "concurrency/tasks/run_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

struct ReadRun {
    std::wstring name;
    std::uint32_t thread;
    std::uint32_t isTask;
    std::uint64_t startedAt;
};

template <typename T>
T At(const char* from, std::uint32_t offset) {
    T value;
    std::memcpy(&value, from + offset, sizeof(T));
    return value;
}

std::vector<ReadRun> ReadRuns() {
    const ZarvoRunList& list = zarvo_run_list;
    std::vector<ReadRun> runs;
    for (std::uint32_t part = 0; part < list.partCount; ++part) {
        const char* const head = static_cast<const char*>(list.parts) + part * list.partSize + list.headInPart;
        for (const char* run = At<const char*>(head, list.nextInLink); run != head;
             run = At<const char*>(run, list.nextInLink)) {
            runs.push_back({At<const wchar_t*>(run, list.nameInRun), At<std::uint32_t>(run, list.threadInRun),
                            At<std::uint32_t>(run, list.kindInRun), At<std::uint64_t>(run, list.startInRun)});
        }
    }
    return runs;
}

class RunList : public JobTest {};

TEST_F(RunList, SaysWhatItIs) {
    EXPECT_EQ(std::string(zarvo_run_list.magic, 8), "ZARVORUN");
    EXPECT_EQ(zarvo_run_list.version, 1U);
    EXPECT_EQ(zarvo_run_list.size, sizeof(ZarvoRunList));
    EXPECT_TRUE(ReadRuns().empty());
}

TEST_F(RunList, LeadsToEachTaskAndJobThatRuns) {
    const std::uint64_t before = GetTickCount64();
    auto job = RunSleeper(L"A job");
    DWORD thread = 0;
    TaskThread task(
        [&thread] {
            thread = GetCurrentThreadId();
            SleepUntilAsked();
        },
        L"A task");
    auto runs = ReadRuns();
    std::sort(runs.begin(), runs.end(),
              [](const ReadRun& left, const ReadRun& right) { return left.name < right.name; });
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_EQ(runs[0].name, L"A job");
    EXPECT_EQ(runs[0].isTask, 0U);
    EXPECT_NE(runs[0].thread, runs[1].thread);
    EXPECT_EQ(runs[1].name, L"A task");
    EXPECT_EQ(runs[1].isTask, 1U);
    task.Cancel();
    task.Join();
    EXPECT_EQ(runs[1].thread, thread);
    for (const ReadRun& run : runs) {
        EXPECT_GE(run.startedAt, before);
        EXPECT_LE(run.startedAt, GetTickCount64());
    }
    EXPECT_EQ(ReadRuns().size(), 1U);
}

}  // namespace
