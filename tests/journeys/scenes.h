// What the programs share that play one end of the process each, named on the command line.
#pragma once

#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"

namespace Zarvo::Test {

// Longer than every limit of a test: the process must have ended by then.
inline void StayForEver() {
    static Gate never;
    never.Wait();
}

// Runs it on the pool.
inline void PlayOnWorker(const std::wstring& name, const std::function<void()>& callable) {
    Orvane::Internal::GlobalThreadPool::Queue(Orvane::MakeTask(name.c_str(), callable));
    StayForEver();
}

[[noreturn]] inline void Fail() {
    throw std::runtime_error("no such file");
}

inline void PlayWorker() {
    const Orvane::ConcurrencyLifetime lifetime;
    PlayOnWorker(L"Import", &Fail);
}

struct Scene {
    const char* name;
    void (*play)();
};

// What main() does. Returns the code of a process that has not ended as it should.
template <std::size_t Count>
int PlayScene(const Scene (&scenes)[Count], int count, char** arguments) {
    for (const Scene& scene : scenes) {
        if (count == 2 && std::strcmp(arguments[1], scene.name) == 0) {
            scene.play();
        }
    }
    return EXIT_FAILURE;
}

}  // namespace Zarvo::Test
