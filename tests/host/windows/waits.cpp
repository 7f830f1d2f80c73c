#include <chrono>
#include <mutex>
#include <optional>
#include <vector>

#include "tests/host/windows/kernel.h"
#include "tests/host/windows/objects.h"

namespace {

using Clock = std::chrono::steady_clock;

// The objects that a thread waits for, while it does.
class Wait {
  public:
    explicit Wait(std::vector<Host::ObjectPointer> objects) : m_objects(std::move(objects)) {
        for (const auto& object : m_objects) {
            object->Add(m_waiter);
        }
    }
    ~Wait() {
        for (const auto& object : m_objects) {
            object->Remove(m_waiter);
        }
    }
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

    // The result of a wait that ends now.
    std::optional<DWORD> Result() {
        Host::ThreadRecord& self = Host::ThisThread();
        for (DWORD index = 0; index < m_objects.size(); ++index) {
            if (m_objects[index]->IsSignalledFor(self)) {
                return m_objects[index]->Take(self) + index;
            }
        }
        return std::nullopt;
    }

    DWORD For(std::unique_lock<std::mutex>& lock, DWORD milliseconds) {
        const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
        for (;;) {
            if (const auto result = Result()) {
                return *result;
            }
            if (milliseconds == INFINITE) {
                m_waiter.wake.wait(lock);
            } else if (Clock::now() >= deadline) {
                return WAIT_TIMEOUT;
            } else {
                m_waiter.wake.wait_until(lock, deadline);
            }
        }
    }

  private:
    const std::vector<Host::ObjectPointer> m_objects;
    Host::Waiter m_waiter;
};

DWORD Fail(DWORD error) {
    SetLastError(error);
    return WAIT_FAILED;
}

}  // namespace

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return WaitForMultipleObjects(1, &handle, FALSE, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (all != FALSE) {
        return Fail(ERROR_CALL_NOT_IMPLEMENTED);
    }
    std::vector<Host::ObjectPointer> objects;  // let go of after the lock
    std::unique_lock lock(Host::KernelLock());
    for (DWORD index = 0; index < count; ++index) {
        objects.push_back(Host::ObjectOf(handles[index]));
        if (!objects.back()) {
            return WAIT_FAILED;
        }
    }
    return Wait(objects).For(lock, milliseconds);
}
