// The exception classes keep their meaning across modules: each is thrown in one, caught by any of its bases in the
// other.
#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/errors/exceptions.h"
#include "tests/errors/class_tree.h"
#include "tests/errors/error_records.h"
#include "tests/errors/exceptions_across_modules_test_dll.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

constexpr Handlers kOfComKinds{.standardException = true,
                               .runtimeError = true,
                               .errorStorage = true,
                               .exceptionBase = true,
                               .exceptionCom = true,
                               .cloneableException = false,
                               .threadException = false};
constexpr Handlers kOfInternalError{.standardException = true,
                                    .runtimeError = true,
                                    .errorStorage = true,
                                    .exceptionBase = true,
                                    .exceptionCom = false,
                                    .cloneableException = false,
                                    .threadException = false};
constexpr Handlers kOfCancelRequested{.standardException = true,
                                      .runtimeError = false,
                                      .errorStorage = false,
                                      .exceptionBase = false,
                                      .exceptionCom = false,
                                      .cloneableException = false,
                                      .threadException = false};
constexpr Handlers kOfCancelled{.standardException = true,
                                .runtimeError = false,
                                .errorStorage = false,
                                .exceptionBase = false,
                                .exceptionCom = false,
                                .cloneableException = true,
                                .threadException = true};
constexpr Handlers kOfCloneableExceptionBase{.standardException = true,
                                             .runtimeError = true,
                                             .errorStorage = true,
                                             .exceptionBase = true,
                                             .exceptionCom = false,
                                             .cloneableException = true,
                                             .threadException = false};

class ExceptionsAcrossModules : public testing::Test {
  protected:
    ExceptionsAcrossModules() : m_module(LoadLibraryW(L"exceptions_across_modules_test_dll.dll")) {
        Find(m_throw, "ThrowInTheOtherModule");
        Find(m_catch, "CatchInTheOtherModule");
    }
    ~ExceptionsAcrossModules() override { FreeLibrary(m_module); }

    void SetUp() override {
        ASSERT_NE(m_throw, nullptr);
        ASSERT_NE(m_catch, nullptr);
    }

    // Which handlers of this program catch what the other module throws.
    Handlers CaughtHere(ThrownKind kind) const {
        const auto action = [this, kind] { m_throw(kind); };
        return {
            .standardException = IsCaughtAs<std::exception>(action),
            .runtimeError = IsCaughtAs<std::runtime_error>(action),
            .errorStorage = IsCaughtAs<ErrorStorage>(action),
            .exceptionBase = IsCaughtAs<ExceptionBase>(action),
            .exceptionCom = IsCaughtAs<ExceptionCOM>(action),
            .cloneableException = IsCaughtAs<CloneableException>(action),
            .threadException = IsCaughtAs<ThreadException>(action),
        };
    }

    template <typename Function>
    void Find(Function& function, const char* name) {
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(m_module, name)));
    }

    HMODULE m_module;
    ThrowFunction m_throw = nullptr;
    CatchFunction m_catch = nullptr;
};

TEST_F(ExceptionsAcrossModules, ComKindsAreCaughtByEachOfTheirBases) {
    EXPECT_EQ(CaughtHere(ThrownKind::kPointer), kOfComKinds);
    EXPECT_EQ(m_catch([] { throw Pointer(ComRecord(42, kSomeGuid)); }), kOfComKinds);
}

TEST_F(ExceptionsAcrossModules, InternalErrorIsCaughtByEachOfItsBases) {
    EXPECT_EQ(CaughtHere(ThrownKind::kInternalError), kOfInternalError);
    EXPECT_EQ(m_catch([] { throw InternalError(NamedRecord(kSomeName, 42)); }), kOfInternalError);
}

TEST_F(ExceptionsAcrossModules, CancelRequestedExceptionIsCaughtAsStandardExceptionOnly) {
    EXPECT_EQ(CaughtHere(ThrownKind::kCancelRequested), kOfCancelRequested);
    EXPECT_EQ(m_catch([] { throw CancelRequestedException(); }), kOfCancelRequested);
}

TEST_F(ExceptionsAcrossModules, CancelledExceptionIsCaughtThroughItsVirtualBaseToo) {
    EXPECT_EQ(CaughtHere(ThrownKind::kCancelled), kOfCancelled);
    EXPECT_EQ(m_catch([] { throw CancelledException(); }), kOfCancelled);
}

TEST_F(ExceptionsAcrossModules, CloneableExceptionBaseIsCaughtThroughItsVirtualBaseToo) {
    EXPECT_EQ(CaughtHere(ThrownKind::kCloneableExceptionBase), kOfCloneableExceptionBase);
    EXPECT_EQ(m_catch([] { throw CloneableExceptionBase(Pointer(ComRecord(42, kSomeGuid))); }),
              kOfCloneableExceptionBase);
}

TEST_F(ExceptionsAcrossModules, RecordArrivesWhole) {
    try {
        m_throw(ThrownKind::kPointer);
        FAIL() << "nothing was thrown";
    } catch (const Pointer& error) {
        EXPECT_EQ(error.hresult, 42);
        EXPECT_EQ(error.guid, kSomeGuid);
        EXPECT_STREQ(error.message, L"wide text");
        EXPECT_STREQ(error.what(), "narrow text");
    }
}

}  // namespace
