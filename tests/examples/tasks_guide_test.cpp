// What docs/tasks.md shows and says, as a reader would try it.
#include <gtest/gtest.h>
#include <guiddef.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "concurrency/cancellation/cloneable_exception.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"
#include "zarvo_orvane_utils/exception_factory.h"

namespace {

using namespace Zarvo::Test;

constexpr GUID kPrinting = {0x5d6f0a11, 0x7c52, 0x4b0e, {0x9a, 0x31, 0x10, 0x22, 0x5e, 0x77, 0x4c, 0x02}};
constexpr long kQuotaExceeded = -2'147'220'991;  // 0x80040201

class QuotaExceeded : public Orvane::ExceptionCOM {
  public:
    explicit QuotaExceeded(const Orvane::ErrorStorage& error) : ExceptionCOM(error) {}
    explicit QuotaExceeded(int pages) : ExceptionCOM(kQuotaExceeded, kPrinting, L"%d pages are too many", pages) {}
};

class PaperJam : public std::runtime_error, public virtual Orvane::CloneableException {
  public:
    explicit PaperJam(int where) : std::runtime_error("paper jam"), tray(where) {}
    std::shared_ptr<CloneableException> Clone() const override { return std::make_shared<PaperJam>(*this); }
    void Rethrow() const override { throw PaperJam(*this); }

    const int tray;
};

class TasksGuide : public testing::Test {
  protected:
    static std::shared_ptr<Orvane::Internal::FutureImpl<void>> Run(std::function<void()> work) {
        std::shared_ptr<Orvane::Internal::FutureImpl<void>> outcome;
        Orvane::Internal::GlobalThreadPool::Queue(Orvane::MakeTask(L"Guide", std::move(work), outcome));
        return outcome;
    }

    Gate m_first;
    Gate m_second;
    std::atomic<int> m_calls = 0;
    const Orvane::ConcurrencyLifetime m_lifetime;  // ends before what the tasks use
};

TEST_F(TasksGuide, AnErrorArrivesAsTheClassThatIsRegisteredForItsCode) {
    try {
        Run([] { throw QuotaExceeded(7); })->GetValue();
        FAIL();
    } catch (const QuotaExceeded&) {
        FAIL() << "nobody has registered it";
    } catch (const Orvane::ExceptionBase& error) {
        EXPECT_STREQ(error.message, L"7 pages are too many");
    }

    Orvane::ExceptionFactory::Register(kPrinting, kQuotaExceeded,
                                       [](const Orvane::ErrorStorage& error) { throw QuotaExceeded(error); });

    EXPECT_THROW(Run([] { throw QuotaExceeded(7); })->GetValue(), QuotaExceeded);
}

TEST_F(TasksGuide, ACloneableExceptionArrivesWithItsMembers) {
    try {
        Run([] { throw PaperJam(2); })->GetValue();
        FAIL();
    } catch (const PaperJam& jam) {
        EXPECT_EQ(jam.tray, 2);
    }
}

TEST_F(TasksGuide, ATaskThatIsQueuedTwiceIsCalledTwiceAtTheSameTime) {
    auto task = Orvane::MakeTask(L"Twice", [this] {
        if (++m_calls == 1) {
            m_first.Open();
            m_second.Wait();
        } else {
            m_second.Open();
        }
    });

    Orvane::Internal::GlobalThreadPool::Queue(task);
    m_first.Wait();
    Orvane::Internal::GlobalThreadPool::Queue(task);
    m_second.Wait();

    EXPECT_EQ(m_calls, 2);
    task.Wait();
}

TEST_F(TasksGuide, AnEmptyFunctionIsAcceptedAndFailsWhenItIsCalled) {
    auto task = Orvane::MakeTask(L"Empty", std::function<void()>());

    EXPECT_THROW(task(), std::bad_function_call);
}

}  // namespace
