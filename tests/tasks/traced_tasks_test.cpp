// The trace's lines of tasks and of what holds the pool's workers. tests/journeys reads a whole trace.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

class TracedTasks : public testing::Test {
  protected:
    TracedTasks()
        : m_path(std::filesystem::temp_directory_path() /
                 ("zarvo-traced-tasks-" + std::to_string(::GetCurrentProcessId()) + ".json")) {}
    ~TracedTasks() override {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }

    void SetUp() override {
        const ChildResult child = RunChild("traced_tasks_test_child", {}, {{"ZARVO_TRACE", m_path.string()}});
        ASSERT_EQ(child.exitCode, 0U) << child.standardError;
        std::ifstream file(m_path);
        for (std::string line; std::getline(file, line);) {
            m_lines.push_back(line);
        }
    }

    // The lines that have all of these.
    std::vector<std::string> With(std::initializer_list<std::string> parts) const {
        std::vector<std::string> found;
        for (const std::string& line : m_lines) {
            if (std::ranges::all_of(parts, [&](const std::string& part) { return line.find(part) != line.npos; })) {
                found.push_back(line);
            }
        }
        return found;
    }

    void ExpectRun(const std::string& name, const std::string& outcome) const {
        const std::string run = R"("cat":"task","name":")" + name + '"';
        EXPECT_EQ(With({R"("ph":"B")", run}).size(), 1U) << name;
        const auto ends = With({R"("ph":"E")", run});
        ASSERT_EQ(ends.size(), 1U) << name;
        EXPECT_NE(ends[0].find(R"("args":{"outcome":")" + outcome + R"("})"), std::string::npos) << ends[0];
    }

    const std::filesystem::path m_path;
    std::vector<std::string> m_lines;
};

TEST_F(TracedTasks, SayHowTheyEnded) {
    ExpectRun("Plain", "returned");
    ExpectRun("Failing", "failed");
    ExpectRun("Cancelled", "cancelled");
    ExpectRun("Idle", "none");
    ExpectRun("Strange", "unknown");
    ExpectRun("Left", "left by an exception");
}

TEST_F(TracedTasks, SayOnTheAskingThreadThatTheyAreAsked) {
    const auto asked = With({R"("ph":"i")", R"("cat":"task","name":"asked")", R"("run":"Cancelled")"});
    ASSERT_EQ(asked.size(), 1U);
    const auto thread = [](const std::string& line) {
        const std::size_t begin = line.find(R"("tid":)");
        return line.substr(begin, line.find(',', begin) - begin);
    };
    const auto begins = With({R"("ph":"B")", R"("name":"Cancelled")"});
    ASSERT_EQ(begins.size(), 1U);
    EXPECT_NE(thread(asked[0]), thread(begins[0]));
    EXPECT_EQ(With({R"("name":"asked")"}).size(), 1U);
}

TEST_F(TracedTasks, AreThoseThatHeldTheWorkersWhenThePoolGrew) {
    const auto held = With({R"("ph":"i")", R"("cat":"pool","name":"holds a worker")"});
    EXPECT_GE(held.size(), 5U);
    for (const std::string& line : held) {
        EXPECT_NE(line.find(R"("run":"Holding")"), std::string::npos) << line;
        EXPECT_NE(line.find(R"("ms":)"), std::string::npos) << line;
        EXPECT_EQ(line.find(R"("ms":-)"), std::string::npos) << line;
        EXPECT_EQ(line.find(R"("thread":0)"), std::string::npos) << line;
    }
}

TEST_F(TracedTasks, RunOnThreadsWithNames) {
    EXPECT_GE(With({R"("ph":"M")", R"("name":"thread_name")", R"("name":"Pool worker")"}).size(), 8U);
    EXPECT_EQ(With({R"("ph":"M")", R"("name":"Cancelled")"}).size(), 1U);
}

}  // namespace
