// For this process, the roots of the registry that registration writes to are empty keys of the test's own.
#pragma once

#include <map>
#include <string>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

// What is below a key: the path of each key and, after '@', the name of each of its values -> the value. A key by itself
// has no value. In lower case: names differ by more than case.
using RegistryDump = std::map<std::wstring, std::wstring>;

class ScratchRegistry {
  public:
    ScratchRegistry();
    ~ScratchRegistry();
    ScratchRegistry(const ScratchRegistry&) = delete;
    ScratchRegistry& operator=(const ScratchRegistry&) = delete;

    // Everything below the three roots, whose names begin the paths: "hkcr", "hkcu" and "hklm".
    RegistryDump Dump() const;

    HKEY ClassesRoot() const { return m_classes; }

  private:
    std::wstring m_name;
    HKEY m_classes = nullptr;
    HKEY m_user = nullptr;
    HKEY m_machine = nullptr;
};

// A name as it is in a dump.
std::wstring InLowerCase(std::wstring name);

// Adds what is below `key` to `dump`, the paths beginning with `path`.
void DumpKey(HKEY key, const std::wstring& path, RegistryDump& dump);

}  // namespace Zarvo::Test
