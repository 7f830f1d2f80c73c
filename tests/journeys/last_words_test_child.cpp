// Last words, and what may be in their way: one scene, named on the command line.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/journeys/scenes.h"
#include "tests/support/allocations.h"
#include "tests/support/import_patch.h"

// How a program learns of a lock that no other thread gives back.
#ifdef _WIN32
#define LOCK_STREAM(stream) _lock_file(stream)
#else
#define LOCK_STREAM(stream) flockfile(stream)
#endif

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

void WithoutMemory() {
    const ConcurrencyLifetime lifetime;
    PlayOnWorker(L"Import", [] {
        const std::runtime_error error("no such file");  // its text takes memory
        static std::optional<NoMemory> none;
        none.emplace();
        throw error;
    });
}

void WithBadAlloc() {
    const ConcurrencyLifetime lifetime;
    PlayOnWorker(L"Import", [] {
        static std::optional<NoMemory> none;
        none.emplace();
        int* volatile number = new int;
        delete number;
    });
}

void WhileAnotherThreadHoldsTheStream() {
    std::set_terminate([] { std::_Exit(3); });
    const ConcurrencyLifetime lifetime;
    LOCK_STREAM(stderr);
    PlayWorker();
}

void WithoutStandardError() {
    std::set_terminate([] {
        std::fputs("terminate handler", stdout);
        std::fflush(stdout);
        std::_Exit(3);
    });
    std::fclose(stderr);
    PlayWorker();
}

void WithNoneToBeHad(HANDLE none) {
    static HANDLE s_none;
    s_none = none;
    const ImportPatch patch(LibraryUnderTest(), "GetStdHandle", +[](DWORD) -> HANDLE { return s_none; });
    const ImportPatch write(
        LibraryUnderTest(), "WriteFile", +[](HANDLE, LPCVOID, DWORD, LPDWORD, LPVOID) -> BOOL { std::_Exit(1); });
    PlayWorker();
}

void ForTheDebugger() {
    const ImportPatch patch(
        LibraryUnderTest(), "OutputDebugStringA", +[](LPCSTR text) {
            std::fwrite(text, 1, std::strlen(text) - 1, stdout);  // a line feed would become two characters
            std::fflush(stdout);
        });
    PlayWorker();
}

void HandlerSeesTheException() {
    std::set_terminate([] {
        try {
            std::rethrow_exception(std::current_exception());
        } catch (const std::exception& error) {
            std::fputs(error.what(), stdout);
            std::fflush(stdout);
        }
        std::_Exit(7);
    });
    PlayWorker();
}

void Say(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

struct SayUnwound {
    ~SayUnwound() { Say("unwound, "); }
};

void AfterUnwinding() {
    std::set_terminate([] {
        Say("terminate handler");
        std::_Exit(3);
    });
    const ImportPatch patch(LibraryUnderTest(), "CoUninitialize", +[] { Say("left the apartment, "); });
    const ConcurrencyLifetime lifetime;
    PlayOnWorker(L"Import", [] {
        const SayUnwound unwound;
        Fail();
    });
}

void WithOtherCharacters() {
    const ConcurrencyLifetime lifetime;
    PlayOnWorker(L"Gr\u00f6\u00dfe \u20ac \xD83D\xDE00 \xD800]\n\t\x1b",
                 [] { throw std::runtime_error("caf\xC3\xA9 caf\xE9\r\n\x1b[2J \xC2\x9B \xF0\x9F\x98\x80"); });
}

void WithALongText(std::string text) {
    const ConcurrencyLifetime lifetime;
    for (int i = 0; i < 5'000; ++i) {
        text += "\xC3\xA9";
    }
    PlayOnWorker(L"Import", [&] { throw std::runtime_error(text); });
}

void WithALongName() {
    ConcurrencyInitialize();
    Post(std::wstring(1'000, L'\u20ac').c_str(), [] { ConcurrencyUninitialize(); });
    StayForEver();
}

constexpr Scene kScenes[] = {
    {"without-memory", &WithoutMemory},
    {"bad-alloc", &WithBadAlloc},
    {"stream-held", &WhileAnotherThreadHoldsTheStream},
    {"closed", &WithoutStandardError},
    {"null", [] { WithNoneToBeHad(nullptr); }},
    {"invalid", [] { WithNoneToBeHad(INVALID_HANDLE_VALUE); }},
    {"debugger", &ForTheDebugger},
    {"handler", &HandlerSeesTheException},
    {"unwound", &AfterUnwinding},
    {"characters", &WithOtherCharacters},
    {"long", [] { WithALongText(""); }},
    {"long-by-one", [] { WithALongText("a"); }},
    {"long-name", &WithALongName},
};

}  // namespace

int main(int count, char** arguments) {
    return Zarvo::Test::PlayScene(kScenes, count, arguments);
}
