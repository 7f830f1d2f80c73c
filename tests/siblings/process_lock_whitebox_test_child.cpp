// Ends while another thread holds the lock, and takes the lock once more on the way out.
#include <atomic>
#include <thread>

#include <windows.h>

#include "zarvo_orvane_logging/line_output.h"
#include "zarvo_orvane_logging/process_lock.h"

namespace {

constinit Orvane::Reports::ProcessLock g_lock;

void TakeTheLock() {
    g_lock.lock();
    Orvane::Reports::WriteToStandardError("went in\n");
    g_lock.unlock();
}

}  // namespace

int main() {
    HMODULE const dll = LoadLibraryW(L"process_lock_whitebox_test_dll.dll");
    using SetLastCall = void (*)(void (*)());
    const auto setLastCall = reinterpret_cast<SetLastCall>(reinterpret_cast<void*>(GetProcAddress(dll, "SetLastCall")));
    setLastCall(TakeTheLock);

    std::atomic<bool> held = false;
    std::thread([&held] {
        g_lock.lock();
        held = true;
        held.notify_one();
        Sleep(INFINITE);
    }).detach();
    held.wait(false);
    return 0;
}
