#include "concurrency/tasks/failure_handler.h"

#include <atomic>

#include "concurrency/base/report.h"

namespace Orvane {

namespace {

constinit std::atomic<FailureHandler> g_handler = nullptr;
constinit std::atomic<std::uint64_t> g_count = 0;

// The narrow text goes as it is: the one %s of the record that is not wide.
void Log(const wchar_t* name, const std::exception_ptr& error) noexcept {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& failure) {
        Internal::ReportNoThrow(4, 16, L"Concurrency.Job", L"Job [%s] has failed, and its failure was not read: %hs",
                                name, failure.what());
    } catch (...) {
        Internal::ReportNoThrow(4, 16, L"Concurrency.Job",
                                L"Job [%s] has failed, and its failure was not read: not a std::exception", name);
    }
}

}  // namespace

FailureHandler SetFailureHandler(FailureHandler handler) noexcept {
    return g_handler.exchange(handler);
}

std::uint64_t UnreadFailureCount() noexcept {
    return g_count;
}

void Internal::ReportUnreadFailure(const wchar_t* name, const std::exception_ptr& error) noexcept {
    ++g_count;
    Log(name, error);
    if (const FailureHandler handler = g_handler) {
        try {
            handler({name, error});
        } catch (...) {
            // On purpose nothing: the handler is where failures end.
        }
    }
}

}  // namespace Orvane
