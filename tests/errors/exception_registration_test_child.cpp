// Loads the library while there is no memory for the registrations of its exception kinds. Links nothing of it: it must
// not be here yet.
#include <cstddef>
#include <cstdio>
#include <exception>
#include <new>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace {

void* RefuseMemory(std::size_t) {
    throw std::bad_alloc();
}

}  // namespace

int main() {
    const HMODULE factory = LoadLibraryW(L"ZarvoOrvaneUtils.dll");
    const Zarvo::Test::ImportPatch noMemory(factory, "_Znwy", &RefuseMemory);
    LoadLibraryW(L"ZarvoConcurrency.dll");
    std::puts("the process goes on");
    return 1;
}
