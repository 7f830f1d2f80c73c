#include <memory>
#include <mutex>
#include <utility>

#include "tests/host/windows/kernel.h"
#include "tests/host/windows/objects.h"

namespace {

class Mutex : public Host::KernelObject, public Host::Abandonable, public std::enable_shared_from_this<Mutex> {
  public:
    bool IsSignalledFor(const Host::ThreadRecord& thread) const override {
        return m_owner == nullptr || m_owner == &thread;
    }

    DWORD Take(Host::ThreadRecord& thread) override {
        if (m_levels++ == 0) {
            m_owner = &thread;
            thread.owned.push_back(shared_from_this());
        }
        return std::exchange(m_abandoned, false) ? WAIT_ABANDONED_0 : 0;
    }

    bool Release(Host::ThreadRecord& thread) {
        if (m_owner != &thread) {
            return false;
        }
        if (--m_levels == 0) {
            std::erase_if(thread.owned, [this](const auto& owned) { return owned.lock().get() == this; });
            SetFree();
        }
        return true;
    }

    void Abandon() override {
        m_abandoned = true;
        SetFree();
    }

  private:
    void SetFree() {
        m_owner = nullptr;
        m_levels = 0;
        WakeWaiters();
    }

    const Host::ThreadRecord* m_owner = nullptr;
    unsigned m_levels = 0;
    bool m_abandoned = false;
};

}  // namespace

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL owned, LPCWSTR name) {
    const std::lock_guard lock(Host::KernelLock());
    return Host::OpenOrMake<Mutex>(name, [=] {
        auto mutex = std::make_shared<Mutex>();
        if (owned != FALSE) {
            mutex->Take(Host::ThisThread());
        }
        return mutex;
    });
}

HANDLE OpenMutexW(DWORD, BOOL, LPCWSTR name) {
    const std::lock_guard lock(Host::KernelLock());
    const auto known = Host::FindNamed(name);
    if (!known) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    if (!std::dynamic_pointer_cast<Mutex>(known)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return Host::OpenHandle(known);
}

BOOL ReleaseMutex(HANDLE handle) {
    const std::lock_guard lock(Host::KernelLock());
    const auto mutex = Host::ObjectOf<Mutex>(handle);
    if (!mutex) {
        return FALSE;
    }
    if (!mutex->Release(Host::ThisThread())) {
        SetLastError(ERROR_NOT_OWNER);
        return FALSE;
    }
    return TRUE;
}
