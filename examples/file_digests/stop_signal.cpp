#include "examples/file_digests/stop_signal.h"

#include <windows.h>

#include <atomic>

namespace FileDigests {

namespace {

std::atomic<bool> g_interrupted = false;

// The system calls it on a thread of its own.
BOOL WINAPI OnControl(DWORD control) {
    if (control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT) {
        return FALSE;
    }
    return g_interrupted.exchange(true) ? FALSE : TRUE;
}

}  // namespace

StopSignal::StopSignal() { SetConsoleCtrlHandler(&OnControl, TRUE); }

StopSignal::~StopSignal() { SetConsoleCtrlHandler(&OnControl, FALSE); }

void StopSignal::SetTimer(std::chrono::milliseconds delay) {
    m_deadline = GetTickCount64() + static_cast<std::uint64_t>(delay.count());
}

bool StopSignal::IsSet() const { return g_interrupted || (m_deadline && GetTickCount64() >= *m_deadline); }

}  // namespace FileDigests
