// Loads the library while there is no memory for the registrations of its exception kinds. Links nothing of it: it must
// not be here yet.
#include <cstddef>
#include <cstdio>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"

int main() {
    const HMODULE factory = LoadLibraryW(L"ZarvoOrvaneUtils.dll");
    const Zarvo::Test::ImportPatch noMemory(
        factory, Zarvo::Test::kAllocateName, +[](std::size_t) { return Zarvo::Test::RefuseMemory(); });
    LoadLibraryW(L"ZarvoConcurrency.dll");
    std::puts("the process goes on");
    return 1;
}
