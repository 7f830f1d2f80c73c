// What the log asks of memory, and does without it.
#include <cstddef>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "tests/siblings/scratch_folder.h"
#include "tests/siblings/standard_error_into.h"
#include "tests/support/allocations.h"
#include "tests/support/import_patch.h"
#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/report_recording.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;
using Zarvo::Test::ImportPatch;
using Zarvo::Test::NoMemory;
using Zarvo::Test::ReadLines;
using Zarvo::Test::ScratchFolder;
using Zarvo::Test::StandardErrorInto;

namespace {

using Sink = OrvaneLogging::Sink;

int g_allocations = 0;
void* (*g_malloc)(std::size_t) = nullptr;

void* CountedMalloc(std::size_t size) {
    ++g_allocations;
    return g_malloc(size);
}

// Counts what the C++ runtime allocates for all modules while it lives.
class AllocationCount {
  public:
    AllocationCount() {
        g_allocations = 0;
        g_malloc = m_patch.Original<void*(std::size_t)>();
    }

    int operator()() const { return g_allocations; }

  private:
    ImportPatch m_patch{GetModuleHandleW(L"libstdc++-6.dll"), "malloc", &CountedMalloc};
};

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
    const AllocationCount allocations;
    const std::vector<int> something(100);
    EXPECT_EQ(allocations(), 1);
}

TEST_F(OrvaneLoggingMemory, WithoutASinkNothingIsReadOrAllocated) {
    const AllocationCount allocations;
    g_OrvaneLogging.Report(8, 16, kUnreadable, kUnreadable, kUnreadable);
    EXPECT_EQ(allocations(), 0);
}

TEST_F(OrvaneLoggingMemory, BelowTheMinimumNothingIsReadOrAllocated) {
    LogToFile();
    g_OrvaneLogging.SetMinimumLevel(4);
    const AllocationCount allocations;
    g_OrvaneLogging.Report(1, 16, kUnreadable, kUnreadable, kUnreadable);
    EXPECT_EQ(allocations(), 0);
}

TEST_F(OrvaneLoggingMemory, OrdinaryRecordNeedsNone) {
    LogToFile();
    const AllocationCount allocations;
    g_OrvaneLogging.Report(1, 16, L"test", L"Task [%s] started in thread [0x%x (%d)]", L"a name", 26u, 26);
    EXPECT_EQ(allocations(), 0);
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
