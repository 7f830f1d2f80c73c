// Lines from many threads, and an output that the test holds.
#include "zarvo_orvane_logging/line_batches.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"

using Orvane::Reports::LineBatches;
using Orvane::Reports::ProcessLock;
using testing::ElementsAre;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;
using Zarvo::Test::Eventually;
using Zarvo::Test::Gate;
using Zarvo::Test::Thread;

namespace {

// The first write waits until it may end.
class HeldOutput final : public LineBatches::Output {
  public:
    void Write(std::string_view lines) noexcept override {
        EXPECT_FALSE(m_isInside.exchange(true));
        m_writes.emplace_back(lines);
        if (m_writes.size() == 1) {
            m_begun.Open();
            m_mayEnd.Wait();
        }
        m_isInside = false;
    }
    void AwaitFirst() { m_begun.Wait(); }
    void LetFirstEnd() { m_mayEnd.Open(); }

    // Not while threads write.
    const std::vector<std::string>& Writes() const { return m_writes; }

  private:
    std::atomic<bool> m_isInside = false;
    Gate m_begun;
    Gate m_mayEnd;
    std::vector<std::string> m_writes;
};

// While it writes a line, the next one gathers: there is always one, until it has written the long line.
class FloodedOutput final : public LineBatches::Output {
  public:
    FloodedOutput(ProcessLock& lock, LineBatches& batches) : m_lock(lock), m_batches(batches) {}

    void Write(std::string_view lines) noexcept override {
        m_begun.Open();
        m_longLineCame.Wait();
        ++m_writes;
        m_hasLongLine = m_hasLongLine || lines.size() > 1'000;
        if (m_hasLongLine || m_writes > kLimit) {
            return;
        }
        m_threads.emplace_back([this] {
            LineBatches::Lock lock(m_lock);
            m_batches.Write(lock, *this, "next\n");
        });
        EXPECT_TRUE(Eventually([&] {
            const std::lock_guard lock(m_lock);
            return m_batches.GatheredBytes() != 0;
        }));
    }
    void AwaitFirst() { m_begun.Wait(); }
    void LongLineComes() { m_longLineCame.Open(); }
    bool ReachedItsLimit() {
        m_threads.clear();
        return m_writes > kLimit;
    }

  private:
    static constexpr std::size_t kLimit = 1'000;

    ProcessLock& m_lock;
    LineBatches& m_batches;
    Gate m_begun;
    Gate m_longLineCame;
    std::size_t m_writes = 0;
    bool m_hasLongLine = false;
    std::vector<Thread> m_threads;
};

class LineBatchesTest : public testing::Test {
  protected:
    Thread Writer(std::string line) {
        return Thread([this, line = std::move(line)] {
            LineBatches::Lock lock(m_lock);
            m_batches.Write(lock, m_output, line);
            EXPECT_TRUE(lock.owns_lock());
        });
    }
    bool HasGathered(std::size_t bytes) {
        return Eventually([&] {
            const std::lock_guard lock(m_lock);
            return m_batches.GatheredBytes() == bytes;
        });
    }
    // Lets the first write end as soon as the caller, who holds the lock, gives it away.
    void LetFirstEndWithoutTheLock() {
        m_threads.emplace_back([this] {
            const std::lock_guard lock(m_lock);
            m_output.LetFirstEnd();
        });
    }
    void FinishAll() {
        m_output.LetFirstEnd();
        m_threads.clear();
    }

