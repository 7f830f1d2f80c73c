#include "tests/support/trace_events.h"

#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Zarvo::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

std::string Line(double time, const std::string& phase, const std::string& name, const std::string& more = "") {
    return "{\"ts\":" + std::to_string(time) + ",\"ph\":\"" + phase +
           "\",\"pid\":1,\"tid\":2,\"cat\":\"c\",\"name\":\"" + name + "\"" + more + "},\n";
}

TEST(TraceEvents, AreReadWithTheirArgumentsUpToTheBlanks) {
    const auto events =
        ParseTrace("[\n" + Line(1.5, "B", "a", R"(,"args":{"x":3,"y":"z"})") + Line(2, "E", "a") + "    ");
    ASSERT_THAT(events, SizeIs(2));
    EXPECT_EQ(events[0].time, 1.5);
    EXPECT_EQ(events[0].arguments.at("x"), "3");
    EXPECT_EQ(events[0].arguments.at("y"), "z");
    EXPECT_THAT(ProblemsIn(events), IsEmpty());
}

TEST(TraceEvents, OfAFileThatIsNoneAreRefused) {
    EXPECT_THROW(ParseTrace(""), std::runtime_error);
    EXPECT_THROW(ParseTrace(Line(1, "B", "a")), std::runtime_error);
    EXPECT_THROW(ParseTrace("[\n{\"ts\":1},\n"), std::runtime_error);
    EXPECT_THROW(ParseTrace("[\n" + Line(1, "B", "a").substr(0, 20)), std::runtime_error);
    EXPECT_THROW(ParseTrace("[\n" + Line(1, "B", "a") + "   \n" + Line(1, "E", "a")), std::runtime_error);
}

TEST(TraceEvents, ProblemsAreNamed) {
    const std::string id = R"(,"id":"0x1")";
    EXPECT_THAT(ProblemsIn(ParseTrace("[\n" + Line(2, "i", "a") + Line(1, "i", "b"))),
                ElementsAre(StartsWith("is earlier")));
    EXPECT_THAT(ProblemsIn(ParseTrace("[\n" + Line(1, "B", "a"))), ElementsAre(StartsWith("has not ended")));
    EXPECT_THAT(
        ProblemsIn(ParseTrace("[\n" + Line(1, "B", "a") + Line(1, "B", "b") + Line(1, "E", "a") + Line(1, "E", "b"))),
        ElementsAre(StartsWith("is not the innermost"), StartsWith("has not ended")));
    EXPECT_THAT(ProblemsIn(ParseTrace("[\n" + Line(1, "b", "a", id))), ElementsAre(StartsWith("has not ended")));
    EXPECT_THAT(ProblemsIn(ParseTrace("[\n" + Line(1, "e", "a", id))), ElementsAre(StartsWith("has not begun")));
    EXPECT_THAT(ProblemsIn(ParseTrace("[\n" + Line(1, "b", "a", id) + Line(1, "b", "a", id) + Line(1, "e", "a", id))),
                ElementsAre(StartsWith("begins twice")));
    EXPECT_THAT(ProblemsIn(ParseTrace("[\n" + Line(1, "b", "a") + Line(1, "e", "a"))),
                ElementsAre(StartsWith("lacks"), StartsWith("lacks")));
}

}  // namespace
