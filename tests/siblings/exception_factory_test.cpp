#include "zarvo_orvane_utils/exception_factory.h"

#include <barrier>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "concurrency/errors/error_storage.h"
#include "tests/support/thread.h"

using Orvane::ErrorStorage;
using Orvane::ExceptionBase;
using Orvane::ExceptionFactory;
using testing::SizeIs;
using Zarvo::Test::Thread;

namespace {

constexpr GUID kZeroGuid{};
constexpr GUID kOtherGuid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

template <int kNumber>
struct Numbered : ExceptionBase {
    using ExceptionBase::ExceptionBase;
};

template <int kNumber>
void ThrowNumbered(const ErrorStorage& error) {
    throw Numbered<kNumber>(error);
}

void ThrowNothing(const ErrorStorage&) {}

ErrorStorage ComError(const GUID& guid, std::int32_t hresult) {
    ErrorStorage error;
    error.isNamed = false;
    error.hresult = hresult;
    error.guid = guid;
    return error;
}

ErrorStorage NamedError(const wchar_t* name, std::uint32_t code) {
    ErrorStorage error;
    error.isNamed = true;
    error.name = name;
    error.code = code;
    return error;
}

}  // namespace

// Compiles only while Throw() is not [[noreturn]]: a caller that must survive its return would be compiled without one.
#ifdef __GNUC__
#pragma GCC diagnostic push
#pragma GCC diagnostic error "-Wmissing-noreturn"
void CallThrowAndReturn(const ErrorStorage& error);
void CallThrowAndReturn(const ErrorStorage& error) {
    ExceptionFactory::Throw(error);
}
#pragma GCC diagnostic pop
#endif

TEST(ExceptionFactory, ThrowsWhatIsRegisteredForGuidAndHresult) {
    ExceptionFactory::Register(kZeroGuid, E_POINTER, ThrowNumbered<1>);
    ExceptionFactory::Register(kZeroGuid, E_FAIL, ThrowNumbered<2>);
    ExceptionFactory::Register(kOtherGuid, E_POINTER, ThrowNumbered<3>);
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kZeroGuid, E_POINTER)), Numbered<1>);
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kZeroGuid, E_FAIL)), Numbered<2>);
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kOtherGuid, E_POINTER)), Numbered<3>);
}

TEST(ExceptionFactory, GuidsThatDifferAnywhereAreDifferentKeys) {
    ExceptionFactory::Register(kOtherGuid, E_FAIL, ThrowNumbered<1>);
    for (std::size_t i = 0; i < sizeof(GUID); ++i) {
        GUID guid = kOtherGuid;
        reinterpret_cast<unsigned char*>(&guid)[i] ^= 0x80U;
        EXPECT_THROW(
            {
                try {
                    ExceptionFactory::Throw(ComError(guid, E_FAIL));
                } catch (const Numbered<1>&) {
                    ADD_FAILURE() << "byte " << i;
                }
            },
            ExceptionBase);
    }
}

TEST(ExceptionFactory, ThrowsWhatIsRegisteredForNameAndCode) {
    ExceptionFactory::Register(L"one", 1, ThrowNumbered<1>);
    ExceptionFactory::Register(L"one", 2, ThrowNumbered<2>);
    ExceptionFactory::Register(L"other", 1, ThrowNumbered<3>);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(L"one", 1)), Numbered<1>);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(L"one", 2)), Numbered<2>);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(L"other", 1)), Numbered<3>);
}

TEST(ExceptionFactory, NamesAreComparedByTheirTextAndCopied) {
    wchar_t name[] = L"name";
    ExceptionFactory::Register(name, 1, ThrowNumbered<1>);
    std::wmemset(name, L'x', 4);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(std::wstring(L"name").c_str(), 1)), Numbered<1>);
}

TEST(ExceptionFactory, NullNameIsANameOfItsOwn) {
    ExceptionFactory::Register(nullptr, 1, ThrowNumbered<1>);
    ExceptionFactory::Register(L"", 1, ThrowNumbered<2>);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(nullptr, 1)), Numbered<1>);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(L"", 1)), Numbered<2>);
}

TEST(ExceptionFactory, FormsAreKeptApart) {
    ExceptionFactory::Register(kZeroGuid, 1, ThrowNumbered<1>);
    ExceptionFactory::Register(nullptr, 1, ThrowNumbered<2>);
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kZeroGuid, 1)), Numbered<1>);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(nullptr, 1)), Numbered<2>);
}

TEST(ExceptionFactory, ThrowerGetsTheWholeRecord) {
    ExceptionFactory::Register(kZeroGuid, E_FAIL, ThrowNumbered<1>);
    ErrorStorage error = ComError(kZeroGuid, E_FAIL);
    std::wcscpy(error.message, L"what happened");
    try {
        ExceptionFactory::Throw(error);
        FAIL() << "returned";
    } catch (const ExceptionBase& caught) {
        EXPECT_STREQ(caught.message, L"what happened");
        EXPECT_EQ(caught.hresult, E_FAIL);
    }
}

