#include <memory>
#include <mutex>

#include "tests/host/windows/kernel.h"
#include "tests/host/windows/objects.h"

namespace {

class Event : public Host::KernelObject {
  public:
    Event(bool manualReset, bool signalled) : m_manualReset(manualReset), m_signalled(signalled) {}

    bool IsSignalledFor(const Host::ThreadRecord&) const override { return m_signalled; }

    DWORD Take(Host::ThreadRecord&) override {
        m_signalled = m_manualReset;
        return 0;
    }

    void Set() {
        m_signalled = true;
        WakeWaiters();
    }

    void Reset() { m_signalled = false; }

  private:
    const bool m_manualReset;
    bool m_signalled;
};

}  // namespace

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL signalled, LPCWSTR name) {
    const std::lock_guard lock(Host::KernelLock());
    return Host::OpenOrMake<Event>(name,
                                   [=] { return std::make_shared<Event>(manualReset != FALSE, signalled != FALSE); });
}

BOOL SetEvent(HANDLE handle) {
    const std::lock_guard lock(Host::KernelLock());
    const auto event = Host::ObjectOf<Event>(handle);
    if (!event) {
        return FALSE;
    }
    event->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    const std::lock_guard lock(Host::KernelLock());
    const auto event = Host::ObjectOf<Event>(handle);
    if (!event) {
        return FALSE;
    }
    event->Reset();
    return TRUE;
}
