// Ends itself with last words, as its argument says. What a debugger sees goes to the standard output.
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <exception>
#include <initializer_list>
#include <map>
#include <stdexcept>
#include <string>

#include "concurrency/base/last_words.h"
#include "concurrency/base/module_function.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/errors/error_storage.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"

namespace Shop::Front {

struct Halt {};

template <typename T>
struct Box {};

struct Mute : std::exception {
    const char* what() const noexcept override { return nullptr; }
};

}  // namespace Shop::Front

// Its name ends as the compiler's name of a class in a namespace does.
struct TypeE {};

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

struct Hidden {};

// In both encodings all that is written in another way, and its neighbours.
constexpr char kTexts[] =
    "a~\x7F \xC2\x80\xC2\x9F\xC2\xA0 \xC3\xA9\xDF\xBF \xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF "
    "\xF0\x90\x80\x80\xF0\x9F\x98\x81 \xE9 \xE2\x82 \xF0\x9F\x98 \xC3\n\r\t\x1B";
constexpr wchar_t kWideTexts[] = {L'a',   L'~',   0x7F,   L' ',   0x80,   0x9F, 0xA0,   L' ',   0xE9,
                                  0x7FF,  L' ',   0x800,  0x20AC, 0xFFFF, L' ', 0xD800, 0xDC00, 0xDBFF,
                                  0xDFFF, 0xD83D, 0xDE01, L' ',   0xD800, L'x', 0xDC00, 0xDFFF, 0xE000,
                                  L'\n',  L'\r',  L'\t',  0x1B,   0xDBFF, L'\0'};

template <typename Thrown>
[[noreturn]] void EndBy(const Thrown& thrown) {
    try {
        throw thrown;
    } catch (...) {
        LastWords words("it is over");
        words.AddException();
        words.EndProcess();
    }
}

[[noreturn]] void EndByRecord(const wchar_t* message) {
    ErrorStorage record;
    std::wmemcpy(record.message, message, std::wcslen(message) + 1);
    static_cast<std::runtime_error&>(record) = std::runtime_error("narrow");
    EndBy(ExceptionBase(record));
}

[[noreturn]] void EndWithTasks(std::initializer_list<const wchar_t*> names) {
    LastWords words("it is over");
    for (const wchar_t* const name : names) {
        words.AddTask(name);
    }
    words.EndProcess();
}

// The thread that ends, or the main thread meanwhile, says which one.
void EndOnThread(const wchar_t* description, bool byAnother = false) {
    Gate described;
    Gate never;
    NativeThread thread = NativeThread::Start([&] {
        described.Wait();
        if (byAnother) {
            never.Wait();
        }
        LastWords words("it is over");
        words.AddTask(L"Import");
        words.AddThread(::GetCurrentThreadId());
        words.EndProcess();
    });
    using Describe = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    if (description != nullptr) {
        FindFunction<Describe>(L"kernel32", "SetThreadDescription")(thread.GetHandle(), description);
    }
    if (byAnother) {
        LastWords words("it is over");
        words.AddThread(thread.GetId());
        words.EndProcess();
    }
    described.Open();
    thread.Join();
}

void EndByABody(const wchar_t* task) {
    NativeThread::Start(
        [task](TaskNote& note) {
            note.Take(L"the task before");
            note.Take(task);
            throw std::runtime_error("no such file");
        },
        "the body has failed")
        .Join();
}

void Shown(LPCSTR text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

const std::map<std::string, void (*)()> kScenes{
    {"bare", [] { EndWithTasks({}); }},
    {"no-names", [] { EndWithTasks({nullptr, L""}); }},
    {"tasks", [] { EndWithTasks({L"Import", L"", L"Fetch 17"}); }},
    {"thread", [] { EndOnThread(nullptr); }},
    {"described", [] { EndOnThread(L"Importer"); }},
    {"another", [] { EndOnThread(L"Importer", true); }},
    {"no-thread",
     [] {
         LastWords words("it is over");
         words.AddThread(0xFFFFFFFC);
         words.EndProcess();
     }},
    {"narrow", [] { EndBy(std::runtime_error(kTexts)); }},
    {"wide", [] { EndByRecord(kWideTexts); }},
    {"short-record", [] { EndByRecord(L"x"); }},
    {"empty-record", [] { EndByRecord(L""); }},
    {"mute", [] { EndBy(Shop::Front::Mute()); }},
    {"class", [] { EndBy(Shop::Front::Halt()); }},
    {"template", [] { EndBy(Shop::Front::Box<int>()); }},
    {"hidden", [] { EndBy(Hidden()); }},
    {"global", [] { EndBy(TypeE()); }},
    {"number", [] { EndBy(7); }},
    {"task-without-thread",
     [] {
         try {
             throw std::runtime_error("no such file");
         } catch (...) {
             LastWords words("it is over");
             words.AddTask(L"Import");
             words.AddException();
             words.EndProcess();
         }
     }},
    {"body", [] { EndByABody(L"Import"); }},
    {"body-of-a-long-name", [] { EndByABody(L"a name that has more characters than a task keeps"); }},
    {"long-reason",
     [] {
         LastWords words(std::string(2'000, 'r').c_str());
         words.AddTask(L"Import");
         words.EndProcess();
     }},
};

}  // namespace

int main(int, char** arguments) {
    std::set_terminate([] { std::abort(); });  // the runtime's own handler would read what() that is null
    const ImportPatch debugger(LibraryUnderTest(), "OutputDebugStringA", &Shown);
    kScenes.at(arguments[1])();
    return EXIT_FAILURE;
}
