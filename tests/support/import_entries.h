// What ImportPatch needs of the platform's module format.
#pragma once

#include <vector>

struct HINSTANCE__;

namespace Zarvo::Test {

// Where the module keeps the address of the function that it imports under that name; nothing if it does not.
std::vector<void**> ImportEntries(HINSTANCE__* module, const char* function);

// The entry may be in a read-only page.
//
// Errors: std::runtime_error if the page stays so.
void StoreImport(void** entry, void* function);

}  // namespace Zarvo::Test
