// Loads and unloads the library again and again, with and without initialising it, and checks that every thread-local
// slot comes back. Links nothing of the library: it must be able to go.
#include <cstdio>
#include <initializer_list>

#include "concurrency/base/windows_api.h"
#include "tests/support/imported_names.h"

namespace {

constexpr int kFailed = 1;

// Calls an exported function that takes and returns nothing.
bool Call(HMODULE library, const char* name) {
    auto* const function = reinterpret_cast<void (*)()>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    if (function == nullptr) {
        std::printf("%s is not exported\n", name);
        return false;
    }
    function();
    return true;
}

// The slot that is allocated next: the lowest free one.
DWORD NextSlot() {
    const DWORD slot = TlsAlloc();
    TlsFree(slot);
    return slot;
}

bool UseOnce(bool initialise) {
    const HMODULE library = LoadLibraryW(L"ZarvoConcurrency.dll");
    if (library == nullptr) {
        std::puts("the library does not load");
        return false;
    }
    const DWORD next = NextSlot();
    const bool called = Call(library, Zarvo::Test::kCancellationPointName) &&
                        (!initialise || (Call(library, Zarvo::Test::kInitializeName) &&
                                         Call(library, Zarvo::Test::kCancellationPointName) &&
                                         Call(library, Zarvo::Test::kUninitializeName)));
    if (NextSlot() == next) {
        std::puts("no slot was used: nothing is shown");
        return false;
    }
    FreeLibrary(library);
    if (GetModuleHandleW(L"ZarvoConcurrency.dll") != nullptr) {
        std::puts("the library is still loaded");
        return false;
    }
    return called;
}

}  // namespace

int main() {
    // The modules below the library stay: what they take when they are loaded is not the library's.
    for (const wchar_t* const below : {L"libstdc++-6.dll", L"ZarvoOrvaneLogging.dll", L"ZarvoOrvaneUtils.dll"}) {
        LoadLibraryW(below);
    }
    if (!UseOnce(false)) {
        return kFailed;
    }
    const DWORD next = NextSlot();
    for (int round = 0; round < 10; ++round) {
        if (!UseOnce(round % 2 == 0)) {
            return kFailed;
        }
    }
    if (NextSlot() != next) {
        std::printf("next slot: %lu before, %lu after\n", next, NextSlot());
        return kFailed;
    }
    return 0;
}