    ProcessLock m_lock;
    LineBatches m_batches;
    HeldOutput m_output;
    std::vector<Thread> m_threads;
};

TEST_F(LineBatchesTest, OneLineIsOneWrite) {
    m_output.LetFirstEnd();
    Writer("a\n").join();
    Writer("b\n").join();

    EXPECT_THAT(m_output.Writes(), ElementsAre("a\n", "b\n"));
}

TEST_F(LineBatchesTest, LinesThatGatherDuringAWriteAreOneWrite) {
    m_threads.push_back(Writer("first\n"));
    m_output.AwaitFirst();
    std::vector<std::string> later;
    for (char name = 'a'; name <= 'z'; ++name) {
        later.push_back(std::string(1, name));
        m_threads.push_back(Writer(later.back() + "\n"));
    }
    EXPECT_TRUE(HasGathered(2 * later.size()));
    FinishAll();

    ASSERT_THAT(m_output.Writes(), SizeIs(2));
    std::vector<std::string> written;
    for (std::size_t i = 0; i < m_output.Writes()[1].size(); i += 2) {
        written.push_back(m_output.Writes()[1].substr(i, 1));
        EXPECT_EQ(m_output.Writes()[1][i + 1], '\n');
    }
    EXPECT_THAT(written, UnorderedElementsAreArray(later));
}

TEST_F(LineBatchesTest, LineForWhichThereIsNoRoomGoesWithTheNextWrite) {
    const std::string large(10'000, 'x');
    m_threads.push_back(Writer("first\n"));
    m_output.AwaitFirst();
    m_threads.push_back(Writer(large));
    EXPECT_TRUE(HasGathered(large.size()));
    m_threads.push_back(Writer(large));
    FinishAll();

    EXPECT_THAT(m_output.Writes(), ElementsAre("first\n", large, large));
}

TEST_F(LineBatchesTest, LineLongerThanABatchIsWrittenAlone) {
    const std::string huge(100'000, 'x');
    m_threads.push_back(Writer("first\n"));
    m_output.AwaitFirst();
    m_threads.push_back(Writer("second\n"));
    EXPECT_TRUE(HasGathered(7));
    m_threads.push_back(Writer(huge));
    FinishAll();

    EXPECT_THAT(m_output.Writes(), UnorderedElementsAre("first\n", "second\n", huge));
}

TEST_F(LineBatchesTest, LinesGatherBehindALineThatIsWrittenAlone) {
    const std::string huge(100'000, 'x');
    m_threads.push_back(Writer(huge));
    m_output.AwaitFirst();
    m_threads.push_back(Writer("a\n"));
    m_threads.push_back(Writer("a\n"));
    EXPECT_TRUE(HasGathered(4));
    FinishAll();

    EXPECT_THAT(m_output.Writes(), ElementsAre(huge, "a\na\n"));
}

TEST_F(LineBatchesTest, LongLineWaitsForTheWriteUnderWay) {
    const std::string huge(100'000, 'x');
    m_threads.push_back(Writer("first\n"));
    m_output.AwaitFirst();
    {
        LineBatches::Lock lock(m_lock);
        LetFirstEndWithoutTheLock();
        m_batches.Write(lock, m_output, huge);
    }
    FinishAll();

    EXPECT_THAT(m_output.Writes(), ElementsAre("first\n", huge));
}

TEST_F(LineBatchesTest, LongLineDoesNotWaitForLinesThatComeLater) {
    FloodedOutput output(m_lock, m_batches);
    Thread first([&] {
        LineBatches::Lock lock(m_lock);
        m_batches.Write(lock, output, "first\n");
    });
    output.AwaitFirst();
    {
        LineBatches::Lock lock(m_lock);
        output.LongLineComes();
        m_batches.Write(lock, output, std::string(100'000, 'x'));
    }
    first.join();

    EXPECT_FALSE(output.ReachedItsLimit());
}

// Who changes the output drains it first: no line goes to the wrong one.
TEST_F(LineBatchesTest, DrainedHasNothingLeft) {
    m_threads.push_back(Writer("first\n"));
    m_output.AwaitFirst();
    m_threads.push_back(Writer("second\n"));
    EXPECT_TRUE(HasGathered(7));
    {
        LineBatches::Lock lock(m_lock);
        LetFirstEndWithoutTheLock();
        m_batches.Drain(lock, m_output);
        EXPECT_THAT(m_output.Writes(), ElementsAre("first\n", "second\n"));
        EXPECT_EQ(m_batches.GatheredBytes(), 0u);
    }
    FinishAll();
}

TEST_F(LineBatchesTest, EveryLineIsWrittenOnceHoweverManyThreadsWrite) {
    m_output.LetFirstEnd();
    constexpr int kThreads = 8;
    constexpr int kLines = 500;
    std::vector<std::string> expected;
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int line = 0; line < kLines; ++line) {
            expected.push_back(std::to_string(thread) + ":" + std::to_string(line));
        }
        m_threads.emplace_back([this, thread] {
            for (int line = 0; line < kLines; ++line) {
                LineBatches::Lock lock(m_lock);
                m_batches.Write(lock, m_output, std::to_string(thread) + ":" + std::to_string(line) + "\n");
            }
        });
    }
    FinishAll();

    std::string all;
    for (const std::string& write : m_output.Writes()) {
        all += write;
    }
    std::vector<std::string> written;
    for (std::size_t begin = 0, end = 0; (end = all.find('\n', begin)) != std::string::npos; begin = end + 1) {
        written.push_back(all.substr(begin, end - begin));
    }
    std::ranges::sort(written);
    std::ranges::sort(expected);
    EXPECT_EQ(written, expected);
}

}  // namespace
