// What registering and unregistering leave in the registry.
#include "tests/com/registration.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include <filesystem>

#include "tests/com/scratch_registry.h"

namespace {

using namespace Zarvo::Test;

constexpr wchar_t kLibraryKey[] = L"TypeLib\\{55EC072B-2104-4EBD-A91F-41FA01B7F6E6}";

class Registration : public testing::Test {
  protected:
    // Without the keys above those of the library: the system keeps them.
    RegistryDump Left() const {
        RegistryDump dump = m_registry.Dump();
        for (auto entry = dump.begin(); entry != dump.end();) {
            const bool isOfTheLibrary = entry->first.find(L"55ec072b") != std::wstring::npos ||
                                        entry->first.find(L"03d3bee8") != std::wstring::npos ||
                                        entry->first.find(L"zarvo") != std::wstring::npos;
            entry = isOfTheLibrary ? std::next(entry) : dump.erase(entry);
        }
        return dump;
    }

    const std::wstring m_path = PathOf(LibraryUnderTest());
    const ScratchRegistry m_registry;
};

TEST_F(Registration, StartsFromAnEmptyRegistry) {
    EXPECT_EQ(m_registry.Dump(), RegistryDump());
}

TEST_F(Registration, WritesExactlyTheseKeys) {
    EXPECT_EQ(Register(), S_OK);
    EXPECT_EQ(m_registry.Dump(), RegisteredAt(m_path));
}

TEST_F(Registration, TwiceIsTheSameAsOnce) {
    EXPECT_EQ(Register(), S_OK);
    EXPECT_EQ(Register(), S_OK);
    EXPECT_EQ(m_registry.Dump(), RegisteredAt(m_path));
}

TEST_F(Registration, IsTakenBackWithoutARest) {
    ASSERT_EQ(Register(), S_OK);
    EXPECT_EQ(Unregister(), S_OK);
    EXPECT_EQ(Left(), RegistryDump());
}

TEST_F(Registration, ThatDoesNotExistCannotBeTakenBack) {
    EXPECT_EQ(Unregister(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));  // says the event source, the first step
    EXPECT_EQ(Left(), RegistryDump());
}

TEST_F(Registration, TakenBackTwiceFailsAndLeavesNothing) {
    ASSERT_EQ(Register(), S_OK);
    ASSERT_EQ(Unregister(), S_OK);
    EXPECT_EQ(Unregister(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Left(), RegistryDump());
}

TEST_F(Registration, OfAnotherVersionStays) {
    ASSERT_EQ(Register(), S_OK);
    HKEY other = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, (kLibraryKey + std::wstring(L"\\2.0")).c_str(), &other), ERROR_SUCCESS);
    RegCloseKey(other);
    EXPECT_EQ(Unregister(), S_OK);

    EXPECT_EQ(Left(), (RegistryDump{{InLowerCase(L"HKCR\\" + std::wstring(kLibraryKey)), L""},
                                    {InLowerCase(L"HKCR\\" + std::wstring(kLibraryKey) + L"\\2.0"), L""}}));
}

// A copy of the module, loaded from a folder of its own.
class MovedModule {
  public:
    explicit MovedModule(const std::wstring& folderName)
        : m_folder(std::filesystem::temp_directory_path() / (folderName + std::to_wstring(GetCurrentProcessId()))) {
        std::filesystem::create_directories(m_folder);
        m_path = m_folder / L"ZarvoConcurrency.dll";
        std::filesystem::copy_file(PathOf(LibraryUnderTest()), m_path);
        m_module = LoadLibraryW(m_path.c_str());
    }
    ~MovedModule() {
        FreeLibrary(m_module);
        std::filesystem::remove_all(m_folder);
    }
    MovedModule(const MovedModule&) = delete;
    MovedModule& operator=(const MovedModule&) = delete;

    HMODULE Get() const { return m_module; }
    std::wstring Path() const { return m_path.wstring(); }

  private:
    std::filesystem::path m_folder;
    std::filesystem::path m_path;
    HMODULE m_module = nullptr;
};

TEST_F(Registration, AfterAMoveKnowsTheNewPlaceOnly) {
    const HMODULE original = LibraryUnderTest();
    ASSERT_EQ(Register(original), S_OK);
    const MovedModule moved(L"zarvo moved ");
    ASSERT_NE(moved.Get(), nullptr);
    ASSERT_NE(moved.Get(), original);

    EXPECT_EQ(Register(moved.Get()), S_OK);
    EXPECT_EQ(m_registry.Dump(), RegisteredAt(PathOf(moved.Get())));
}

// The type library in another language, registered by somebody else.
TEST_F(Registration, TakenBackLeavesWhatIsNotItsOwn) {
    ASSERT_EQ(Register(), S_OK);
    const std::wstring version = std::wstring(kLibraryKey) + L"\\1.0";
    HKEY other = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, (version + L"\\7\\win64").c_str(), &other), ERROR_SUCCESS);
    RegCloseKey(other);
    EXPECT_EQ(Unregister(), S_OK);

    RegistryDump expected;
    Add(expected, L"HKCR\\" + version, L"", L"FutureLib 1.0 Type Library");
    expected[InLowerCase(L"HKCR\\" + version + L"\\7")];
    expected[InLowerCase(L"HKCR\\" + version + L"\\7\\win64")];
    expected.erase(L"hkcr\\typelib");
    EXPECT_EQ(Left(), expected);
}

}  // namespace
