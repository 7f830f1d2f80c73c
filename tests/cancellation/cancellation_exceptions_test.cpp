#include "concurrency/cancellation/cancellation_exceptions.h"

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>

#include "tests/cancellation/rethrown_kind.h"
#include "tests/errors/class_tree.h"
#include "tests/support/allocations.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

template <typename Exception>
void ThrowDefault() {
    throw Exception();
}

// The most derived object behind a reference to any of its bases.
template <typename Base>
const void* Whole(const Base& exception) {
    return dynamic_cast<const void*>(&exception);
}

TEST(CancelRequestedException, SaysItsName) {
    EXPECT_STREQ(CancelRequestedException().what(), "CancelRequestedException");
}

TEST(CancelRequestedException, SaysItsNameWhenItIsSeenAsStandardException) {
    try {
        throw CancelRequestedException();
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "CancelRequestedException");
    }
}

TEST(CancelRequestedException, CopySaysItsNameWhenTheOriginalIsGone) {
    auto original = std::make_unique<CancelRequestedException>();
    CancelRequestedException copy(*original);
    CancelRequestedException assigned;
    assigned = *original;
    original.reset();

    EXPECT_STREQ(copy.what(), "CancelRequestedException");
    EXPECT_STREQ(assigned.what(), "CancelRequestedException");
}

TEST(CancelRequestedException, IsAStandardExceptionAndNothingElse) {
    static_assert(!std::is_base_of_v<CloneableException, CancelRequestedException>);
    EXPECT_TRUE(IsCaughtAs<std::exception>(ThrowDefault<CancelRequestedException>));
    EXPECT_FALSE(IsCaughtAs<std::runtime_error>(ThrowDefault<CancelRequestedException>));
    EXPECT_FALSE(IsCaughtAs<CloneableException>(ThrowDefault<CancelRequestedException>));
    EXPECT_FALSE(IsCaughtAs<ThreadException>(ThrowDefault<CancelRequestedException>));
    EXPECT_FALSE(IsCaughtAs<CancelledException>(ThrowDefault<CancelRequestedException>));
}

TEST(ThreadException, SaysWhatAStandardExceptionWithoutAMessageSays) {
    const ThreadException error;
    const ThreadException copy(error);

    EXPECT_STREQ(error.what(), std::exception().what());
    EXPECT_STREQ(copy.what(), error.what());
}

TEST(ThreadException, IsAStandardExceptionAndVirtuallyCloneable) {
    static_assert(kIsVirtualBase<CloneableException, ThreadException>);
    EXPECT_TRUE(IsCaughtAs<std::exception>(ThrowDefault<ThreadException>));
    EXPECT_TRUE(IsCaughtAs<CloneableException>(ThrowDefault<ThreadException>));
    EXPECT_FALSE(IsCaughtAs<std::runtime_error>(ThrowDefault<ThreadException>));
    EXPECT_FALSE(IsCaughtAs<CancelledException>(ThrowDefault<ThreadException>));
    EXPECT_FALSE(IsCaughtAs<CancelRequestedException>(ThrowDefault<ThreadException>));
}

TEST(CancelledException, SaysWhatAStandardExceptionWithoutAMessageSays) {
    EXPECT_STREQ(CancelledException().what(), std::exception().what());
}

TEST(CancelledException, CaughtAsEachOfItsBasesIsTheSameObject) {
    static_assert(kIsVirtualBase<CloneableException, CancelledException>);
    const void* asThreadException = nullptr;
    const void* asCloneableException = nullptr;
    const void* asStandardException = nullptr;
    try {
        try {
            try {
                throw CancelledException();
            } catch (const ThreadException& error) {
                asThreadException = Whole(error);
                throw;
            }
        } catch (const CloneableException& error) {
            asCloneableException = Whole(error);
            throw;
        }
    } catch (const std::exception& error) {
        asStandardException = Whole(error);
        EXPECT_EQ(typeid(error), typeid(CancelledException));
    }

    EXPECT_NE(asThreadException, nullptr);
    EXPECT_EQ(asThreadException, asCloneableException);
    EXPECT_EQ(asThreadException, asStandardException);
}

TEST(CancelledException, IsNotACancelRequestedException) {
    EXPECT_FALSE(IsCaughtAs<CancelRequestedException>(ThrowDefault<CancelledException>));
    EXPECT_TRUE(IsCaughtAs<CancelledException>(ThrowDefault<CancelledException>));
}

