// Traces in the ways that only a whole process can show. The argument says which.
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <windows.h>

#include "zarvo_orvane_logging/trace.h"

namespace {

using Phase = OrvaneTrace::Phase;

bool g_speaksAtTheEnd = false;

struct LastWords {
    ~LastWords() {
        if (g_speaksAtTheEnd) {
            g_OrvaneTrace.Write({.category = "test", .name = L"static destructor"});
        }
    }
};
const LastWords g_words;

void Write(Phase phase, const wchar_t* name, unsigned long long id = 0) {
    g_OrvaneTrace.Write({.phase = phase, .category = "test", .name = name, .id = id});
}

// Says whether the trace is on, before and after the first event.
int SayWhetherItIsOn() {
    std::cout << g_OrvaneTrace.IsOn();
    Write(Phase::Instant, L"first");
    std::cout << g_OrvaneTrace.IsOn();
    return 0;
}

int WriteEachPhase() {
    const OrvaneTrace::Argument arguments[] = {
        {.key = "text", .text = L"wide"}, {.key = "utf8", .utf8 = "n\xC3\xA4rrow"}, {.key = "number", .number = -7}};
    Write(Phase::ThreadName, L"The first thread");
    Write(Phase::Begin, L"outer");
    Write(Phase::Begin, L"inner");
    Write(Phase::AsyncBegin, L"overlaps", 0xFEDCBA9876543210ULL);
    Write(Phase::End, L"inner");
    g_OrvaneTrace.Write(
        {.category = "test", .name = L"moment", .arguments = arguments, .argumentCount = std::size(arguments)});
    Write(Phase::End, L"outer");
    Write(Phase::AsyncEnd, L"overlaps", 0xFEDCBA9876543210ULL);
    return 0;
}

// Names that JSON or UTF-8 have rules for.
int WriteNames() {
    Write(Phase::Instant, L"quote \" backslash \\ slash /");
    Write(Phase::Instant, L"tab \t line feed \n bell \a delete \x7F");
    Write(Phase::Instant, L"\u00E4 \u20AC \xD83D\xDE00");
    Write(Phase::Instant, L"half \xD83D and half \xDE00 of a character");
    Write(Phase::Instant, nullptr);
    const OrvaneTrace::Argument wrong{.key = "utf8", .utf8 = "\xFF \xC3 \xED\xA0\x80 \xC0\x80 \xE2\x82\xAC"};
    g_OrvaneTrace.Write({.category = "test", .name = L"wrong", .arguments = &wrong, .argumentCount = 1});
    return 0;
}

int WriteLongTexts() {
    const std::wstring text(5000, L'\u20AC');
    const std::vector<OrvaneTrace::Argument> arguments(20, {.key = "text", .text = text.c_str()});
    g_OrvaneTrace.Write(
        {.category = "test", .name = text.c_str(), .arguments = arguments.data(), .argumentCount = arguments.size()});
    return 0;
}

// Other threads write, too, until the process ends.
void WriteOnThreads(int threads) {
    for (int i = 0; i < threads; ++i) {
        std::thread([] {
            for (;;) {
                Write(Phase::Instant, L"another thread");
            }
        }).detach();
    }
}

int WriteAndGetKilled() {
    WriteOnThreads(3);
    for (int i = 0; i < 1000; ++i) {
        Write(Phase::Instant, L"counted");
    }
    TerminateProcess(GetCurrentProcess(), 7);
    return 0;
}

int WriteAndTerminate() {
    Write(Phase::Instant, L"last");
    std::terminate();
}

int WriteAtExit() {
    g_speaksAtTheEnd = true;
    Write(Phase::Instant, L"main");
    return 0;
}

// Ends the process while other threads are in the middle of writing.
int EndAmongEvents() {
    WriteOnThreads(3);
    for (int i = 0; i < 1000; ++i) {
        Write(Phase::Instant, L"counted");
    }
    std::_Exit(0);
}

// Some megabytes, with a span around each.
int WriteMany() {
    Write(Phase::ThreadName, L"Writer");
    const std::wstring text(400, L'x');
    const OrvaneTrace::Argument argument{.key = "text", .text = text.c_str()};
    for (int i = 0; i < 5000; ++i) {
        g_OrvaneTrace.Write(
            {.phase = Phase::Begin, .category = "test", .name = L"span", .arguments = &argument, .argumentCount = 1});
        Write(Phase::End, L"span");
    }
    Write(Phase::Instant, L"last");
    return 0;
}

int WriteOnFourThreads() {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int j = 0; j < 2000; ++j) {
                Write(Phase::Begin, L"span");
                Write(Phase::End, L"span");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

int KeepTheLastError() {
    SetLastError(4711);
    Write(Phase::Instant, L"first");
    return GetLastError() == 4711 ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
    const std::map<std::string, int (*)()> modes = {
        {"is-on", SayWhetherItIsOn},     {"phases", WriteEachPhase},           {"names", WriteNames},
        {"long", WriteLongTexts},        {"killed", WriteAndGetKilled},        {"terminate", WriteAndTerminate},
        {"exit", WriteAtExit},           {"end-among-events", EndAmongEvents}, {"many", WriteMany},
        {"threads", WriteOnFourThreads}, {"last-error", KeepTheLastError},
    };
    return count == 2 ? modes.at(arguments[1])() : 99;
}
