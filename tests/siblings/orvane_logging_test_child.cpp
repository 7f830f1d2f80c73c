// Reports in the ways that only a whole process can show. The argument says which.
#include <cstdlib>
#include <exception>
#include <iterator>
#include <map>
#include <string>
#include <thread>

#include <windows.h>

#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/report_recording.h"

namespace {

bool g_speaksAtTheEnd = false;

struct FirstAndLastWords {
    FirstAndLastWords() { g_OrvaneLogging.Report(1, 16, L"child", L"before main"); }
    ~FirstAndLastWords() {
        if (g_speaksAtTheEnd) {
            g_OrvaneLogging.Report(1, 16, L"child", L"static destructor");
        }
    }
};
const FirstAndLastWords g_words;

int ReportEachLevel() {
    g_OrvaneLogging.Report(1, 16, L"child", L"one");
    g_OrvaneLogging.Report(4, 16, L"child", L"four");
    g_OrvaneLogging.Report(8, 16, L"child", L"eight");
    return 0;
}

int ReportAfterChoosingStandardError() {
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::StandardError);
    return ReportEachLevel();
}

int CountRecorded() {
    ReportEachLevel();
    return static_cast<int>(Orvane::Reports::CountRecorded(L"child"));
}

int ReportAndTerminate() {
    g_OrvaneLogging.Report(8, 16, L"child", L"last words");
    std::terminate();
}

int ReportAndGetKilled() {
    g_OrvaneLogging.Report(8, 16, L"child", L"last words");
    TerminateProcess(GetCurrentProcess(), 7);
    return 0;
}

int ReportAtExit() {
    g_speaksAtTheEnd = true;
    std::atexit([] { g_OrvaneLogging.Report(1, 16, L"child", L"atexit"); });
    return 0;
}

int ReportManyTimes() {
    constexpr int kRecords = 300;
    for (int i = 0; i < kRecords; ++i) {
        g_OrvaneLogging.Report(1, 16, L"child", L"%lu %d end", GetCurrentProcessId(), i);
    }
    return 0;
}

// Ends the process while other threads are in the middle of reporting.
int EndAmongReports() {
    for (int i = 0; i < 4; ++i) {
        std::thread([] {
            for (;;) {
                g_OrvaneLogging.Report(1, 16, L"child", L"still running");
            }
        }).detach();
    }
    g_OrvaneLogging.Report(8, 16, L"child", L"last words");
    std::_Exit(0);
}

// Reads back what the sink has written to the console that this process was started in.
int ReportToConsole() {
    HANDLE const screen = CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, 0, nullptr);
    SetStdHandle(STD_ERROR_HANDLE, screen);
    g_OrvaneLogging.SetSink(OrvaneLogging::Sink::StandardError);
    g_OrvaneLogging.Report(1, 16, L"child", L"\u03A9");
    wchar_t row[100] = {};
    DWORD count = 0;
    ReadConsoleOutputCharacterW(screen, row, static_cast<DWORD>(std::size(row)), {0, 0}, &count);
    return std::wstring(row, count).find(L"[child] \u03A9") != std::wstring::npos ? 0 : 3;
}

}  // namespace

int main(int count, char** arguments) {
    const std::map<std::string, int (*)()> modes = {
        {"levels", ReportEachLevel},       {"choose-stderr", ReportAfterChoosingStandardError},
        {"count-recorded", CountRecorded}, {"terminate", ReportAndTerminate},
        {"killed", ReportAndGetKilled},    {"exit", ReportAtExit},
        {"many", ReportManyTimes},         {"end-among-reports", EndAmongReports},
        {"console", ReportToConsole},
    };
    return count == 2 ? modes.at(arguments[1])() : 99;
}
