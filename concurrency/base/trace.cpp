#include "concurrency/base/trace.h"

#include "concurrency/base/module_function.h"

namespace Orvane::Internal {

const OrvaneTraceAccess* FindTrace() noexcept {
#ifdef _WIN32
    const auto access = FindFunction<decltype(&ZarvoTraceAccess)>(L"ZarvoOrvaneLogging", "ZarvoTraceAccess");
    return access != nullptr ? access() : nullptr;
#else  // the tests' native build
    return ZarvoTraceAccess();
#endif
}

const OrvaneTraceAccess* const g_trace = FindTrace();

}  // namespace Orvane::Internal
