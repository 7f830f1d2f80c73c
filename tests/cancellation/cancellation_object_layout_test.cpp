// The order of a cancellation object's fields, which is part of the interface.

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <type_traits>

#include "tests/cancellation/cancellation_object_peer.h"

namespace {

using namespace Orvane::Internal;

template <typename Field>
std::ptrdiff_t OffsetOf(CancellationObject& object, Field& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object);
}

TEST(CancellationObject, HoldsItsFieldsInTheirOrder) {
    CancellationObject object;
    const auto mutex = OffsetOf(object, CancellationObjectPeer::Mutex(object));
    const auto notifier = OffsetOf(object, CancellationObjectPeer::Notifier(object));
    const auto requested = OffsetOf(object, CancellationObjectPeer::Requested(object));
    const auto killable = OffsetOf(object, CancellationObjectPeer::Killable(object));
    const auto threadId = OffsetOf(object, CancellationObjectPeer::ThreadId(object));

    EXPECT_EQ(mutex, 0);
    EXPECT_EQ(notifier, static_cast<std::ptrdiff_t>(sizeof(std::recursive_mutex)));
    EXPECT_EQ(requested, notifier + static_cast<std::ptrdiff_t>(sizeof(std::weak_ptr<AbstractCancelNotifier>)));
    EXPECT_EQ(killable, requested + 1);
    EXPECT_EQ(threadId, requested + 4);
}

TEST(CancellationObject, HasNoBaseNoVirtualOperationAndNoOtherField) {
    struct Fields {
        std::recursive_mutex mutex;
        std::weak_ptr<AbstractCancelNotifier> notifier;
        bool requested;
        bool killable;
        DWORD threadId;
    };
    static_assert(!std::is_polymorphic_v<CancellationObject>);
    static_assert(sizeof(CancellationObject) == sizeof(Fields));
}

}  // namespace
