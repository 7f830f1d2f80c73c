#include "tests/host/windows/output.h"

#include <unistd.h>

#include "tests/host/windows/errors.h"

namespace {

// No kernel object has this handle.
const HANDLE kStandardError = reinterpret_cast<HANDLE>(std::intptr_t{-12});

}  // namespace

HANDLE GetStdHandle(DWORD which) {
    return which == STD_ERROR_HANDLE ? kStandardError : INVALID_HANDLE_VALUE;
}

BOOL WriteFile(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPVOID) {
    const ssize_t count = file == kStandardError ? write(STDERR_FILENO, bytes, size) : -1;
    if (count < 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *written = static_cast<DWORD>(count);
    return TRUE;
}

void OutputDebugStringA(LPCSTR) {}
