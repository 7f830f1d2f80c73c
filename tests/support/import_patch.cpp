#include "tests/support/import_patch.h"

#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_entries.h"

namespace Zarvo::Test {

HINSTANCE__* LibraryUnderTest() {
#ifdef ORVANE_CONCURRENCY_STATIC
    return GetModuleHandleW(nullptr);
#else
    return GetModuleHandleW(L"ZarvoConcurrency.dll");
#endif
}

ImportPatch::ImportPatch(HINSTANCE__* module, const char* function, void* replacement)
    : m_entries(ImportEntries(module, function)) {
    if (m_entries.empty()) {
        throw std::runtime_error(std::string("ImportPatch: the module does not import ") + function);
    }
    m_original = ImportedFunction(module, function);
    for (void** entry : m_entries) {
        StoreImport(entry, replacement);
    }
}

ImportPatch::~ImportPatch() {
    for (void** entry : m_entries) {
        StoreImport(entry, m_original);
    }
}

}  // namespace Zarvo::Test
