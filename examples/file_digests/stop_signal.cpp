#include "examples/file_digests/stop_signal.h"

#include <windows.h>

namespace FileDigests {

namespace {

// On purpose never destroyed: the system's thread may be in it at the end of the process.
std::stop_source& Source() {
    static std::stop_source& source = *new std::stop_source;
    return source;
}

// The system calls it on a thread of its own.
BOOL WINAPI OnControl(DWORD control) {
    if (control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT) {
        return FALSE;
    }
    return Source().request_stop() ? TRUE : FALSE;
}

}  // namespace

StopSignal::StopSignal() {
    Source();  // made before the system's thread may come
    SetConsoleCtrlHandler(&OnControl, TRUE);
}

StopSignal::~StopSignal() {
    SetConsoleCtrlHandler(&OnControl, FALSE);
}

std::stop_token StopSignal::Token() const {
    return Source().get_token();
}

}  // namespace FileDigests
