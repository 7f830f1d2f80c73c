#include "examples/file_digests/file_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "examples/file_digests/file_error.h"
#include "tests/examples/file_digests/temporary_tree.h"
#include "tests/support/task_thread.h"

namespace {

using namespace FileDigests;
using namespace Zarvo::Test;

// Two ends of a pipe: a file of which nobody knows when the next bytes come.
class Pipe {
  public:
    Pipe() {
        const std::wstring name = L"\\\\.\\pipe\\file_reader_test_" + std::to_wstring(GetCurrentProcessId());
        m_writer = Handle(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr));
        m_reader =
            Handle(CreateFileW(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    }

    bool IsOpen() const { return m_writer.IsOpen() && m_reader.IsOpen(); }
    Handle TakeReader() { return std::move(m_reader); }
    void Write(std::string_view text) {
        DWORD count = 0;
        WriteFile(m_writer.Get(), text.data(), static_cast<DWORD>(text.size()), &count, nullptr);
    }
    void Close() { m_writer = Handle(); }

  private:
    Handle m_writer;
    Handle m_reader;
};

std::string TextOf(std::span<const std::byte> block) {
    return {reinterpret_cast<const char*>(block.data()), block.size()};
}

TEST(FileReader, ReadsEveryBlockAlsoOfAFileThatHasGrownSinceItWasListed) {
    std::string content;
    while (content.size() < 3'000'000) {
        content += std::to_string(content.size()) + ' ';
    }
    const TemporaryTree tree;
    tree.Write(L"file", content);

    for (const std::uint64_t expectedSize : {std::uint64_t{0}, std::uint64_t{100'000}, std::uint64_t{1} << 40}) {
        FileReader reader(Handle(CreateFileW(tree.Path(L"file").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                             OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr)),
                          expectedSize);
        std::string text;
        for (auto block = reader.Next(); !block.empty(); block = reader.Next()) {
            text += TextOf(block);
        }
        EXPECT_TRUE(text == content) << expectedSize << " bytes were expected";
    }
}

TEST(FileReader, WaitsForBytesThatAreNotThereYet) {
    Pipe pipe;
    ASSERT_TRUE(pipe.IsOpen());
    FileReader reader(pipe.TakeReader(), 0);
    std::string text;
    TaskThread reading([&] { text = TextOf(reader.Next()); });

    pipe.Write("late");

    EXPECT_TRUE(reading.EndedNormally());
    EXPECT_EQ(text, "late");
}

TEST(FileReader, ReadThatIsNeverAnsweredLeavesWhenItsTaskIsCancelled) {
    Pipe pipe;
    ASSERT_TRUE(pipe.IsOpen());
    FileReader reader(pipe.TakeReader(), 0);
    TaskThread reading([&] { reader.Next(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(reading.IsRunning());

    reading.Cancel();

    EXPECT_TRUE(reading.EndedCancelled());
}

TEST(FileReader, EndsWithAnErrorWhenTheOtherSideIsGone) {
    Pipe pipe;
    ASSERT_TRUE(pipe.IsOpen());
    FileReader reader(pipe.TakeReader(), 0);
    pipe.Close();

    EXPECT_THROW(reader.Next(), FileError);
}

}  // namespace
