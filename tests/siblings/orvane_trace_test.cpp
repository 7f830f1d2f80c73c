// The trace file, as whole processes leave it.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "tests/siblings/scratch_folder.h"
#include "tests/support/child_process.h"
#include "tests/support/trace_events.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Not;
using testing::Property;
using testing::SizeIs;
using testing::StartsWith;
using Zarvo::Test::ChildResult;
using Zarvo::Test::Find;
using Zarvo::Test::ProblemsIn;
using Zarvo::Test::ReadTrace;
using Zarvo::Test::ReadTraceOfKilled;
using Zarvo::Test::ReadWhole;
using Zarvo::Test::RunChild;
using Zarvo::Test::ScratchFolder;
using Zarvo::Test::TraceEvent;
using Zarvo::Test::TraceEvents;

class OrvaneTraceFile : public testing::Test {
  protected:
    ChildResult Run(const std::string& mode, const std::map<std::string, std::string>& more = {}) {
        std::map<std::string, std::string> environment = more;
        environment.emplace("ZARVO_TRACE", Path().string());
        return RunChild("orvane_trace_test_child", {mode}, environment);
    }

    // What a child that ends well leaves there.
    TraceEvents Trace(const std::string& mode, const std::map<std::string, std::string>& more = {}) {
        const ChildResult result = Run(mode, more);
        EXPECT_EQ(result.exitCode, 0u);
        EXPECT_EQ(result.standardError, "");
        return ReadTrace(Path());
    }

    [[nodiscard]] std::filesystem::path Path() const { return m_folder.File(L"a trace.json"); }
    [[nodiscard]] std::filesystem::path OlderPath() const { return m_folder.File(L"a trace.json.1"); }

    ScratchFolder m_folder;
};

// The events of the child's own, without those that begin the file.
TraceEvents Own(const TraceEvents& events) {
    TraceEvents own;
    std::copy_if(events.begin(), events.end(), std::back_inserter(own),
                 [](const TraceEvent& event) { return event.category == "test"; });
    return own;
}

std::vector<std::string> NamesIn(const TraceEvents& events) {
    std::vector<std::string> names;
    for (const TraceEvent& event : events) {
        names.push_back(event.name);
    }
    return names;
}

}  // namespace

