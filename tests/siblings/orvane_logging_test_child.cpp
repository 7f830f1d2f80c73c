// Reports in the ways that only a whole process can show. The argument says which.
#include <cstdlib>
#include <exception>
#include <map>
#include <string>
#include <thread>

#include <windows.h>

#include "zarvo_orvane_logging/orvane_logging.h"

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

}  // namespace

int main(int count, char** arguments) {
    const std::map<std::string, int (*)()> modes = {
        {"levels", ReportEachLevel},
        {"choose-stderr", ReportAfterChoosingStandardError},
        {"terminate", ReportAndTerminate},
        {"killed", ReportAndGetKilled},
        {"exit", ReportAtExit},
        {"many", ReportManyTimes},
        {"end-among-reports", EndAmongReports},
    };
    return count == 2 ? modes.at(arguments[1])() : 99;
}
