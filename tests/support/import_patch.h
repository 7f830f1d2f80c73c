// Replaces a function that a loaded module imports, for a scope: fault injection at the border to the platform.
//
//     const ImportPatch noEvents(LibraryUnderTest(), "CreateEventW", +[](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) {
//         return HANDLE(nullptr);
//     });
//
// Threads: the module's other threads may call the function meanwhile; each call sees one of the two.
// Errors: std::runtime_error if the module does not import a function of that name: a fault that is never injected
//     would prove nothing.
// Lifetime: the replacement may still be running on another thread when the patch ends. Patches of one function must
//     end in reverse order.
#pragma once

#include <vector>

struct HINSTANCE__;

namespace Zarvo::Test {

// The module that holds the library's code: the DLL, or this program when it is linked to the library's objects.
HINSTANCE__* LibraryUnderTest();

// What the module calls under that name at the moment; null if it imports no such function.
void* ImportedFunction(HINSTANCE__* module, const char* function);

class ImportPatch {
  public:
    template <typename Function>
    ImportPatch(HINSTANCE__* module, const char* function, Function* replacement)
        : ImportPatch(module, function, reinterpret_cast<void*>(replacement)) {}
    ImportPatch(HINSTANCE__* module, const char* function, void* replacement);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    // What was imported before, to be called by the replacement. (The replacement is a plain function: pass this to it
    // through a global.)
    template <typename Function>
    Function* Original() const {
        return reinterpret_cast<Function*>(m_original);
    }

  private:
    std::vector<void**> m_entries;
    void* m_original = nullptr;
};

}  // namespace Zarvo::Test
