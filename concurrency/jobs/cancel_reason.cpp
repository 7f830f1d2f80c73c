#include "concurrency/jobs/cancel_reason.h"

#include "concurrency/cancellation/time_limit_exceptions.h"

namespace Orvane {

std::wstring Internal::HowAsked(const CancelReason& reason) {
    switch (reason.cause) {
        case CancelCause::None: return {};
        case CancelCause::Handle: return L"through its handle";
        case CancelCause::Dropped: return L"because its handle was dropped";
        case CancelCause::Parent: return L"with " + (reason.by.empty() ? L"its parent" : reason.by);
        case CancelCause::Group: return L"with its group " + reason.by;
        case CancelCause::GroupFailure: return L"by the failure of " + reason.by;
        case CancelCause::Limit: return L"by " + Internal::TimeLimitDetails(reason.by, reason.limit).Text();
        case CancelCause::Token: return L"by its stop token";
        case CancelCause::Signalled: return L"because a handle that it watches was signalled";
        case CancelCause::Task: return L"through its future";
        case CancelCause::Shutdown: return L"by the last uninitialisation";
        case CancelCause::Stop: return L"by " + (reason.by.empty() ? L"StopAll()" : reason.by);
    }
    return {};
}

std::wstring ToText(const CancelReason& reason) {
    return reason.cause == CancelCause::None ? L"not asked" : L"asked " + Internal::HowAsked(reason);
}

}  // namespace Orvane