TEST_F(OrvaneTraceFile, IsNotThereUnlessTheEnvironmentNamesIt) {
    EXPECT_EQ(Run("is-on", {{"ZARVO_TRACE", ""}}).standardOutput, "10");
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(OrvaneTraceFile, IsWrittenToWhenTheEnvironmentNamesIt) {
    EXPECT_EQ(Run("is-on").standardOutput, "11");
    EXPECT_THAT(NamesIn(Own(ReadTrace(Path()))), ElementsAre("first"));
}

TEST_F(OrvaneTraceFile, HasEachPhaseWithAllThatReadersAskFor) {
    const TraceEvents events = Trace("phases");
    EXPECT_THAT(ProblemsIn(events), IsEmpty());
    const TraceEvents names = Find(events, "M", "thread_name");
    ASSERT_THAT(names, SizeIs(1));
    EXPECT_EQ(names[0].arguments.at("name"), "The first thread");
    EXPECT_THAT(NamesIn(Own(events)),
                ElementsAre("outer", "inner", "overlaps", "inner", "moment", "outer", "overlaps"));
    const TraceEvents moments = Find(events, "i", "moment");
    ASSERT_THAT(moments, SizeIs(1));
    EXPECT_THAT(moments[0].arguments, ElementsAre(std::pair<const std::string, std::string>("number", "-7"),
                                                  std::pair<const std::string, std::string>("text", "wide"),
                                                  std::pair<const std::string, std::string>("utf8", "n\xC3\xA4rrow")));
    EXPECT_THAT(Find(events, "b", "overlaps"), ElementsAre(Field(&TraceEvent::id, "0xfedcba9876543210")));
}

TEST_F(OrvaneTraceFile, BeginsWithTheNameOfTheProgramAndTheTimeOfDay) {
    const TraceEvents events = Trace("phases");
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[0].name, "process_name");
    EXPECT_EQ(events[0].arguments.at("name"), "orvane_trace_test_child.exe");
    EXPECT_EQ(events[1].name, "trace begins");
    EXPECT_GT(std::stoll(events[1].arguments.at("unix_us")), 1'700'000'000'000'000);
}

TEST_F(OrvaneTraceFile, EscapesWhatJsonHasRulesForAndIsInUtf8) {
    const TraceEvents own = Own(Trace("names"));
    EXPECT_THAT(NamesIn(own), ElementsAre("quote \" backslash \\ slash /", "tab \t line feed \n bell \a delete \x7F",
                                          "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80",
                                          "half \xEF\xBF\xBD and half \xEF\xBF\xBD of a character", "", "wrong"));
    EXPECT_EQ(own.back().arguments.at("utf8"),
              "\xEF\xBF\xBD \xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD \xE2\x82\xAC");
}

TEST_F(OrvaneTraceFile, CutsLongTextsAtACharacterAndLeavesOutWhatFindsNoRoom) {
    const TraceEvents own = Own(Trace("long"));
    ASSERT_THAT(own, SizeIs(1));
    EXPECT_THAT(own[0].name, AllOf(StartsWith("\xE2\x82\xAC"), EndsWith("\xE2\x82\xAC..."), SizeIs(Le(1000u))));
    EXPECT_THAT(own[0].name, SizeIs(testing::Gt(980u)));
}

TEST_F(OrvaneTraceFile, OfFourThreadsIsSortedAndNestsOnEach) {
    const TraceEvents events = Trace("threads");
    EXPECT_THAT(Own(events), SizeIs(16'000));
    EXPECT_THAT(ProblemsIn(events), IsEmpty());
}

TEST_F(OrvaneTraceFile, OfAKilledProcessLosesNoEventThatWasWritten) {
    EXPECT_EQ(Run("killed").exitCode, 7u);
    const TraceEvents events = ReadTraceOfKilled(Path());
    EXPECT_THAT(Find(events, "i", "counted"), SizeIs(1000));
    EXPECT_THAT(ProblemsIn(events), IsEmpty());
    EXPECT_EQ(ReadWhole(Path()).find('\0'), std::string::npos) << "what has no text is no white space";
}

TEST_F(OrvaneTraceFile, OfAProcessThatTerminatesHasItsLastEvent) {
    EXPECT_EQ(Run("terminate").exitCode, Zarvo::Test::kTerminated);
    EXPECT_THAT(NamesIn(Own(ReadTrace(Path()))), ElementsAre("last"));
}

TEST_F(OrvaneTraceFile, HasTheEventsOfStaticDestructorsAndEndsWithThem) {
    EXPECT_THAT(NamesIn(Own(Trace("exit"))), ElementsAre("main", "static destructor"));
    EXPECT_THAT(ReadWhole(Path()), EndsWith("},\n"));
}

TEST_F(OrvaneTraceFile, OfAProcessThatEndsAmongEventsIsWhole) {
    EXPECT_EQ(Run("end-among-events").exitCode, 0u);
    EXPECT_THAT(Find(ReadTraceOfKilled(Path()), "i", "counted"), SizeIs(1000));
}

TEST_F(OrvaneTraceFile, AtItsLimitBecomesTheOlderOneAndTheNextNamesTheThreadsAgain) {
    const TraceEvents events = Trace("many", {{"ZARVO_TRACE_LIMIT", "1"}});
    const TraceEvents older = ReadTrace(OlderPath());
    EXPECT_LE(std::filesystem::file_size(Path()), 1u << 20U);
    EXPECT_LE(std::filesystem::file_size(OlderPath()), 1u << 20U);
    EXPECT_GE(std::filesystem::file_size(OlderPath()), (1u << 20U) - 4096);
    EXPECT_EQ(events[0].name, "process_name");
    EXPECT_THAT(Find(events, "M", "thread_name"), SizeIs(1));
    EXPECT_THAT(Find(older, "M", "thread_name"), SizeIs(1));
    EXPECT_EQ(events.back().name, "last");
    EXPECT_LE(older.back().time, events.front().time);
    EXPECT_EQ(Find(older, "B", "span").empty(), false);
}

TEST_F(OrvaneTraceFile, WithoutALimitOfItsOwnHasSixtyFourMegabytes) {
    EXPECT_THAT(Find(Trace("many"), "B", "span"), SizeIs(5000));
    EXPECT_FALSE(std::filesystem::exists(OlderPath()));
}

TEST_F(OrvaneTraceFile, LimitThatIsNoNumberIsExplained) {
    const ChildResult result = Run("phases", {{"ZARVO_TRACE_LIMIT", "much"}});
    EXPECT_THAT(result.standardError, HasSubstr("ZARVO_TRACE_LIMIT: \"much\""));
    EXPECT_THAT(Own(ReadTrace(Path())), SizeIs(7));
}

TEST_F(OrvaneTraceFile, ThatAnotherProcessWritesToIsLeftToIt) {
    HANDLE const other = CreateFileW(Path().c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Run("phases").exitCode, 0u);
    CloseHandle(other);
    EXPECT_EQ(std::filesystem::file_size(Path()), 0u);
    int traces = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Path().parent_path())) {
        if (entry.path() != Path()) {
            EXPECT_THAT(entry.path().filename().string(), StartsWith("a trace.json."));
            EXPECT_THAT(Own(ReadTrace(entry.path())), SizeIs(7));
            ++traces;
        }
    }
    EXPECT_EQ(traces, 1);
}

TEST_F(OrvaneTraceFile, ThatCannotBeOpenedIsExplainedOnceAndNothingIsTraced) {
    const ChildResult result = Run("threads", {{"ZARVO_TRACE", (Path() / "no" / "folder").string()}});
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_THAT(result.standardError, AllOf(StartsWith("ZARVO_TRACE: cannot write"), HasSubstr("(error 3)")));
    EXPECT_EQ(std::count(result.standardError.begin(), result.standardError.end(), '\n'), 1);
}

TEST_F(OrvaneTraceFile, LeavesTheLastErrorAsItWas) {
    EXPECT_EQ(Run("last-error").exitCode, 0u);
    EXPECT_EQ(Run("last-error", {{"ZARVO_TRACE", ""}}).exitCode, 0u);
}
