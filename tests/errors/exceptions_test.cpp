#include "concurrency/errors/exceptions.h"

#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <typeinfo>

#include "tests/errors/class_tree.h"
#include "tests/errors/error_records.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

using ConcreteKinds = std::tuple<AccessDenied, ElevationRequired, InternalError, InvalidArg, NoInterface,
                                 NotImplemented, OutOfMemory, Pointer, Unexpected>;

template <typename Kind>
void ThrowAs() {
    throw Kind(ComRecord(1, kSomeGuid));
}

// How many of the nine kinds have a handler that catches a `Kind`.
template <typename Kind>
int CountOfKindsThatCatch() {
    int count = 0;
    const auto countOne = [&count]<typename Other>(const Other*) { count += IsCaughtAs<Other>(ThrowAs<Kind>) ? 1 : 0; };
    [&]<typename... Others>(const std::tuple<Others...>*) {
        (countOne(static_cast<const Others*>(nullptr)), ...);
    }(static_cast<const ConcreteKinds*>(nullptr));
    return count;
}

template <typename Kind>
class ExceptionKind : public testing::Test {};
using EveryKind = testing::Types<AccessDenied, ElevationRequired, InternalError, InvalidArg, NoInterface,
                                 NotImplemented, OutOfMemory, Pointer, Unexpected>;
TYPED_TEST_SUITE(ExceptionKind, EveryKind);

TYPED_TEST(ExceptionKind, IsCaughtAsExceptionBase) {
    EXPECT_TRUE(IsCaughtAs<ExceptionBase>(ThrowAs<TypeParam>));
}

TYPED_TEST(ExceptionKind, IsCaughtAsErrorStorage) {
    EXPECT_TRUE(IsCaughtAs<ErrorStorage>(ThrowAs<TypeParam>));
}

TYPED_TEST(ExceptionKind, IsCaughtAsRuntimeError) {
    EXPECT_TRUE(IsCaughtAs<std::runtime_error>(ThrowAs<TypeParam>));
}

TYPED_TEST(ExceptionKind, IsCaughtAsStandardException) {
    EXPECT_TRUE(IsCaughtAs<std::exception>(ThrowAs<TypeParam>));
}

TYPED_TEST(ExceptionKind, IsCaughtByItsOwnHandlerAndByNoOtherKinds) {
    EXPECT_TRUE(IsCaughtAs<TypeParam>(ThrowAs<TypeParam>));
    EXPECT_EQ(CountOfKindsThatCatch<TypeParam>(), 1);
}

TYPED_TEST(ExceptionKind, AddsNoDataToTheRecord) {
    static_assert(sizeof(TypeParam) == sizeof(ErrorStorage));
}

TYPED_TEST(ExceptionKind, CopiesTheRecordOfTheComForm) {
    const TypeParam error(ComRecord(-17, kSomeGuid));

    EXPECT_FALSE(error.isNamed);
    EXPECT_EQ(error.hresult, -17);
    EXPECT_EQ(error.guid, kSomeGuid);
    EXPECT_STREQ(error.message, L"wide text");
    EXPECT_STREQ(error.what(), "narrow text");
}

TYPED_TEST(ExceptionKind, CopiesTheRecordOfTheNamedForm) {
    const TypeParam error(NamedRecord(kSomeName, 23));

    EXPECT_TRUE(error.isNamed);
    EXPECT_EQ(error.name, kSomeName);
    EXPECT_EQ(error.code, 23U);
    EXPECT_STREQ(error.message, L"wide text");
    EXPECT_STREQ(error.what(), "narrow text");
}

TYPED_TEST(ExceptionKind, TakesItsOwnIdentityWhateverTheRecordCameFrom) {
    const Unexpected source(L"from another kind");
    const TypeParam error(static_cast<const ErrorStorage&>(source));
    const ErrorStorage& seen = error;

    EXPECT_EQ(typeid(seen), typeid(TypeParam));
    EXPECT_STREQ(seen.what(), "from another kind");
}

template <typename Kind>
class ComKind : public testing::Test {};
using EveryComKind = testing::Types<AccessDenied, ElevationRequired, InvalidArg, NoInterface, NotImplemented,
                                    OutOfMemory, Pointer, Unexpected>;
TYPED_TEST_SUITE(ComKind, EveryComKind);

TYPED_TEST(ComKind, IsCaughtAsExceptionCom) {
    EXPECT_TRUE(IsCaughtAs<ExceptionCOM>(ThrowAs<TypeParam>));
}

TEST(ExceptionCOM, HandlerDoesNotCatchInternalError) {
    EXPECT_FALSE(IsCaughtAs<ExceptionCOM>(ThrowAs<InternalError>));
}

TEST(ExceptionCOM, IsCaughtAsEachOfItsBasesAndByNoKind) {
    EXPECT_TRUE(IsCaughtAs<ExceptionCOM>(ThrowAs<ExceptionCOM>));
    EXPECT_TRUE(IsCaughtAs<ExceptionBase>(ThrowAs<ExceptionCOM>));
    EXPECT_TRUE(IsCaughtAs<ErrorStorage>(ThrowAs<ExceptionCOM>));
    EXPECT_EQ(CountOfKindsThatCatch<ExceptionCOM>(), 0);
}

TEST(ExceptionBase, HandlerOfAKindDoesNotCatchIt) {
    EXPECT_EQ(CountOfKindsThatCatch<ExceptionBase>(), 0);
    EXPECT_FALSE(IsCaughtAs<ExceptionCOM>(ThrowAs<ExceptionBase>));
}

}  // namespace
