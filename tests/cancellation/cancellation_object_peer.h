// The private fields of a cancellation object, for the test of their order.
#pragma once

#include "concurrency/cancellation/cancellation_object.h"

namespace Orvane::Internal {

struct CancellationObjectPeer {
    static auto& Mutex(CancellationObject& object) { return object.m_mutex; }
    static auto& Notifier(CancellationObject& object) { return object.m_notifier; }
    static auto& Requested(CancellationObject& object) { return object.m_requested; }
    static auto& Killable(CancellationObject& object) { return object.m_killable; }
    static auto& ThreadId(CancellationObject& object) { return object.m_threadId; }
};

}  // namespace Orvane::Internal
