#include "concurrency/jobs/cancel_reason.h"

#include "concurrency/cancellation/time_limit_exceptions.h"

namespace Orvane {

std::wstring ToText(const CancelReason& reason) {
    switch (reason.cause) {
        case CancelCause::None: return L"not asked";
        case CancelCause::Handle: return L"asked through its handle";
        case CancelCause::Dropped: return L"asked because its handle was dropped";
        case CancelCause::Parent: return L"asked with " + (reason.by.empty() ? L"its parent" : reason.by);
        case CancelCause::Group: return L"asked with its group " + reason.by;
        case CancelCause::GroupFailure: return L"asked by the failure of " + reason.by;
        case CancelCause::Limit: return L"asked by " + Internal::TimeLimitDetails(reason.by, reason.limit).Text();
        case CancelCause::Token: return L"asked by its stop token";
        case CancelCause::Signalled: return L"asked because a handle that it watches was signalled";
        case CancelCause::Task: return L"asked through its future";
        case CancelCause::Shutdown: return L"asked by the last uninitialisation";
    }
    return {};
}

}  // namespace Orvane
