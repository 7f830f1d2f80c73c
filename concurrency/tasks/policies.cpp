#include "concurrency/tasks/policies.h"

#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"

#include <objbase.h>

namespace Orvane::Internal {

bool ComPolicyMTA::Enter() noexcept {
    // S_FALSE, already in this apartment, is a success too and wants its own CoUninitialize.
    return SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
}

void ComPolicyMTA::Leave() noexcept {
    CoUninitialize();
}

}  // namespace Orvane::Internal
