// Unloads a module that has a group in a static object.
#include <cstdio>
#include <string>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/leaving_module.h"

int main(int count, char** values) {
    using namespace Zarvo::Test;
    const std::string mode = count > 1 ? values[1] : "";
    const Orvane::ConcurrencyLifetime lifetime;
    const LeavingModule module;
    module.Call("KeepGroup", mode == "leaves" ? 1 : 0);
    module.Free();
    std::printf("the module is unloaded");
    std::fflush(stdout);
    return 0;
}
