#include "concurrency/errors/error_storage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <type_traits>

#include "tests/errors/error_records.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

template <typename Field>
std::ptrdiff_t OffsetOf(const ErrorStorage& error, const Field& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&error);
}

void Fill(ErrorStorage& error, wchar_t character) {
    std::fill(std::begin(error.message), std::end(error.message), character);
}

TEST(ErrorStorage, SaysMessageNotSpecifiedUntilItHasOne) {
    const ErrorStorage error;

    EXPECT_STREQ(error.what(), "Message not specified");
    EXPECT_STREQ(error.message, L"");
}

TEST(ErrorStorage, BeginsInTheComFormWithTheCodeOfSuccessAndNoGuid) {
    const ErrorStorage error;

    EXPECT_FALSE(error.isNamed);
    EXPECT_EQ(error.hresult, 0);
    EXPECT_EQ(error.guid, kZeroGuid);
}

TEST(ErrorStorage, HoldsItsFieldsInTheirOrder) {
    const ErrorStorage error;

    EXPECT_GE(OffsetOf(error, error.isNamed), static_cast<std::ptrdiff_t>(sizeof(std::runtime_error)));
    EXPECT_LT(OffsetOf(error, error.isNamed), OffsetOf(error, error.message));
    EXPECT_LT(OffsetOf(error, error.message), OffsetOf(error, error.hresult));
    EXPECT_LT(OffsetOf(error, error.hresult), OffsetOf(error, error.guid));
    EXPECT_LT(OffsetOf(error, error.name), OffsetOf(error, error.code));
}

TEST(ErrorStorage, KeepsBothFormsInTheSameStorage) {
    const ErrorStorage error;

    EXPECT_EQ(OffsetOf(error, error.hresult), OffsetOf(error, error.name));
    static_assert(std::is_same_v<decltype(error.hresult), std::int32_t>);
    static_assert(std::is_same_v<decltype(error.name), const wchar_t*>);
    static_assert(std::is_same_v<decltype(error.code), std::uint32_t>);
    static_assert(sizeof(error.guid) == 16);
}

TEST(ErrorStorage, HasRoomFor1024CharactersWithTheTerminator) {
    static_assert(sizeof(ErrorStorage::message) == 1024 * sizeof(wchar_t));
    ErrorStorage error;
    SetMessages(error, "narrow", std::wstring(1023, L'x'));

    const ErrorStorage copy(error);

    EXPECT_EQ(copy.message, std::wstring(1023, L'x'));
}

TEST(ErrorStorage, CopyOfAComRecordKeepsHresultAndGuid) {
    const ErrorStorage error = ComRecord(-5, kSomeGuid);

    const ErrorStorage copy(error);

    EXPECT_FALSE(copy.isNamed);
    EXPECT_EQ(copy.hresult, -5);
    EXPECT_EQ(copy.guid, kSomeGuid);
}

TEST(ErrorStorage, CopyOfANamedRecordKeepsNameAndCode) {
    const ErrorStorage error = NamedRecord(kSomeName, 4'000'000'000U);

    const ErrorStorage copy(error);

    EXPECT_TRUE(copy.isNamed);
    EXPECT_EQ(copy.name, kSomeName);  // the pointer: the name is borrowed
    EXPECT_EQ(copy.code, 4'000'000'000U);
}

TEST(ErrorStorage, CopyKeepsANullName) {
    const ErrorStorage copy(NamedRecord(nullptr, 1));

    EXPECT_TRUE(copy.isNamed);
    EXPECT_EQ(copy.name, nullptr);
}

TEST(ErrorStorage, CopyKeepsBothMessages) {
    const ErrorStorage error = ComRecord(1, kSomeGuid);

    const ErrorStorage copy(error);

    EXPECT_STREQ(copy.what(), "narrow text");
    EXPECT_STREQ(copy.message, L"wide text");
}

TEST(ErrorStorage, CopyStandsWithoutItsOriginal) {
    auto* const error = new ErrorStorage(ComRecord(1, kSomeGuid));
    const ErrorStorage copy(*error);
    SetMessages(*error, "other", L"other");
    delete error;

    EXPECT_STREQ(copy.what(), "narrow text");
    EXPECT_STREQ(copy.message, L"wide text");
}

// A message without a terminator must not lead the copy beyond its end.
TEST(ErrorStorage, CopyOfAMessageWithoutTerminatorIsBoundedAndTerminated) {
    ErrorStorage error = ComRecord(7, kSomeGuid);
    Fill(error, L'y');

    const ErrorStorage copy(error);

    EXPECT_EQ(copy.message, std::wstring(1023, L'y'));
    EXPECT_EQ(copy.hresult, 7);
}

// A kilobyte or more for a text of some words would make every exception slow.
TEST(ErrorStorage, CopyTakesNothingFromBehindTheTerminator) {
    ErrorStorage error = ComRecord(7, kSomeGuid);
    Fill(error, L'y');
    ErrorStorage words;
    Fill(words, L'x');
    SetMessages(words, "two words", L"two words");
    ErrorStorage nothing;
    Fill(nothing, L'x');
    nothing.message[0] = L'\0';

    error = words;
    EXPECT_STREQ(error.message, L"two words");
    EXPECT_EQ(error.message[10], L'y');

    error = nothing;
    EXPECT_EQ(error.message[1], L'w');
}

TEST(ErrorStorage, AssignmentTakesOverTheOtherForm) {
    ErrorStorage named = NamedRecord(kSomeName, 3);
    ErrorStorage com = ComRecord(-5, kSomeGuid);

    named = com;
    EXPECT_FALSE(named.isNamed);
    EXPECT_EQ(named.hresult, -5);
    EXPECT_EQ(named.guid, kSomeGuid);

    com = NamedRecord(kSomeName, 3);
    EXPECT_TRUE(com.isNamed);
    EXPECT_EQ(com.name, kSomeName);
    EXPECT_EQ(com.code, 3U);
}

TEST(ErrorStorage, AssignmentReplacesBothMessages) {
    ErrorStorage error = ComRecord(1, kSomeGuid);
    ErrorStorage other = ComRecord(2, kSomeGuid);
    SetMessages(other, "short", L"s");

    error = other;

    EXPECT_STREQ(error.what(), "short");
    EXPECT_STREQ(error.message, L"s");
}

TEST(ErrorStorage, AssignmentToItselfChangesNothing) {
    ErrorStorage error = NamedRecord(kSomeName, 3);
    const ErrorStorage& same = error;

    error = same;

    EXPECT_EQ(error.name, kSomeName);
    EXPECT_STREQ(error.message, L"wide text");
}

TEST(ErrorStorage, IsARuntimeError) {
    static_assert(std::is_base_of_v<std::runtime_error, ErrorStorage>);
    static_assert(std::is_base_of_v<ErrorStorage, ExceptionBase>);
    static_assert(sizeof(ExceptionBase) == sizeof(ErrorStorage));

    const ExceptionBase error(NamedRecord(kSomeName, 9));

    EXPECT_EQ(error.name, kSomeName);
    EXPECT_EQ(error.code, 9U);
    EXPECT_STREQ(error.what(), "narrow text");
}

}  // namespace
