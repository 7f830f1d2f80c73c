// What the log asks of memory, and does without it.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/siblings/failing_memory.h"
#include "tests/siblings/scratch_folder.h"
#include "tests/siblings/standard_error_into.h"
#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/report_recording.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;
using Zarvo::Test::AllocationsOfThisThread;
using Zarvo::Test::NoMemory;
using Zarvo::Test::ReadLines;
using Zarvo::Test::ScratchFolder;
using Zarvo::Test::StandardErrorInto;

namespace {

using Sink = OrvaneLogging::Sink;

// Reading it ends the process.
const wchar_t* const kUnreadable = reinterpret_cast<const wchar_t*>(1);

class OrvaneLoggingMemory : public testing::Test {
  protected:
    OrvaneLoggingMemory() { g_OrvaneLogging.SetSink(Sink::None); }
    ~OrvaneLoggingMemory() override {
        g_OrvaneLogging.SetSink(Sink::None);
        g_OrvaneLogging.SetMinimumLevel(0);
    }

    void LogToFile() const { g_OrvaneLogging.SetFileSink(File().c_str()); }
    [[nodiscard]] std::filesystem::path File() const { return m_folder.File(L"log.txt"); }

    ScratchFolder m_folder;
};

}  // namespace

TEST_F(OrvaneLoggingMemory, ProbeCountsWhatIsAllocated) {
    const std::size_t before = AllocationsOfThisThread();
    const std::vector<int> something(100);
    EXPECT_EQ(AllocationsOfThisThread(), before + 1);
}

TEST_F(OrvaneLoggingMemory, WithoutASinkNothingIsReadOrAllocated) {
    const std::size_t before = AllocationsOfThisThread();
    g_OrvaneLogging.Report(8, 16, kUnreadable, kUnreadable, kUnreadable);
    EXPECT_EQ(AllocationsOfThisThread(), before);
}

TEST_F(OrvaneLoggingMemory, BelowTheMinimumNothingIsReadOrAllocated) {
    LogToFile();
    g_OrvaneLogging.SetMinimumLevel(4);
    const std::size_t before = AllocationsOfThisThread();
    g_OrvaneLogging.Report(1, 16, kUnreadable, kUnreadable, kUnreadable);
    EXPECT_EQ(AllocationsOfThisThread(), before);
}

TEST_F(OrvaneLoggingMemory, OrdinaryRecordNeedsNone) {
    LogToFile();
    const std::size_t before = AllocationsOfThisThread();
    g_OrvaneLogging.Report(1, 16, L"test", L"Task [%s] started in thread [0x%x (%d)]", L"a name", 26u, 26);
    EXPECT_EQ(AllocationsOfThisThread(), before);
    EXPECT_THAT(ReadLines(File()), ElementsAre(EndsWith("Task [a name] started in thread [0x1a (26)]")));
}

TEST_F(OrvaneLoggingMemory, LongRecordWithoutMemoryIsCutButWritten) {
    LogToFile();
    const std::wstring text(5000, L'x');
    {
        const NoMemory noMemory;
        g_OrvaneLogging.Report(8, 16, L"test", L"<%s>", text.c_str());
        g_OrvaneLogging.Report(8, 16, L"test", L"short");
    }
    EXPECT_THAT(ReadLines(File()), ElementsAre(EndsWith("xxxxx [cut: out of memory]"), EndsWith("[test] short")));
}

TEST_F(OrvaneLoggingMemory, RecordThatCannotBeKeptGoesToStandardError) {
    g_OrvaneLogging.SetSink(Sink::Recording);
    {
        const StandardErrorInto file(File());
        const NoMemory noMemory;
        g_OrvaneLogging.Report(8, 16, L"test", L"homeless %s", L"record");
    }
    EXPECT_THAT(Orvane::Reports::Recorded(), SizeIs(0));
    EXPECT_THAT(ReadLines(File()), ElementsAre(EndsWith("[test] homeless record")));
}