template <typename Exception>
class ClonedException : public testing::Test {};
using EveryPlainCloneable = testing::Types<ThreadException, CancelledException>;
TYPED_TEST_SUITE(ClonedException, EveryPlainCloneable);

TYPED_TEST(ClonedException, IsANewObjectOfTheSameTypeWithOneOwner) {
    const TypeParam original;
    const std::shared_ptr<CloneableException> clone = original.Clone();

    ASSERT_NE(clone, nullptr);
    EXPECT_NE(Whole(*clone), Whole(original));
    const CloneableException& seen = *clone;
    EXPECT_EQ(typeid(seen), typeid(TypeParam));
    EXPECT_EQ(clone.use_count(), 1);
}

TYPED_TEST(ClonedException, KeepsItsTypeWhenItIsClonedThroughTheInterface) {
    const TypeParam original;
    const CloneableException& interface = original;
    const std::shared_ptr<CloneableException> cloneOfClone = interface.Clone()->Clone();

    const CloneableException& seen = *cloneOfClone;
    EXPECT_EQ(typeid(seen), typeid(TypeParam));
}

TYPED_TEST(ClonedException, OutlivesItsOriginal) {
    auto original = std::make_unique<TypeParam>();
    const std::shared_ptr<CloneableException> clone = original->Clone();
    original.reset();

    EXPECT_EQ(KindRethrownBy(*clone), typeid(TypeParam));
    EXPECT_STREQ(dynamic_cast<const std::exception&>(*clone).what(), std::exception().what());
}

TYPED_TEST(ClonedException, RethrowThrowsACopyOfTheMostDerivedType) {
    const TypeParam original;
    const std::shared_ptr<CloneableException> clone = original.Clone();

    try {
        clone->Rethrow();
        FAIL() << "returned";
    } catch (const CloneableException& thrown) {
        EXPECT_EQ(typeid(thrown), typeid(TypeParam));
        EXPECT_NE(Whole(thrown), Whole(*clone));
    }
    EXPECT_EQ(KindRethrownBy(original), typeid(TypeParam));
}

TYPED_TEST(ClonedException, CloneWithoutMemoryIsBadAlloc) {
    const TypeParam original;
    const NoMemory noMemory;

    EXPECT_THROW(original.Clone(), std::bad_alloc);
}

TEST(CancelledException, RethrownByItsCloneIsCancelledAndNotMerelyThreadException) {
    const CancelledException original;
    const ThreadException& asBase = original;
    const auto clone = asBase.Clone();

    EXPECT_TRUE(IsCaughtAs<CancelledException>([&] { clone->Rethrow(); }));
}

// The operations in the order in which other components call them, declared apart from the library.
class CloneableSlots {
  public:
    virtual std::shared_ptr<CloneableException> Slot0() const = 0;
    virtual void Slot1() const = 0;
    virtual ~CloneableSlots() = default;
};

CloneableSlots& SlotsOf(CloneableException& exception) {
    return *reinterpret_cast<CloneableSlots*>(static_cast<void*>(&exception));
}

struct TrackedException : ThreadException {
    explicit TrackedException(int& ended) : m_ended(ended) {}
    ~TrackedException() override { ++m_ended; }
    int& m_ended;
};

TEST(CloneableException, CloneIsTheFirstSlot) {
    CancelledException exception;

    const auto clone = SlotsOf(exception).Slot0();

    ASSERT_NE(clone, nullptr);
    const CloneableException& seen = *clone;
    EXPECT_EQ(typeid(seen), typeid(CancelledException));
}

TEST(CloneableException, RethrowIsTheSecondSlot) {
    CancelledException exception;

    EXPECT_TRUE(IsCaughtAs<CancelledException>([&] { SlotsOf(exception).Slot1(); }));
}

TEST(CloneableException, DestructorIsTheThirdSlot) {
    int ended = 0;
    CloneableException* const exception = new TrackedException(ended);

    delete &SlotsOf(*exception);

    EXPECT_EQ(ended, 1);
}

TEST(CloneableException, IsAnInterfaceWithoutData) {
    static_assert(std::is_abstract_v<CloneableException>);
    static_assert(std::has_virtual_destructor_v<CloneableException>);
    static_assert(sizeof(CloneableException) == sizeof(void*));
}

}  // namespace
