#include "concurrency/cancellation/abstract_cancel_notifier.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <type_traits>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/handle_notification_adapter.h"
#include "tests/cancellation/notifiers.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

// The operations in the order in which other components call them, declared apart from the library.
class NotifierSlots {
  public:
    virtual void Slot0(std::unique_lock<std::recursive_mutex>& lock, bool& requested) = 0;

  protected:
    virtual ~NotifierSlots() = default;
};

NotifierSlots& SlotsOf(AbstractCancelNotifier& notifier) {
    return *reinterpret_cast<NotifierSlots*>(static_cast<void*>(&notifier));
}

// What only derived classes may do.
struct Probe : AbstractCancelNotifier {
    void Notify(std::unique_lock<std::recursive_mutex>&, bool&) override {}
};

TEST(AbstractCancelNotifier, NotifyIsTheFirstSlot) {
    CountingNotifier notifier;
    Request request;

    SlotsOf(notifier).Slot0(request.lock, request.requested);

    EXPECT_EQ(notifier.Count(), 1);
    EXPECT_FALSE(request.lock.owns_lock());
}

TEST(AbstractCancelNotifier, NotifyIsTheFirstSlotOfTheLibrarysOwnNotifiersToo) {
    const auto notifier = HandleNotificationAdapter::CreateInstance();
    Request request;

    SlotsOf(*notifier).Slot0(request.lock, request.requested);

    EXPECT_TRUE(request.requested);
    EXPECT_EQ(WaitForSingleObject(static_cast<HandleNotificationAdapter&>(*notifier).GetHandle(), 0), WAIT_OBJECT_0);
}

TEST(AbstractCancelNotifier, IsAnInterfaceWithoutData) {
    static_assert(std::is_abstract_v<AbstractCancelNotifier>);
    static_assert(sizeof(AbstractCancelNotifier) == sizeof(void*));
}

TEST(AbstractCancelNotifier, OnlyDerivedClassesConstructAndDestroyIt) {
    static_assert(!std::is_default_constructible_v<AbstractCancelNotifier>);
    static_assert(!std::is_destructible_v<AbstractCancelNotifier>);
    static_assert(std::has_virtual_destructor_v<Probe>);
}

TEST(AbstractCancelNotifier, CanBeCopiedByEverybodyAndCopiesNothing) {
    static_assert(std::is_copy_assignable_v<AbstractCancelNotifier>);
    static_assert(std::is_copy_constructible_v<Probe>);
    CountingNotifier counted;
    CountingNotifier fresh;
    Request request;
    counted.Notify(request.lock, request.requested);

    static_cast<AbstractCancelNotifier&>(fresh) = static_cast<const AbstractCancelNotifier&>(counted);

    EXPECT_EQ(fresh.Count(), 0);
    EXPECT_EQ(counted.Count(), 1);
}

TEST(AbstractCancelNotifier, IsDestroyedAsItsMostDerivedClass) {
    struct Tracked : Probe {
        explicit Tracked(bool& ended) : m_ended(ended) {}
        ~Tracked() override { m_ended = true; }
        bool& m_ended;
    };
    bool ended = false;
    std::shared_ptr<AbstractCancelNotifier> notifier = std::make_shared<Tracked>(ended);

    notifier.reset();

    EXPECT_TRUE(ended);
}

}  // namespace
