// Holds the thread that reports that a scheduled run of a job is skipped. For the first such report while the object lives.
//
// Threads: as HeldHandler. Lifetime: the held thread must have left when the object goes.
#pragma once

#include <atomic>
#include <cwchar>

#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace Zarvo::Test {

class HeldSkip {
  public:
    HeldSkip() { s_current = this; }
    HeldSkip(const HeldSkip&) = delete;
    HeldSkip& operator=(const HeldSkip&) = delete;

    void AwaitCall() { m_isIn.Wait(); }
    void LetGo() { m_mayGo.Open(); }

  private:
    static void Hold(OrvaneLogging*, int, int, const wchar_t*, const wchar_t* format, ...) {
        if (std::wcsstr(format, L"skips a run") == nullptr) {
            return;
        }
        if (HeldSkip* const self = s_current.exchange(nullptr)) {
            self->m_isIn.Open();
            self->m_mayGo.Wait();
        }
    }

    static inline std::atomic<HeldSkip*> s_current = nullptr;

    Gate m_isIn;
    Gate m_mayGo;
    const ImportPatch m_patch{LibraryUnderTest(), kReportName, &Hold};
};

}  // namespace Zarvo::Test
