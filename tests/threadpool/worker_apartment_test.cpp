// Every worker lives in the COM multithreaded apartment.
#include <gtest/gtest.h>

#include <objbase.h>

#include <atomic>
#include <mutex>
#include <set>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_numbers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr int kGrown = 16;

struct Apartment {
    HRESULT result = E_FAIL;
    APTTYPE type = APTTYPE_CURRENT;
    APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;

    static Apartment OfThisThread() {
        Apartment apartment;
        apartment.result = CoGetApartmentType(&apartment.type, &apartment.qualifier);
        return apartment;
    }
};

// How the library enters and leaves apartments.
struct ComCalls {
    static inline std::atomic<int> entered = 0;
    static inline std::atomic<int> left = 0;

    ComCalls() = delete;
    static void Reset() { entered = left = 0; }

    static HRESULT WINAPI Enter(void* reserved, DWORD kind) {
        EXPECT_EQ(kind, static_cast<DWORD>(COINIT_MULTITHREADED));
        ++entered;
        return CoInitializeEx(reserved, kind);
    }
    static HRESULT WINAPI Refuse(void*, DWORD) {
        ++entered;
        return E_OUTOFMEMORY;
    }
    static void WINAPI Leave() {
        ++left;
        CoUninitialize();
    }
};

// The first eight and those of a growth alike.
TEST(WorkerApartment, EveryWorkerIsInTheMultithreadedApartment) {
    constexpr int kTasks = 16;
    Countdown all(kTasks);
    std::mutex mutex;
    std::set<DWORD> workers;
    std::atomic<int> inApartment = 0;
    const ConcurrencyLifetime lifetime;  // ends first: the last task may still be on its way out of the countdown
    for (int i = 0; i < kTasks; ++i) {
        GlobalThreadPool::Queue(MakeTask(L"look", [&] {
            const Apartment apartment = Apartment::OfThisThread();
            if (apartment.result == S_OK && apartment.type == APTTYPE_MTA &&
                apartment.qualifier == APTTYPEQUALIFIER_NONE) {
                ++inApartment;
            }
            {
                const std::lock_guard lock(mutex);
                workers.insert(GetCurrentThreadId());
            }
            all.Arrive();
            all.Wait();  // each task keeps its worker
        }));
    }
    ASSERT_TRUE(Eventually([&] { return all.Missing() == 0; }));
    EXPECT_EQ(workers.size(), static_cast<std::size_t>(kTasks));
    EXPECT_EQ(inApartment, kTasks);
}

// Those of a growth too; the growth itself, a task of the library, stays in its worker's apartment.
TEST(WorkerApartment, WorkersEnterOnceForTheirWholeLifeAndLeaveAtTheEnd) {
    ComCalls::Reset();
    const ImportPatch enter(LibraryUnderTest(), "CoInitializeEx", &ComCalls::Enter);
    const ImportPatch leave(LibraryUnderTest(), "CoUninitialize", &ComCalls::Leave);
    {
        const ConcurrencyLifetime lifetime;
        for (int i = 0; i < 50; ++i) {
            Task task = MakeTask(L"task", [] {});
            GlobalThreadPool::Queue(task);
            task.Wait();
        }
        EXPECT_TRUE(Eventually([] { return ComCalls::entered == kFirstWorkers; }));
        HeldTasks held;
        ASSERT_TRUE(held.Start(kFirstWorkers - 1, &GlobalThreadPool::Queue));
        EXPECT_TRUE(Eventually([] { return ComCalls::entered == kGrown; }));
        EXPECT_EQ(ComCalls::left, 0);
    }
    EXPECT_EQ(ComCalls::entered, kGrown);
    EXPECT_EQ(ComCalls::left, kGrown);
}

TEST(WorkerApartment, WorkerThatCannotEnterWorksAllTheSameAndDoesNotLeave) {
    ComCalls::Reset();
    const ImportPatch enter(LibraryUnderTest(), "CoInitializeEx", &ComCalls::Refuse);
    const ImportPatch leave(LibraryUnderTest(), "CoUninitialize", &ComCalls::Leave);
    std::atomic<bool> ran = false;
    {
        const ConcurrencyLifetime lifetime;
        GlobalThreadPool::Queue(MakeTask(L"task", [&] { ran = true; }));
    }
    EXPECT_TRUE(ran);
    EXPECT_EQ(ComCalls::entered, kFirstWorkers);
    EXPECT_EQ(ComCalls::left, 0);
}

// Such a thread may report the process's multithreaded apartment as implied. Entering is S_FALSE where one has entered.
TEST(WorkerApartment, DedicatedThreadIsInNoApartmentOfItsOwn) {
    const ConcurrencyLifetime lifetime;
    Apartment apartment;
    HRESULT entered = E_FAIL;
    Task task = MakeTask(L"look", [&] {
        apartment = Apartment::OfThisThread();
        entered = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        if (SUCCEEDED(entered)) {
            CoUninitialize();
        }
    });
    GlobalThreadPool::LaunchInNewThread(task);
    task.Wait();
    EXPECT_TRUE(FAILED(apartment.result) || apartment.qualifier == APTTYPEQUALIFIER_IMPLICIT_MTA);
    EXPECT_EQ(entered, S_OK);
}

TEST(WorkerApartment, DedicatedTaskBringsItsOwnThreadingPolicy) {
    const ConcurrencyLifetime lifetime;
    Apartment apartment;
    Task task = MakeTask<ComPolicyMTA>(L"look", [&] { apartment = Apartment::OfThisThread(); });
    GlobalThreadPool::LaunchInNewThread(task);
    task.Wait();
    EXPECT_EQ(apartment.result, S_OK);
    EXPECT_EQ(apartment.type, APTTYPE_MTA);
    EXPECT_EQ(apartment.qualifier, APTTYPEQUALIFIER_NONE);
}

}  // namespace
