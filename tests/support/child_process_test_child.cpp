#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>

#include "zarvo_orvane_logging/orvane_logging.h"

int main(int count, char** values) {
    const std::string verb = count > 1 ? values[1] : "";
    const std::string argument = count > 2 ? values[2] : "";
    if (verb == "exit") {
        return std::stoi(argument);
    }
    if (verb == "terminate") {
        std::terminate();
    }
    if (verb == "abort") {
        std::abort();
    }
    if (verb == "print") {
        std::fputs("to the output", stdout);
        std::fputs("to the error stream", stderr);
        return 0;
    }
    if (verb == "print much") {
        std::fputs(std::string(1'000'000, 'x').c_str(), stdout);
        return 0;
    }
    if (verb == "echo") {
        std::fputs(argument.c_str(), stdout);
        return 0;
    }
    if (verb == "variable") {
        const char* const value = std::getenv(argument.c_str());
        std::fputs(value != nullptr ? value : "(none)", stdout);
        return 0;
    }
    if (verb == "sleep") {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(argument)));
        return 0;
    }
    if (verb == "log and terminate") {
        g_OrvaneLogging.Report(1, 16, L"Tests", L"first");
        g_OrvaneLogging.Report(8, 16, L"Tests", L"last of %d", 2);
        std::terminate();
    }
    return 99;
}
