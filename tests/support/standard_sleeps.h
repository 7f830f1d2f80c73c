// What the library's sleeps on conditions of the standard library ask for, decided by a test. In GCC's win32 thread model
// they are the platform's, as those of the library's own conditions are; in the posix one they are winpthreads'.
//
// Lifetime: one object at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

#if defined(_WIN32) && defined(_GLIBCXX_GCC_GTHR_POSIX_H)
#define ZARVO_POSIX_THREADS
#include <cerrno>
#endif

namespace Zarvo::Test {

class StandardSleeps {
  public:
    // Is told the time-out, INFINITE for none, and says whether to sleep. Otherwise the time-out is over at once.
    using Decide = bool (*)(DWORD milliseconds);

    explicit StandardSleeps(Decide decide) { s_decide = decide; }
    StandardSleeps(const StandardSleeps&) = delete;
    StandardSleeps& operator=(const StandardSleeps&) = delete;

  private:
    static BOOL WINAPI Sleep(PCONDITION_VARIABLE condition, PCRITICAL_SECTION section, DWORD milliseconds) {
        if (s_decide.load()(milliseconds)) {
            return ::SleepConditionVariableCS(condition, section, milliseconds);
        }
        SetLastError(ERROR_TIMEOUT);
        return FALSE;
    }

    static inline std::atomic<Decide> s_decide = nullptr;
    const ImportPatch m_platforms{LibraryUnderTest(), "SleepConditionVariableCS", &Sleep};

#ifdef ZARVO_POSIX_THREADS
    static int SleepUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* moment) {
        using namespace std::chrono;
        const auto since = seconds(moment->tv_sec) + nanoseconds(moment->tv_nsec);
        const auto left = ceil<milliseconds>(since - system_clock::now().time_since_epoch());
        return s_decide.load()(static_cast<DWORD>(left.count())) ? ::pthread_cond_timedwait(condition, mutex, moment)
                                                                 : ETIMEDOUT;
    }
    const ImportPatch m_threadLibrarys{LibraryUnderTest(), "pthread_cond_timedwait", &SleepUntil};
#endif
};

}  // namespace Zarvo::Test
