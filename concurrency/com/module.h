// The module as COM sees it: where it was loaded, how many locks hold it, and the classes it offers (none).
//
// Threads: Attach() and Detach() from the entry point; everything else from any thread.
#pragma once

#include <atomic>
#include <span>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

// One class of the module.
struct ObjectMapEntry {
    const CLSID* classId;
    HRESULT (*getClassObject)(REFIID interfaceId, void** object);
    HRESULT (*updateRegistry)(bool registering);
    void (*onAttach)(bool attaching);
};

class Module {
  public:
    static Module& Instance();

    explicit constexpr Module(std::span<const ObjectMapEntry> classes) : m_classes(classes) {}

    // Runs the classes' hooks. Under the loader's lock: a hook must not wait.
    void Attach(HINSTANCE handle);
    void Detach();

    HINSTANCE Handle() const { return m_handle; }

    void Lock() { ++m_lockCount; }
    void Unlock() { --m_lockCount; }
    HRESULT CanUnloadNow() const { return m_lockCount == 0 ? S_OK : S_FALSE; }

    HRESULT GetClassObject(REFCLSID classId, REFIID interfaceId, void** object) const;

    // Every class in turn; returns the first failure.
    HRESULT UpdateClassRegistrations(bool registering) const;

  private:
    const std::span<const ObjectMapEntry> m_classes;
    HINSTANCE m_handle = nullptr;
    std::atomic<long> m_lockCount = 0;
};

}  // namespace Orvane::Internal
