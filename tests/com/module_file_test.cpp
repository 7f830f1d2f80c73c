// What every DLL of the library must be like as a file: movable, without executable data, with few needs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"

namespace {

// A module as the loader has mapped it.
class Image {
  public:
    explicit Image(const std::string& name) : m_base(reinterpret_cast<const char*>(GetModuleHandleA(name.c_str()))) {}

    const IMAGE_NT_HEADERS64& Headers() const {
        return At<IMAGE_NT_HEADERS64>(static_cast<DWORD>(reinterpret_cast<const IMAGE_DOS_HEADER*>(m_base)->e_lfanew));
    }

    const IMAGE_DATA_DIRECTORY& Directory(unsigned index) const {
        return Headers().OptionalHeader.DataDirectory[index];
    }

    template <typename Structure>
    const Structure& At(DWORD offset) const {
        return *reinterpret_cast<const Structure*>(m_base + offset);
    }

    // The DLLs that the module needs, in lower case.
    std::set<std::string> Imports() const {
        std::set<std::string> names;
        const auto* entry = &At<IMAGE_IMPORT_DESCRIPTOR>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress);
        for (; entry->Name != 0; ++entry) {
            std::string name = &At<char>(entry->Name);
            std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
            names.insert(name);
        }
        return names;
    }

  private:
    const char* m_base;
};

class ModuleFile : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override { ASSERT_NE(GetModuleHandleA(GetParam()), nullptr); }

    const Image m_image{GetParam()};
};

TEST_P(ModuleFile, CanBeLoadedAnywhereInTheWholeAddressSpace) {
    const WORD flags = m_image.Headers().OptionalHeader.DllCharacteristics;
    EXPECT_TRUE(flags & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE);
    EXPECT_TRUE(flags & IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA);
    EXPECT_FALSE(m_image.Headers().FileHeader.Characteristics & IMAGE_FILE_RELOCS_STRIPPED);
    EXPECT_GT(m_image.Directory(IMAGE_DIRECTORY_ENTRY_BASERELOC).Size, 0U);
}

TEST_P(ModuleFile, DoesNotExecuteData) {
    EXPECT_TRUE(m_image.Headers().OptionalHeader.DllCharacteristics & IMAGE_DLLCHARACTERISTICS_NX_COMPAT);
    const IMAGE_NT_HEADERS64& headers = m_image.Headers();
    const auto* section = IMAGE_FIRST_SECTION(&headers);
    for (WORD index = 0; index < headers.FileHeader.NumberOfSections; ++index, ++section) {
        const bool isExecutable = (section->Characteristics & IMAGE_SCN_MEM_EXECUTE) != 0;
        const bool isWritable = (section->Characteristics & IMAGE_SCN_MEM_WRITE) != 0;
        EXPECT_FALSE(isExecutable && isWritable) << "section " << index;
    }
}

TEST_P(ModuleFile, NeedsNothingThatIsNotListedHere) {
    const std::set<std::string> allowed{        // the system
                                        "kernel32.dll", "advapi32.dll", "ole32.dll", "oleaut32.dll", "msvcrt.dll",
        // the compiler's runtime, shipped beside the library
                                        "libstdc++-6.dll", "libgcc_s_seh-1.dll",
        // the siblings
                                        "zarvoorvanelogging.dll", "zarvoorvaneutils.dll", "zarvologging.dll"};
    for (const std::string& name : m_image.Imports()) {
        EXPECT_TRUE(allowed.contains(name)) << name;
    }
}

TEST_P(ModuleFile, TellsNoTimeOfBuilding) {
    EXPECT_EQ(m_image.Headers().FileHeader.TimeDateStamp, 0U);
}

INSTANTIATE_TEST_SUITE_P(Modules, ModuleFile,
                         testing::Values("ZarvoConcurrency.dll", "ZarvoOrvaneLogging.dll", "ZarvoOrvaneUtils.dll",
                                         "ZarvoLogging.dll"));

}  // namespace