TEST(ExceptionFactory, UnknownKeyThrowsTheRecordItself) {
    ErrorStorage error = NamedError(L"nobody knows", 7);
    std::wcscpy(error.message, L"what happened");
    try {
        ExceptionFactory::Throw(error);
        FAIL() << "returned";
    } catch (const ExceptionBase& caught) {
        EXPECT_EQ(typeid(caught), typeid(ExceptionBase));
        EXPECT_TRUE(caught.isNamed);
        EXPECT_STREQ(caught.name, L"nobody knows");
        EXPECT_EQ(caught.code, 7u);
        EXPECT_STREQ(caught.message, L"what happened");
    }
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kOtherGuid, E_ABORT)), ExceptionBase);
}

TEST(ExceptionFactory, ZeroIsACodeLikeAnyOther) {
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kZeroGuid, 0)), ExceptionBase);
    ExceptionFactory::Register(kZeroGuid, 0, ThrowNumbered<1>);
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kZeroGuid, 0)), Numbered<1>);
}

TEST(ExceptionFactory, ThrowerThatDoesNothingOrIsNullThrowsTheRecordItself) {
    ExceptionFactory::Register(kZeroGuid, E_FAIL, ThrowNothing);
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kZeroGuid, E_FAIL)), ExceptionBase);
    ExceptionFactory::Register(kZeroGuid, E_FAIL, nullptr);
    EXPECT_THROW(ExceptionFactory::Throw(ComError(kZeroGuid, E_FAIL)), ExceptionBase);
}

TEST(ExceptionFactory, RegisteringTheSameAgainIsHarmlessButCounted) {
    const std::size_t before = ExceptionFactory::Registrations().size();
    for (int i = 0; i < 9; ++i) {
        ExceptionFactory::Register(nullptr, 1, ThrowNumbered<1>);
    }
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(nullptr, 1)), Numbered<1>);
    EXPECT_THAT(ExceptionFactory::Registrations(), SizeIs(before + 9));
}

TEST(ExceptionFactory, LaterThrowerForAKeyWins) {
    ExceptionFactory::Register(nullptr, 1, ThrowNumbered<1>);
    ExceptionFactory::Register(nullptr, 1, ThrowNumbered<2>);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(nullptr, 1)), Numbered<2>);
}

TEST(ExceptionFactory, CallsAreListedInOrder) {
    const auto before = static_cast<std::ptrdiff_t>(ExceptionFactory::Registrations().size());
    ExceptionFactory::Register(kOtherGuid, E_FAIL, ThrowNumbered<1>);
    ExceptionFactory::Register(nullptr, 1, ThrowNumbered<2>);
    ExceptionFactory::Register(L"name", 0x80000000, ThrowNumbered<3>);

    std::vector<ExceptionFactory::Registration> calls = ExceptionFactory::Registrations();
    calls.erase(calls.begin(), calls.begin() + before);
    ASSERT_THAT(calls, SizeIs(3));
    EXPECT_FALSE(calls[0].isNamed);
    EXPECT_EQ(calls[0].guid, kOtherGuid);
    EXPECT_EQ(static_cast<long>(calls[0].code), E_FAIL);
    EXPECT_EQ(calls[0].thrower, ThrowNumbered<1>);
    EXPECT_TRUE(calls[1].isNamed);
    EXPECT_EQ(calls[1].name, std::nullopt);
    EXPECT_EQ(calls[1].code, 1u);
    EXPECT_TRUE(calls[2].isNamed);
    EXPECT_EQ(calls[2].name, L"name");
    EXPECT_EQ(calls[2].code, 0x80000000u);
    EXPECT_EQ(calls[2].thrower, ThrowNumbered<3>);
}

TEST(ExceptionFactory, AnotherDllRegistersAndThrowsInItsStaticConstructor) {
    HMODULE const dll = LoadLibraryW(L"exception_factory_test_dll.dll");
    ASSERT_NE(dll, nullptr);
    using ThrownAtLoad = unsigned (*)();
    const auto thrownAtLoad =
        reinterpret_cast<ThrownAtLoad>(reinterpret_cast<void*>(GetProcAddress(dll, "ThrownAtLoad")));
    EXPECT_EQ(thrownAtLoad(), 3u);
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(L"registered at load", 3)), unsigned);
}

// A lock held around the thrower would end this thread's or the other's progress here.
TEST(ExceptionFactory, ThrowerRunsWithoutALock) {
    ExceptionFactory::Register(nullptr, 1, [](const ErrorStorage& error) {
        Thread([] { ExceptionFactory::Register(nullptr, 2, ThrowNumbered<2>); }).join();
        ExceptionFactory::Throw(NamedError(nullptr, error.code + 1));
    });
    EXPECT_THROW(ExceptionFactory::Throw(NamedError(nullptr, 1)), Numbered<2>);
}

TEST(ExceptionFactory, ThreadsRegisterAndThrowAtTheSameTime) {
    constexpr unsigned kThreads = 4;
    constexpr unsigned kCalls = 3000;
    const std::size_t before = ExceptionFactory::Registrations().size();
    std::barrier start(kThreads);
    std::vector<Thread> threads;
    for (unsigned thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&start, thread] {
            const std::wstring name = L"thread " + std::to_wstring(thread);
            start.arrive_and_wait();
            for (unsigned call = 0; call < kCalls; ++call) {
                ExceptionFactory::Register(name.c_str(), call, ThrowNumbered<1>);
            }
            EXPECT_THROW(ExceptionFactory::Throw(NamedError(name.c_str(), kCalls / 2)), Numbered<1>);
        });
    }
    for (Thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(ExceptionFactory::Registrations(), SizeIs(before + kThreads * kCalls));
}
