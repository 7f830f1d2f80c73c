#include "concurrency/errors/exceptions.h"

#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>

#include "tests/errors/class_tree.h"
#include "tests/errors/error_records.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

template <typename Kind, typename... Bases>
constexpr bool kIsCaughtAs = (std::is_convertible_v<Kind*, Bases*> && ...);

// A kind of the nine, as a value.
template <typename T>
struct Kind {
    using Type = T;
};

template <typename Action>
void ForEachComKind(Action action) {
    action(Kind<AccessDenied>());
    action(Kind<ElevationRequired>());
    action(Kind<InvalidArg>());
    action(Kind<NoInterface>());
    action(Kind<NotImplemented>());
    action(Kind<OutOfMemory>());
    action(Kind<Pointer>());
    action(Kind<Unexpected>());
}

template <typename Action>
void ForEachKind(Action action) {
    ForEachComKind(action);
    action(Kind<InternalError>());
}

// How many of the nine kinds have a handler that catches a `Thrown`.
template <typename Thrown>
int CountOfKindsThatCatch() {
    int count = 0;
    ForEachKind([&count]<typename T>(Kind<T>) {
        count += IsCaughtAs<T>([] { throw Thrown(ComRecord(1, kSomeGuid)); }) ? 1 : 0;
    });
    return count;
}

TEST(ExceptionKind, HasItsBasesAndNoDataOfItsOwn) {
    ForEachKind([]<typename T>(Kind<T>) {
        static_assert(kIsCaughtAs<T, ExceptionBase, ErrorStorage, std::runtime_error, std::exception>);
        static_assert(sizeof(T) == sizeof(ErrorStorage));
    });
    ForEachComKind([]<typename T>(Kind<T>) { static_assert(kIsCaughtAs<T, ExceptionCOM>); });
    static_assert(!kIsCaughtAs<InternalError, ExceptionCOM>);
    static_assert(!kIsCaughtAs<ExceptionBase, ExceptionCOM>);
}

TEST(ExceptionKind, IsCaughtByItsOwnHandlerAndByNoOtherKinds) {
    ForEachKind([]<typename T>(Kind<T>) {
        EXPECT_TRUE(IsCaughtAs<T>([] { throw T(ComRecord(1, kSomeGuid)); }));
        EXPECT_EQ(CountOfKindsThatCatch<T>(), 1);
    });
    EXPECT_EQ(CountOfKindsThatCatch<ExceptionCOM>(), 0);
    EXPECT_EQ(CountOfKindsThatCatch<ExceptionBase>(), 0);
}

TEST(ExceptionKind, CopiesTheRecordOfEitherForm) {
    ForEachKind([]<typename T>(Kind<T>) {
        const T com(ComRecord(-17, kSomeGuid));
        EXPECT_FALSE(com.isNamed);
        EXPECT_EQ(com.hresult, -17);
        EXPECT_EQ(com.guid, kSomeGuid);
        EXPECT_STREQ(com.message, L"wide text");
        EXPECT_STREQ(com.what(), "narrow text");

        const T named(NamedRecord(kSomeName, 23));
        EXPECT_TRUE(named.isNamed);
        EXPECT_EQ(named.name, kSomeName);
        EXPECT_EQ(named.code, 23U);
        EXPECT_STREQ(named.message, L"wide text");
    });
}

TEST(ExceptionKind, TakesItsOwnIdentityWhateverTheRecordCameFrom) {
    ForEachKind([]<typename T>(Kind<T>) {
        const Unexpected source(L"from another kind");
        const T error(static_cast<const ErrorStorage&>(source));
        const ErrorStorage& seen = error;

        EXPECT_EQ(typeid(seen), typeid(T));
        EXPECT_STREQ(seen.what(), "from another kind");
    });
}

}  // namespace
