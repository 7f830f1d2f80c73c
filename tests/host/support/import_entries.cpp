// Import patching for this system's modules: a function that a module calls in another one is reached through an entry
// of the module's global offset table.
#include "tests/support/import_entries.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <atomic>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

namespace {

using Entries = std::vector<void**>;

class Imports {
  public:
    explicit Imports(HINSTANCE__* module) : m_map(*reinterpret_cast<const link_map*>(module)) {
        for (const ElfW(Dyn)* tag = m_map.l_ld; tag->d_tag != DT_NULL; ++tag) {
            m_tags[tag->d_tag] = tag->d_un.d_ptr;
        }
    }

    Entries Named(const char* function) const {
        Entries entries;
        Collect(DT_JMPREL, DT_PLTRELSZ, function, entries);
        Collect(DT_RELA, DT_RELASZ, function, entries);
        return entries;
    }

  private:
    template <typename T>
    const T* Table(ElfW(Sxword) tag) const {
        const auto entry = m_tags.find(tag);
        return entry != m_tags.end() ? reinterpret_cast<const T*>(entry->second) : nullptr;
    }

    void Collect(ElfW(Sxword) table, ElfW(Sxword) size, const char* function, Entries& entries) const {
        const auto* const first = Table<ElfW(Rela)>(table);
        if (first == nullptr) {
            return;
        }
        const auto* const symbols = Table<ElfW(Sym)>(DT_SYMTAB);
        const char* const names = Table<char>(DT_STRTAB);
        const auto* const end = first + m_tags.at(size) / sizeof(ElfW(Rela));
        for (const auto* relocation = first; relocation != end; ++relocation) {
            const auto type = ELF64_R_TYPE(relocation->r_info);
            const auto& symbol = symbols[ELF64_R_SYM(relocation->r_info)];
            if ((type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT) &&
                std::strcmp(names + symbol.st_name, function) == 0) {
                entries.push_back(reinterpret_cast<void**>(m_map.l_addr + relocation->r_offset));
            }
        }
    }

    const link_map& m_map;
    std::map<ElfW(Sxword), ElfW(Addr)> m_tags;
};

// The names under which this system's compiler asks for memory.
const char* NameHere(const char* function) {
    static const std::map<std::string, const char*> names{
        {"_Znwy", "_Znwm"}, {"_Znay", "_Znam"}, {"_ZdlPvy", "_ZdlPvm"}};
    const auto entry = names.find(function);
    return entry != names.end() ? entry->second : function;
}

}  // namespace

Entries ImportEntries(HINSTANCE__* module, const char* function) {
    return Imports(module).Named(NameHere(function));
}

void StoreImport(void** entry, void* function) {
    DWORD before = 0;
    if (VirtualProtect(entry, sizeof(*entry), PAGE_READWRITE, &before) == FALSE) {
        throw std::runtime_error("ImportPatch: the import table cannot be written");
    }
    std::atomic_ref(*entry).store(function);
}

// Not what stands in the table: that may still wait for the first call, to be looked up.
void* ImportedFunction(HINSTANCE__* module, const char* function) {
    return ImportEntries(module, function).empty() ? nullptr : dlsym(RTLD_DEFAULT, NameHere(function));
}

}  // namespace Zarvo::Test
