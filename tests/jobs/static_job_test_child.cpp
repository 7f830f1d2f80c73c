// Leaves a job to a static object: its own, or that of a DLL.
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/gate.h"

namespace {

Orvane::Job<void> g_job;

void StartHere(bool runs) {
    const auto begun = std::make_shared<Zarvo::Test::Gate>();
    g_job = Orvane::Run(L"of the program", [begun, runs] {
        begun->Open();
        if (runs) {
            Orvane::CancellableSleep(INFINITE);
        }
    });
    begun->Wait();
    if (!runs) {
        g_job.Wait();
    }
}

}  // namespace

int main(int count, char** values) {
    const std::string mode = count > 1 ? values[1] : "";
    const auto says = [&mode](const char* word) { return mode.find(word) != std::string::npos; };
    const bool runs = says("running");
    Orvane::ConcurrencyInitialize();
    if (says("program")) {
        StartHere(runs);
    } else {
        const HMODULE dll = LoadLibraryW(L"static_job_test_dll.dll");
        if (dll == nullptr) {
            return 1;
        }
        reinterpret_cast<void (*)(int)>(reinterpret_cast<void*>(GetProcAddress(dll, "StartStaticJob")))(runs ? 1 : 0);
        if (says("unloaded")) {
            FreeLibrary(dll);
        }
    }
    if (!says("never")) {
        Orvane::ConcurrencyUninitialize();
    }
    std::printf("%s done", mode.c_str());
    std::fflush(stdout);
    return 0;
}
