#include "concurrency/jobs/module_use.h"

namespace Orvane {

std::wstring ToText(const ModuleUse& use) {
    std::wstring text;
    const auto add = [&text](std::size_t count, const wchar_t* one) {
        if (count != 0) {
            text += (text.empty() ? L"" : L", ") + std::to_wstring(count) + L" " + one + (count == 1 ? L"" : L"s");
        }
    };
    add(use.callables, L"callable");
    add(use.results, L"result");
    add(use.failures, L"failure");
    add(use.schedules, L"schedule");
    add(use.jobs, L"job without a group");
    const wchar_t* between = L": ";
    for (const std::wstring& name : use.names) {
        text += between + name;
        between = L", ";
    }
    return text.empty() ? L"nothing" : text;
}

}  // namespace Orvane
