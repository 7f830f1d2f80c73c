// Owns a job in a static object.
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "tests/support/gate.h"

namespace {

Orvane::Job<void> g_job;

}  // namespace

extern "C" __declspec(dllexport) void StartStaticJob(int runs) {
    const auto begun = std::make_shared<Zarvo::Test::Gate>();
    g_job = Orvane::Run(L"of the DLL", [begun, runs] {
        begun->Open();
        if (runs != 0) {
            Orvane::CancellableSleep(INFINITE);
        }
    });
    begun->Wait();
    if (runs == 0) {
        g_job.Wait();
    }
}
