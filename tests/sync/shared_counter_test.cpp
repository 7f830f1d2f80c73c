// The example as a person runs it.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace {

using namespace Zarvo::Test;

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
        lines.push_back(line);
    }
    return lines;
}

TEST(SharedCounter, RecoversFromASecondProcessThatDiesWithTheLock) {
    const ChildResult result = RunChild("shared_counter", {"200"});
    EXPECT_EQ(Lines(result.standardOutput), (std::vector<std::string>{
                                                "killing the second process, which holds the lock",
                                                "caught: interprocess_mutex: Failed to lock mutex",
                                                "unlocked: the owner of the lock has died",
                                                "repaired: took back an addition that was not completed",
                                                "locked again",
                                                "total: 401, expected 401",
                                            }));
    EXPECT_EQ(result.standardError, "");
    EXPECT_EQ(result.exitCode, 0U);

    ASSERT_EQ(result.log.size(), 1U);
    EXPECT_NE(result.LastRecord().find("interprocess_mutex::DoLock"), std::string::npos) << result.LastRecord();
    EXPECT_NE(result.LastRecord().find("Failed to lock mutex "), std::string::npos) << result.LastRecord();
}

TEST(SharedCounter, SaysHowItIsUsed) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"0"}, {"many"}, {"1", "2"}}) {
        const ChildResult result = RunChild("shared_counter", arguments);
        EXPECT_EQ(result.exitCode, 64U);
        EXPECT_EQ(Lines(result.standardError), std::vector<std::string>{"usage: shared_counter [ADDITIONS]"});
    }
}

}  // namespace
