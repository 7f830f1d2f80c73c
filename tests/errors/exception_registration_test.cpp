// What the exception factory was told while the library loaded, and what it throws because of it. This program links
// the library's DLL and registers nothing itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <typeinfo>
#include <vector>

#include "concurrency/errors/exceptions.h"
#include "tests/errors/class_tree.h"
#include "tests/errors/error_records.h"
#include "tests/support/child_process.h"
#include "zarvo_orvane_utils/exception_factory.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

struct Key {
    bool isNamed;
    std::uint32_t code;
    const std::type_info& kind;
};

// In the order of registration.
const Key kKeys[] = {
    {false, 0x80070005, typeid(AccessDenied)}, {false, 0x800702E4, typeid(ElevationRequired)},
    {true, 1, typeid(InternalError)},          {false, 0x80070057, typeid(InvalidArg)},
    {false, 0x80004002, typeid(NoInterface)},  {false, 0x80004001, typeid(NotImplemented)},
    {false, 0x8007000E, typeid(OutOfMemory)},  {false, 0x80004003, typeid(Pointer)},
    {false, 0x8000FFFF, typeid(Unexpected)},
};
constexpr std::size_t kKeyCount = std::size(kKeys);

ErrorStorage RecordOf(const Key& key) {
    return key.isNamed ? NamedRecord(nullptr, key.code) : ComRecord(static_cast<long>(key.code), kZeroGuid);
}

// The most derived type that the factory throws for the record.
const std::type_info& KindThrownFor(const ErrorStorage& record) {
    try {
        ExceptionFactory::Throw(record);
    } catch (const ErrorStorage& error) {
        return typeid(error);
    }
    return typeid(void);
}

TEST(ExceptionRegistration, LibraryRegisters81TimesAtLoad) {
    EXPECT_EQ(ExceptionFactory::Registrations().size(), 81U);
}

TEST(ExceptionRegistration, NineKeysComeInTheirOrder) {
    const auto registrations = ExceptionFactory::Registrations();
    ASSERT_GE(registrations.size(), kKeyCount);

    for (std::size_t index = 0; index < kKeyCount; ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(registrations[index].isNamed, kKeys[index].isNamed);
        EXPECT_EQ(static_cast<std::uint32_t>(registrations[index].code), kKeys[index].code);
        EXPECT_FALSE(registrations[index].name.has_value());
        EXPECT_TRUE(registrations[index].isNamed || registrations[index].guid == kZeroGuid);
    }
}

TEST(ExceptionRegistration, NineRunsOfTheSameNineKeysFollowOneAnother) {
    const auto registrations = ExceptionFactory::Registrations();
    ASSERT_EQ(registrations.size(), 9 * kKeyCount);

    for (std::size_t index = kKeyCount; index < registrations.size(); ++index) {
        SCOPED_TRACE(index);
        const auto& first = registrations[index % kKeyCount];
        EXPECT_EQ(registrations[index].isNamed, first.isNamed);
        EXPECT_EQ(registrations[index].code, first.code);
        EXPECT_EQ(registrations[index].guid, first.guid);
        EXPECT_EQ(registrations[index].name, first.name);
        EXPECT_EQ(registrations[index].thrower, first.thrower);
    }
}

TEST(ExceptionRegistration, EachThrowerThrowsTheKindOfItsKeyWithTheRecordItIsGiven) {
    const auto registrations = ExceptionFactory::Registrations();
    ASSERT_GE(registrations.size(), kKeyCount);

    for (std::size_t index = 0; index < kKeyCount; ++index) {
        SCOPED_TRACE(kKeys[index].kind.name());
        try {
            registrations[index].thrower(ComRecord(12345, kSomeGuid));
            ADD_FAILURE() << "returned";
        } catch (const ErrorStorage& error) {
            EXPECT_EQ(typeid(error), kKeys[index].kind);
            EXPECT_EQ(error.hresult, 12345);
            EXPECT_EQ(error.guid, kSomeGuid);
            EXPECT_STREQ(error.message, L"wide text");
        }
    }
}

TEST(ExceptionRegistration, FactoryThrowsTheKindOfEachKey) {
    for (const Key& key : kKeys) {
        EXPECT_EQ(KindThrownFor(RecordOf(key)), key.kind) << key.kind.name();
    }
}

TEST(ExceptionRegistration, UsingTheClassesElsewhereRegistersNothing) {
    const Unexpected error(L"used in this program");

    EXPECT_EQ(ExceptionFactory::Registrations().size(), 81U);
    EXPECT_TRUE(IsCaughtAs<Unexpected>([&] { throw error; }));
}

TEST(ExceptionRegistration, WithoutMemoryEndsTheProcessWhileTheLibraryIsLoaded) {
    const ChildResult child = RunChild("exception_registration_test_child");
    EXPECT_EQ(child.exitCode, kTerminated);
    EXPECT_EQ(child.standardOutput, "");
    EXPECT_THAT(child.standardError,
                testing::HasSubstr("ZarvoConcurrency ends the process: the library cannot register its "
                                   "exception kinds;"));
    EXPECT_THAT(child.standardError, testing::HasSubstr("std::bad_alloc"));
}

}  // namespace
