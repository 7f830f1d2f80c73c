// What every DLL of the library must be like as a file: movable, without executable data, with few needs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>  // which thread model
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"

namespace {

std::string InLowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

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

    // The names that the module imports, by the DLL that they come from (in lower case). An import without a name
    // is an empty one.
    std::map<std::string, std::set<std::string>> Imports() const {
        std::map<std::string, std::set<std::string>> imports;
        const auto* entry = &At<IMAGE_IMPORT_DESCRIPTOR>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress);
        for (; entry->Name != 0; ++entry) {
            std::set<std::string>& names = imports[InLowerCase(&At<char>(entry->Name))];
            const auto* import = &At<IMAGE_THUNK_DATA64>(entry->OriginalFirstThunk);
            for (; import->u1.AddressOfData != 0; ++import) {
                names.insert(NameOf(*import));
            }
        }
        return imports;
    }

  private:
    std::string NameOf(const IMAGE_THUNK_DATA64& import) const {
        return IMAGE_SNAP_BY_ORDINAL64(import.u1.Ordinal)
                   ? ""
                   : &At<char>(static_cast<DWORD>(import.u1.AddressOfData + offsetof(IMAGE_IMPORT_BY_NAME, Name)));
    }

    const char* m_base;
};

class ModuleFile : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override { ASSERT_NE(GetModuleHandleA(GetParam()), nullptr); }

    const Image m_image{GetParam()};
};

// The C runtime, which the UCRT is a family of, and what the standard library's threads are made of.
#ifdef _UCRT
constexpr auto kCRuntime = "api-ms-win-crt-";
#else
constexpr auto kCRuntime = "msvcrt.dll";
#endif
#ifdef GCC_GTHR_WIN32_H
constexpr auto kThreadLibrary = "kernel32.dll";
#else
constexpr auto kThreadLibrary = "libwinpthread-1.dll";
#endif
constexpr std::size_t kFamilyLength = 15;

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
    const std::set<std::string> allowed{// the system
                                        "kernel32.dll", "advapi32.dll", "ole32.dll", "oleaut32.dll", kCRuntime,
        // the compiler's runtime, shipped beside the library
                                        "libstdc++-6.dll", "libgcc_s_seh-1.dll", kThreadLibrary,
        // the siblings
                                        "zarvoorvanelogging.dll", "zarvoorvaneutils.dll", "zarvologging.dll"};
    for (const auto& [dll, names] : m_image.Imports()) {
        EXPECT_TRUE(allowed.contains(dll) || allowed.contains(dll.substr(0, kFamilyLength))) << dll;
    }
}

TEST_P(ModuleFile, TellsNoTimeOfBuilding) {
    EXPECT_EQ(m_image.Headers().FileHeader.TimeDateStamp, 0U);
}

// The names in one line of the reviewed list, any of which may stand in the import table.
struct ReviewedImport {
    std::string dll;
    std::string what;
    std::set<std::string> names;
};

std::vector<ReviewedImport> ReviewedImports() {
    std::vector<ReviewedImport> imports;
    std::ifstream list(ZARVO_REVIEWED_IMPORTS);
    for (std::string line; std::getline(list, line);) {
        std::istringstream words(line);
        ReviewedImport import;
        if (line.starts_with('#') || !(words >> import.dll >> import.what)) {
            continue;
        }
        import.dll = InLowerCase(import.dll);
        import.names = {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
        imports.push_back(import);
    }
    return imports;
}

// The framework's own DLLs may stand in the place of the siblings.
TEST(SiblingImports, AreThoseOfTheReviewedListAndNoOthers) {
    const auto reviewed = ReviewedImports();
    ASSERT_FALSE(reviewed.empty()) << ZARVO_REVIEWED_IMPORTS;
    auto imports = Image("ZarvoConcurrency.dll").Imports();
    for (const ReviewedImport& import : reviewed) {
        const auto found = std::erase_if(imports[import.dll],
                                         [&import](const std::string& name) { return import.names.contains(name); });
        EXPECT_EQ(found, 1U) << import.what << " is in the list and not imported";
    }
    for (const char* dll : {"zarvologging.dll", "zarvoorvanelogging.dll", "zarvoorvaneutils.dll"}) {
        for (const std::string& name : imports[dll]) {
            ADD_FAILURE() << "imported from " << dll << " and not in the list: " << name;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Modules, ModuleFile,
                         testing::Values("ZarvoConcurrency.dll", "ZarvoOrvaneLogging.dll", "ZarvoOrvaneUtils.dll",
                                         "ZarvoLogging.dll"));

}  // namespace
