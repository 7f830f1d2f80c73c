// A job that ends while its token is being stopped.
#include <gtest/gtest.h>

#include <atomic>
#include <stop_token>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// Holds a thread where it takes a lock of the library, once.
class HeldLock {
  public:
    HeldLock() { s_current = this; }
    ~HeldLock() { s_current = nullptr; }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

    void HoldThisThread() { m_thread = ::GetCurrentThreadId(); }
    void AwaitCall() { m_isIn.Wait(); }
    void LetGo() { m_mayGo.Open(); }

  private:
    static void WINAPI Enter(LPCRITICAL_SECTION section) {
        HeldLock* const self = s_current;
        DWORD expected = ::GetCurrentThreadId();
        if (self != nullptr && self->m_thread.compare_exchange_strong(expected, 0)) {
            self->m_isIn.Open();
            self->m_mayGo.Wait();
        }
        EnterCriticalSection(section);
    }

    static inline std::atomic<HeldLock*> s_current = nullptr;

    std::atomic<DWORD> m_thread = 0;
    Gate m_isIn;
    Gate m_mayGo;
    const ImportPatch m_patch{LibraryUnderTest(), "EnterCriticalSection", &Enter};
};

class TokenThatIsStoppedAtTheEndOfItsJob : public JobTest {
  protected:
    std::stop_source m_source;
};

// Waiting for the callback would be an end in another module's hands: see token_link.h.
TEST_F(TokenThatIsStoppedAtTheEndOfItsJob, DoesNotHoldTheThreadOfTheJob) {
    HeldLock held;
    Gate begun;
    Gate mayEnd;
    HANDLE thread = nullptr;
    auto job = RunInNewThread(L"job", m_source.get_token(), [&] {
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, SYNCHRONIZE, FALSE, 0);
        begun.Open();
        mayEnd.Wait();
        return 7;
    });
    begun.Wait();
    Thread stops([&] {
        held.HoldThisThread();
        m_source.request_stop();
    });
    held.AwaitCall();
    mayEnd.Open();
    EXPECT_EQ(job.Get(), 7);
    EXPECT_EQ(WaitForSingleObject(thread, 60'000), WAIT_OBJECT_0);
    held.LetGo();
    stops.join();
    CloseHandle(thread);
}

TEST_F(TokenThatIsStoppedAtTheEndOfItsJob, LosesNothingWhoeverIsFirst) {
    int done = 0;
    int cancelled = 0;
    for (int i = 0; i < 1'000; ++i) {
        std::stop_source source;
        Countdown both(2);
        Thread stops([&] {
            both.Meet();
            source.request_stop();
        });
        auto job = Run(L"job", source.get_token(), [&both] { both.Meet(); });
        try {
            job.Get();
            ++done;
        } catch (const CancelledException&) {
            ++cancelled;
        }
    }
    EXPECT_EQ(done + cancelled, 1'000);
}

}  // namespace
