#include "concurrency/sync/lock_exception.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

constexpr const char* kText = "the lock is stuck";

// The text that a handler for `Base` sees.
template <typename Base>
std::string TextCaughtAs(const CloneableException& exception) {
    try {
        exception.Rethrow();
    } catch (const Base& caught) {
        return dynamic_cast<const std::exception&>(caught).what();
    }
    return "nothing was thrown";
}

TEST(LockException, IsACloneableStandardExceptionAndNothingElse) {
    EXPECT_TRUE((std::is_base_of_v<std::exception, LockException>));
    EXPECT_TRUE((std::is_convertible_v<LockException*, CloneableException*>));
    EXPECT_FALSE((std::is_base_of_v<std::runtime_error, LockException>));
    EXPECT_TRUE(std::has_virtual_destructor_v<LockException>);
    EXPECT_FALSE(std::is_default_constructible_v<LockException>);
}

// A class that inherits twice has one cloneable part.
TEST(LockException, SharesItsCloneablePartWithOtherBases) {
    struct Other : virtual CloneableException {};
    struct Both : LockException, Other {
        Both() : LockException(kText) {}
        std::shared_ptr<CloneableException> Clone() const override { return nullptr; }
        void Rethrow() const override {}
    };
    Both both;

    EXPECT_EQ(static_cast<CloneableException*>(static_cast<LockException*>(&both)),
              static_cast<CloneableException*>(static_cast<Other*>(&both)));
}

TEST(LockException, OwnsACopyOfItsMessage) {
    std::string text = kText;
    const LockException exception(text.c_str());
    text.assign(text.size(), '#');

    EXPECT_STREQ(exception.what(), kText);
}

TEST(LockException, KeepsItsMessageWhenTheOriginalOfACopyIsGone) {
    auto original = std::make_unique<LockException>(kText);
    const LockException copy = *original;
    LockException assigned("another text");
    assigned = *original;
    original.reset();

    EXPECT_STREQ(copy.what(), kText);
    EXPECT_STREQ(assigned.what(), kText);
}

TEST(LockException, ClonesIntoAnObjectOfItsOwnType) {
    const LockException exception(kText);
    const std::shared_ptr<CloneableException> clone = exception.Clone();

    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone.use_count(), 1);
    const CloneableException& itself = *clone;
    EXPECT_EQ(typeid(itself), typeid(LockException));
    EXPECT_NE(dynamic_cast<const void*>(clone.get()), static_cast<const void*>(&exception));
}

TEST(LockException, IsCaughtAsEachOfItsBasesWithTheSameTextWhenItsCloneIsRethrown) {
    std::shared_ptr<CloneableException> clone;
    {
        const LockException exception(kText);
        clone = exception.Clone();
    }

    EXPECT_EQ(TextCaughtAs<LockException>(*clone), kText);
    EXPECT_EQ(TextCaughtAs<CloneableException>(*clone), kText);
    EXPECT_EQ(TextCaughtAs<std::exception>(*clone), kText);
}

TEST(LockException, IsRethrownAsACopyOfExactlyItsType) {
    const LockException exception(kText);
    try {
        exception.Rethrow();
        FAIL() << "nothing was thrown";
    } catch (const LockException& caught) {
        EXPECT_EQ(typeid(caught), typeid(LockException));
        EXPECT_NE(&caught, &exception);
    }
}

TEST(LockException, ThrownInATaskReachesTheReaderOfItsOutcome) {
    TaskThread task([] { throw LockException(kText); });

    EXPECT_TRUE(task.EndedWithError());
    try {
        task.Future()->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const LockException& caught) {
        EXPECT_STREQ(caught.what(), kText);
    }
}

}  // namespace
