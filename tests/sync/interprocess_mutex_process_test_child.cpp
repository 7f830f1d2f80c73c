// The other process: interprocess_mutex_process_test_child.exe MODE NAME
//
//   add COUNT   adds COUNT to the shared number, one by one under the mutex
//   hold        holds the mutex from the event "held" until the event "release"
//   die         ends without a word while it holds the mutex
//   destroy     destroys the locked mutex, and ends
//
// Exit code: 0, or 2 when another process did not do its part.

#include <cstdlib>
#include <string>

#include "concurrency/sync/interprocess_mutex.h"
#include "tests/sync/shared_number.h"

namespace {

using namespace Zarvo::Test;

void Add(Orvane::interprocess_mutex& mutex, const std::wstring& name, int count) {
    SharedNumber number(name + L"_number");
    for (int i = 0; i < count; ++i) {
        mutex.lock();
        number.AddOne();
        mutex.unlock();
    }
}

int Hold(Orvane::interprocess_mutex& mutex, const std::wstring& name) {
    SharedEvent held(name + L"_held");
    SharedEvent release(name + L"_release");
    mutex.lock();
    held.Set();
    const bool released = release.Wait();
    mutex.unlock();
    return released ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    const std::string mode = argv[1];
    const std::string narrowName = argv[2];
    const std::wstring name(narrowName.begin(), narrowName.end());
    Orvane::interprocess_mutex mutex(name.c_str());
    if (mode == "add" && argc == 4) {
        Add(mutex, name, std::atoi(argv[3]));
        return 0;
    }
    if (mode == "hold") {
        return Hold(mutex, name);
    }
    mutex.lock();
    if (mode == "die") {
        TerminateProcess(GetCurrentProcess(), 7);
    }
    return mode == "destroy" ? 0 : 2;
}
