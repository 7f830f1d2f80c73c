// Kernel objects for the handle waits.
#pragma once

#include <cstddef>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

class OwnedHandle {
  public:
    explicit OwnedHandle(HANDLE handle) : m_handle(handle) {}
    ~OwnedHandle() { CloseHandle(m_handle); }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    HANDLE Get() const { return m_handle; }

  private:
    HANDLE m_handle;
};

// An auto-reset event.
class Event : public OwnedHandle {
  public:
    explicit Event(bool signalled = false) : OwnedHandle(CreateEventW(nullptr, FALSE, signalled, nullptr)) {}

    void Signal() const { SetEvent(Get()); }

    // Whether it is signalled; takes the signal.
    bool Take() const { return WaitForSingleObject(Get(), 0) == WAIT_OBJECT_0; }
};

class Events {
  public:
    explicit Events(std::size_t count) {
        for (std::size_t index = 0; index < count; ++index) {
            m_handles.push_back(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        }
    }
    ~Events() {
        for (const HANDLE handle : m_handles) {
            CloseHandle(handle);
        }
    }
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    const HANDLE* Data() const { return m_handles.data(); }
    DWORD Count() const { return static_cast<DWORD>(m_handles.size()); }
    HANDLE operator[](std::size_t index) const { return m_handles[index]; }
    void Signal(std::size_t index) const { SetEvent(m_handles[index]); }
    bool Take(std::size_t index) const { return WaitForSingleObject(m_handles[index], 0) == WAIT_OBJECT_0; }

  private:
    std::vector<HANDLE> m_handles;
};

// A mutex whose owner has ended without releasing it.
class AbandonedMutex : public OwnedHandle {
  public:
    AbandonedMutex() : OwnedHandle(CreateMutexW(nullptr, FALSE, nullptr)) {
        Thread([this] { WaitForSingleObject(Get(), INFINITE); }).join();
    }
};

}  // namespace Zarvo::Test
