// Holds the thread that lets a module go, in the platform's call. For the first call while the object lives.
//
// Threads: as HeldHandler. Lifetime: the held thread must have left when the object goes.
#pragma once

#include <atomic>

#include "concurrency/base/windows_api.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class HeldUnpin {
  public:
    HeldUnpin() { s_current = this; }
    HeldUnpin(const HeldUnpin&) = delete;
    HeldUnpin& operator=(const HeldUnpin&) = delete;

    void AwaitCall() { m_isIn.Wait(); }
    void LetGo() { m_mayGo.Open(); }

  private:
    static BOOL WINAPI Hold(HMODULE module) {
        if (HeldUnpin* const self = s_current.exchange(nullptr)) {
            self->m_isIn.Open();
            self->m_mayGo.Wait();
        }
        return FreeLibrary(module);
    }

    static inline std::atomic<HeldUnpin*> s_current = nullptr;

    Gate m_isIn;
    Gate m_mayGo;
    const ImportPatch m_patch{LibraryUnderTest(), "FreeLibrary", &Hold};
};

}  // namespace Zarvo::Test
