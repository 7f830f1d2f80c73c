// Two processes add to one counter under one named lock. The second is killed while it holds the lock, half way through
// an addition; the first finds the lock abandoned, repairs the counter and goes on.
//
//     shared_counter [ADDITIONS]      additions of each process, 1000 if nothing is said
//
// Exit code: 0 if the total is right, 1 if it is not or something failed, 64 for a command line that says nothing.

#include <windows.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <string>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "examples/shared_counter/counter.h"
#include "examples/shared_counter/event.h"
#include "examples/shared_counter/second_process.h"

using namespace SharedCounter;

namespace {

// What the processes share, each through objects of its own. The lock's name has no backslash: the framework's
// namespace of kernel objects is put before it.
struct Shared {
    explicit Shared(const std::wstring& name)
        : lock(name.c_str()),
          counter(name + L"_memory"),
          firstIsDone(name + L"_first_is_done"),
          secondIsHalfWay(name + L"_second_is_half_way") {}

    Orvane::interprocess_mutex lock;
    Counter counter;
    Event firstIsDone;
    Event secondIsHalfWay;
};

// The recipe for a lock whose owner died. lock() throws then, although the caller owns the lock: an owner that died may
// have left anything half done, and nobody shall go on as if nothing had happened.
void LockWhateverHappenedBefore(Shared& shared) {
    try {
        shared.lock.lock();
        return;
    } catch (const Orvane::LockException& exception) {
        std::cout << "caught: " << exception.what() << '\n';
    }
    // Throws again if the caller does not own the lock: then it was no dead owner, and there is nothing to repair.
    shared.lock.unlock();
    std::cout << "unlocked: the owner of the lock has died\n";
    {
        // Under the lock like all work on the counter. Others may have been faster: so the damage must show.
        const std::lock_guard repairing(shared.lock);
        if (!shared.counter.IsWhole()) {
            shared.counter.Repair();
            std::cout << "repaired: took back an addition that was not completed\n";
        }
    }
    shared.lock.lock();
    std::cout << "locked again\n";
}

void Add(Shared& shared) {
    LockWhateverHappenedBefore(shared);
    const std::lock_guard adding(shared.lock, std::adopt_lock);
    shared.counter.BeginAddition();
    shared.counter.CompleteAddition();
}

int RunFirst(long additions) {
    const std::wstring name = L"shared_counter_" + std::to_wstring(GetCurrentProcessId());
    Shared shared(name);
    const SecondProcess second(L"--second " + name + L" " + std::to_wstring(additions));
    for (long i = 0; i < additions; ++i) {
        Add(shared);
    }
    shared.firstIsDone.Set();
    if (!second.WaitFor(shared.secondIsHalfWay.Get())) {
        std::cerr << "the second process ended too early\n";
        return 1;
    }
    std::cout << "killing the second process, which holds the lock\n";
    second.Kill();
    Add(shared);

    const long long expected = 2LL * additions + 1;
    std::cout << "total: " << shared.counter.Value() << ", expected " << expected << '\n';
    return shared.counter.Value() == expected ? 0 : 1;
}

// Adds its share, and then begins one more addition that it will never complete. It does not outlive by more than a
// minute a first process that does not come to kill it.
int RunSecond(const std::wstring& name, long additions) {
    constexpr DWORD kPatience = 60'000;
    Shared shared(name);
    for (long i = 0; i < additions; ++i) {
        Add(shared);
    }
    WaitForSingleObject(shared.firstIsDone.Get(), kPatience);
    const std::lock_guard adding(shared.lock);
    shared.counter.BeginAddition();
    shared.secondIsHalfWay.Set();
    Sleep(kPatience);
    return 1;
}

// Zero or less: not a number of additions.
long AdditionsFrom(const char* text) {
    return std::strtol(text, nullptr, 10);
}

int Run(int argc, char** argv) {
    const Orvane::ConcurrencyLifetime lifetime;
    const std::string first = argc > 1 ? argv[1] : "1000";
    if (first == "--second" && argc == 4) {
        const std::string name = argv[2];
        return RunSecond(std::wstring(name.begin(), name.end()), AdditionsFrom(argv[3]));
    }
    if (argc > 2 || AdditionsFrom(first.c_str()) <= 0) {
        std::cerr << "usage: shared_counter [ADDITIONS]\n";
        return 64;
    }
    return RunFirst(AdditionsFrom(first.c_str()));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& exception) {
        std::cerr << "shared_counter: " << exception.what() << '\n';
        return 1;
    }
}
