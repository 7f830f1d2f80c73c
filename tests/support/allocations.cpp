#include "tests/support/allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"

// After windows.h, which it needs.
#include <psapi.h>

namespace Zarvo::Test {

namespace {

std::atomic<std::int64_t> g_blocks = 0;
std::atomic<std::int64_t> g_bytes = 0;

// The C runtime's own functions. On purpose not called by their names: this program's imports are replaced as well.
decltype(&std::malloc) g_malloc = nullptr;
decltype(&std::calloc) g_calloc = nullptr;
decltype(&std::realloc) g_realloc = nullptr;
decltype(&std::free) g_free = nullptr;
decltype(&_aligned_malloc) g_alignedMalloc = nullptr;
decltype(&_aligned_free) g_alignedFree = nullptr;

std::int64_t SizeOf(void* block) {
    return block != nullptr ? static_cast<std::int64_t>(_msize(block)) : 0;
}

void* Came(void* block) {
    g_blocks += block != nullptr ? 1 : 0;
    g_bytes += SizeOf(block);
    return block;
}

// The thread that gets none; 0 is no thread's id. Not thread_local: that would allocate.
std::atomic<DWORD> g_threadWithoutMemory = 0;

bool Withheld() {
    return g_threadWithoutMemory == ::GetCurrentThreadId();
}

// What FailingNew looks for: 0 is no thread's id.
std::atomic<DWORD> g_failingThread = 0;
std::atomic<bool> g_othersFail = false;
std::atomic<int> g_leftToSucceed = 0;

bool IsTheFailingOne() {
    const DWORD thread = g_failingThread;
    return thread != 0 && (thread != ::GetCurrentThreadId()) == g_othersFail && g_leftToSucceed-- == 0;
}

// The compiler's runtime ends the process when there is no memory for a thread-local variable.
void* CountedMallocOfTheCompiler(std::size_t size) {
    return Withheld() ? nullptr : Came(g_malloc(size));
}

void* CountedMalloc(std::size_t size) {
    return IsTheFailingOne() ? nullptr : CountedMallocOfTheCompiler(size);
}

void* CountedCalloc(std::size_t count, std::size_t size) {
    return Withheld() ? nullptr : Came(g_calloc(count, size));
}

void* CountedRealloc(void* block, std::size_t size) {
    if (Withheld() && size != 0) {
        return nullptr;
    }
    const std::int64_t sizeBefore = SizeOf(block);
    void* const moved = g_realloc(block, size);
    const bool keptForLackOfMemory = moved == nullptr && size != 0;
    if (!keptForLackOfMemory) {
        g_blocks -= block != nullptr ? 1 : 0;
        g_bytes -= sizeBefore;
        Came(moved);
    }
    return moved;
}

void CountedFree(void* block) {
    g_blocks -= block != nullptr ? 1 : 0;
    g_bytes -= SizeOf(block);
    g_free(block);
}

void* CountedAlignedMalloc(std::size_t size, std::size_t alignment) {
    void* const block = Withheld() || IsTheFailingOne() ? nullptr : g_alignedMalloc(size, alignment);
    g_blocks += block != nullptr ? 1 : 0;
    return block;
}

void CountedAlignedFree(void* block) {
    g_blocks -= block != nullptr ? 1 : 0;
    g_alignedFree(block);
}

std::wstring FolderOf(HMODULE module) {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    path.resize(path.find_last_of(L"\\/") + 1);
    return path;
}

// The program and what lies beside it; the system's own modules are none of our business.
std::vector<HMODULE> OwnModules() {
    std::vector<HMODULE> modules(1024);
    DWORD size = 0;
    if (K32EnumProcessModules(GetCurrentProcess(), modules.data(), static_cast<DWORD>(modules.size() * sizeof(HMODULE)),
                              &size) == FALSE) {
        throw std::runtime_error("ResourceProbe: cannot list the modules");
    }
    modules.resize(size / sizeof(HMODULE));
    const std::wstring folder = FolderOf(nullptr);
    std::erase_if(modules, [&](HMODULE module) { return FolderOf(module) != folder; });
    return modules;
}

template <typename Function>
void Count(const std::vector<HMODULE>& modules, const char* name, Function*& original, Function* counted) {
    for (const HMODULE module : modules) {
        if (void* const imported = ImportedFunction(module, name)) {
            original = reinterpret_cast<Function*>(imported);
            new ImportPatch(module, name, counted);  // for good: other threads may be inside at any time
        }
    }
}

bool StartCounting() {
    const std::vector<HMODULE> modules = OwnModules();
    std::vector<HMODULE> callersOfNew = modules;
    const HMODULE compiler = GetModuleHandleW(L"libgcc_s_seh-1.dll");
    if (std::erase(callersOfNew, compiler) != 0) {
        Count({compiler}, "malloc", g_malloc, &CountedMallocOfTheCompiler);
    }
    Count(callersOfNew, "malloc", g_malloc, &CountedMalloc);
    Count(modules, "calloc", g_calloc, &CountedCalloc);
    Count(modules, "realloc", g_realloc, &CountedRealloc);
    Count(modules, "free", g_free, &CountedFree);
    Count(modules, "_aligned_malloc", g_alignedMalloc, &CountedAlignedMalloc);
    Count(modules, "_aligned_free", g_alignedFree, &CountedAlignedFree);
    return true;
}

void ThrowAndCatch() {
    try {
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
    }
}

// Modules that are loaded later are not counted; what they make through the C++ runtime is.
void CountFromNowOn() {
    [[maybe_unused]] static const bool started = StartCounting();
}

}  // namespace

std::int64_t LiveBlocks() {
    CountFromNowOn();
    return g_blocks;
}

std::int64_t LiveBytes() {
    CountFromNowOn();
    return g_bytes;
}

NoMemory::NoMemory() {
    CountFromNowOn();
    ThrowAndCatch();  // a thread's first exception needs memory of its own
    {
        // The first exception without memory comes out of the runtime's reserve, whose mutex may need memory when it is first used.
        const FailingNew noneForIt(1, AskedBy::ThisThread);
        ThrowAndCatch();
    }
    g_threadWithoutMemory = ::GetCurrentThreadId();
}

NoMemory::~NoMemory() {
    g_threadWithoutMemory = 0;
}

FailingNew::FailingNew(int number, AskedBy askedBy) {
    CountFromNowOn();
    g_leftToSucceed = number - 1;
    g_othersFail = askedBy == AskedBy::OtherThreads;
    g_failingThread = ::GetCurrentThreadId();
}

FailingNew::~FailingNew() {
    g_failingThread = 0;
}

bool FailingNew::HasFailed() const {
    return g_leftToSucceed < 0;
}

}  // namespace Zarvo::Test
