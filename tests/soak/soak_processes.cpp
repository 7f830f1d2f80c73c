// Plug-ins, processes that are killed, and workers that are.
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/leaving_module.h"
#include "tests/soak/soak_work.h"
#include "tests/support/child_process.h"
#include "tests/support/gate.h"
#include "tests/support/running_child.h"
#include "tests/sync/shared_number.h"

namespace Zarvo::Test {

namespace {

constexpr const char* kSelf = "soak";

std::string Narrow(const std::wstring& name) {
    std::string narrow;
    for (const wchar_t character : name) {
        narrow += static_cast<char>(character);
    }
    return narrow;
}

// Waits for the mutex of a process that is killed meanwhile: it comes as a failure once, and as a mutex after that.
void TakeAbandoned(SoakScene& scene, Orvane::interprocess_mutex& mutex) {
    try {
        mutex.lock();
        scene.tally.Fail("a mutex whose owner was killed does not say so");
    } catch (const Orvane::LockException&) {
        // As it should.
    }
    mutex.unlock();
    mutex.lock();
    mutex.unlock();
}

// Returns when the worker is gone. It dies in a sleep, where it holds no lock of the library.
void KillOneWorker() {
    struct Worker {
        Gate entered;
        DWORD id = 0;
    };
    const auto worker = std::make_shared<Worker>();
    Orvane::Internal::GlobalThreadPool::Queue(Orvane::MakeTask(L"killed", [worker] {
        worker->id = GetCurrentThreadId();
        worker->entered.Open();
        Sleep(INFINITE);
    }));
    worker->entered.Wait();
    const HANDLE thread = OpenThread(THREAD_TERMINATE | SYNCHRONIZE, FALSE, worker->id);
    TerminateThread(thread, 0);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    Orvane::Internal::GlobalThreadPool::IncreaseKilledThreadCount();
}

}  // namespace

void SoakPlugIns(SoakScene scene) {
    while (!scene.isOver) {
        const LeavingModule module;
        const SoakWatch::Wait wait(scene.watch, "a plug-in that leaves");
        const int jobs = static_cast<int>(Choose(scene.random, 8));
        if (module.Call("StartGroup", jobs) != 1 || module.Call("LeaveGroup") != 1) {
            scene.tally.Fail("a plug-in has left something behind");
        }
        module.Free();
        if (LeavingModule::IsLoaded()) {
            scene.tally.Fail("a plug-in is loaded still");
        }
        ++scene.tally.plugIns;
    }
}

void SoakProcesses(SoakScene scene) {
    if (scene.cycle % 2 != 0) {
        return;
    }
    const std::wstring name = L"soak_" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(scene.cycle);
    SharedEvent held(name + L"_held");
    Orvane::interprocess_mutex mutex(name.c_str());
    const TemporaryFile output;
    const TemporaryFile error;
    const ChildProcess child = StartChild(kSelf, {"--hold", Narrow(name)}, {{"ZARVO_LOG", "none"}}, output, error);
    if (!held.Wait()) {
        scene.tally.Fail("a process does not take its mutex");
    }
    auto waiter = Orvane::RunInNewThread(L"waits for the killed", [&] { TakeAbandoned(scene, mutex); });
    Linger(scene.random);
    TerminateProcess(reinterpret_cast<HANDLE>(child), 7);
    if (WaitForChild(kSelf, child, std::chrono::minutes(1)) != 7) {
        scene.tally.Fail("a process has not been killed");
    }
    const SoakWatch::Wait wait(scene.watch, "a named mutex whose owner was killed");
    waiter.Get();
    ++scene.tally.processesKilled;
}

void SoakKills(SoakScene scene) {
    if (scene.cycle % 4 != 1) {
        return;
    }
    const SoakWatch::Wait wait(scene.watch, "a process in which workers are killed");
    const ChildResult child = RunChild(kSelf, {"--kill-workers", "2"}, {{"ZARVO_LOG", "none"}});
    if (child.exitCode != 0) {
        scene.tally.Fail("a process in which workers are killed has ended with code " + std::to_string(child.exitCode) +
                         ": " + child.standardOutput + child.standardError);
    }
    scene.tally.workersKilled += 4;
}

int HoldMutexForEver(const wchar_t* name) {
    SharedEvent held(std::wstring(name) + L"_held");
    Orvane::interprocess_mutex mutex(name);
    mutex.lock();
    held.Set();
    Sleep(INFINITE);
    return 2;
}

int KillWorkers(int cycles) {
    SoakWatch watch{std::chrono::seconds(100)};
    for (int cycle = 0; cycle < cycles; ++cycle) {
        const SoakWatch::Wait wait(watch, "a cycle in which workers are killed");
        const Orvane::ConcurrencyLifetime lifetime;
        for (int killed = 0; killed < 2; ++killed) {
            std::vector<Orvane::Job<int>> jobs;
            for (int i = 0; i < 100; ++i) {
                jobs.push_back(Orvane::Run(L"beside the killed", [i] { return i; }));
            }
            KillOneWorker();
            auto sleeper = Orvane::Run(L"sleeper", [] { Orvane::CancellableSleep(INFINITE); });
            sleeper.Cancel();
            for (int i = 0; i < 100; ++i) {
                if (jobs[static_cast<std::size_t>(i)].Get() != i) {
                    return 1;
                }
            }
        }
    }
    return 0;
}

}  // namespace Zarvo::Test
