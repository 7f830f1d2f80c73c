#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <typeinfo>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/tasks/make_task.h"
#include "tests/cancellation/rethrown_kind.h"
#include "tests/errors/class_tree.h"
#include "tests/errors/error_records.h"
#include "tests/support/allocations.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr long kEPointer = static_cast<long>(0x80004003);

void Throw(const CloneableExceptionBase& error) {
    throw error;
}

TEST(CloneableExceptionBase, IsAnExceptionBaseAndVirtuallyCloneable) {
    static_assert(kIsVirtualBase<CloneableException, CloneableExceptionBase>);
    const auto action = [] { Throw(CloneableExceptionBase(Pointer(ComRecord(1, kSomeGuid)))); };

    EXPECT_TRUE(IsCaughtAs<ExceptionBase>(action));
    EXPECT_TRUE(IsCaughtAs<ErrorStorage>(action));
    EXPECT_TRUE(IsCaughtAs<std::runtime_error>(action));
    EXPECT_TRUE(IsCaughtAs<std::exception>(action));
    EXPECT_TRUE(IsCaughtAs<CloneableException>(action));
    EXPECT_FALSE(IsCaughtAs<ExceptionCOM>(action));
    EXPECT_FALSE(IsCaughtAs<ThreadException>(action));
}

TEST(CloneableExceptionBase, CopiesTheWholeRecordOfTheComForm) {
    const CloneableExceptionBase error(Pointer(ComRecord(-9, kSomeGuid)));

    EXPECT_FALSE(error.isNamed);
    EXPECT_EQ(error.hresult, -9);
    EXPECT_EQ(error.guid, kSomeGuid);
    EXPECT_STREQ(error.message, L"wide text");
    EXPECT_STREQ(error.what(), "narrow text");
}

TEST(CloneableExceptionBase, CopiesTheWholeRecordOfTheNamedForm) {
    const CloneableExceptionBase error(InternalError(NamedRecord(kSomeName, 77)));

    EXPECT_TRUE(error.isNamed);
    EXPECT_EQ(error.name, kSomeName);
    EXPECT_EQ(error.code, 77U);
    EXPECT_STREQ(error.message, L"wide text");
    EXPECT_STREQ(error.what(), "narrow text");
}

TEST(CloneableExceptionBase, CloneIsOfTheSameTypeAndKeepsTheRecord) {
    auto original = std::make_unique<CloneableExceptionBase>(Pointer(ComRecord(-9, kSomeGuid)));
    const std::shared_ptr<CloneableException> clone = original->Clone();
    original.reset();

    EXPECT_EQ(clone.use_count(), 1);
    const auto& error = dynamic_cast<const CloneableExceptionBase&>(*clone);
    EXPECT_EQ(typeid(error), typeid(CloneableExceptionBase));
    EXPECT_EQ(error.hresult, -9);
    EXPECT_EQ(error.guid, kSomeGuid);
    EXPECT_STREQ(error.message, L"wide text");
    EXPECT_STREQ(error.what(), "narrow text");
}

TEST(CloneableExceptionBase, CloneWithoutMemoryIsBadAlloc) {
    const CloneableExceptionBase original(Pointer(ComRecord(-9, kSomeGuid)));
    const NoMemory noMemory;

    EXPECT_THROW(original.Clone(), std::bad_alloc);
}

TEST(CloneableExceptionBase, RethrowThrowsTheKindRegisteredForTheHresult) {
    const struct {
        unsigned long hresult;
        const std::type_info& kind;
    } rows[] = {
        {0x80070005, typeid(AccessDenied)}, {0x800702E4, typeid(ElevationRequired)}, {0x80070057, typeid(InvalidArg)},
        {0x80004002, typeid(NoInterface)},  {0x80004001, typeid(NotImplemented)},    {0x8007000E, typeid(OutOfMemory)},
        {0x80004003, typeid(Pointer)},      {0x8000FFFF, typeid(Unexpected)},
    };
    for (const auto& row : rows) {
        const CloneableExceptionBase error(ExceptionBase(ComRecord(static_cast<long>(row.hresult), kZeroGuid)));
        EXPECT_EQ(KindRethrownBy(error), row.kind);
    }
}

TEST(CloneableExceptionBase, RethrowThrowsTheKindRegisteredForTheNamedCode) {
    const CloneableExceptionBase error(ExceptionBase(NamedRecord(nullptr, 1)));

    EXPECT_EQ(KindRethrownBy(error), typeid(InternalError));
}

TEST(CloneableExceptionBase, RethrownExceptionHasTheWholeRecord) {
    const CloneableExceptionBase error(ExceptionBase(ComRecord(kEPointer, kZeroGuid)));

    try {
        error.Clone()->Rethrow();
        FAIL() << "returned";
    } catch (const Pointer& thrown) {
        EXPECT_EQ(thrown.hresult, kEPointer);
        EXPECT_STREQ(thrown.message, L"wide text");
        EXPECT_STREQ(thrown.what(), "narrow text");
    }
}

TEST(CloneableExceptionBase, RethrowOfAnUnknownKeyThrowsTheRecordAsExceptionBase) {
    const CloneableExceptionBase com(Pointer(ComRecord(kEPointer, kSomeGuid)));
    const CloneableExceptionBase named(InternalError(NamedRecord(kSomeName, 1)));

    EXPECT_EQ(KindRethrownBy(com), typeid(ExceptionBase));
    EXPECT_EQ(KindRethrownBy(named), typeid(ExceptionBase));
}

// The name lies in the storage of the HRESULT: a test of the wrong form would see a code.
TEST(CloneableExceptionBase, RethrowOfANamedRecordWithCodeZeroReturns) {
    const CloneableExceptionBase error(ExceptionBase(NamedRecord(kSomeName, 0)));

    EXPECT_NO_THROW(error.Rethrow());
}

// The code lies in the storage of the GUID.
TEST(CloneableExceptionBase, RethrowOfAComRecordWithHresultZeroReturns) {
    const CloneableExceptionBase error(ExceptionBase(ComRecord(0, kSomeGuid)));

    EXPECT_NO_THROW(error.Rethrow());
    EXPECT_NO_THROW(error.Clone()->Rethrow());
}

// A factory in the place of this one may do so: no caller may rely on its throwing.
TEST(CloneableExceptionBase, RethrowReturnsIfTheFactoryDoes) {
    const CloneableExceptionBase error(ExceptionBase(ComRecord(kEPointer, kZeroGuid)));
    const ImportPatch silent(LibraryUnderTest(), kFactoryThrowName, +[](const ErrorStorage&) {});

    EXPECT_NO_THROW(error.Rethrow());
}

// A success code other than zero is a code like any other.
TEST(CloneableExceptionBase, RethrowOfAPositiveHresultThrows) {
    const CloneableExceptionBase error(ExceptionBase(ComRecord(1, kZeroGuid)));

    EXPECT_EQ(KindRethrownBy(error), typeid(ExceptionBase));
}

// How a task ends that throws `error`, as the reader of its future sees it.
template <typename Error>
const std::type_info& KindReceivedByTheWaiterOf(const Error& error) {
    std::shared_ptr<FutureImpl<void>> future;
    Task task = MakeTask(L"throws", [&error] { throw error; }, future);
    task();
    try {
        future->GetValue();
    } catch (const std::exception& received) {
        return typeid(received);
    }
    return typeid(void);
}

TEST(CloneableExceptionBase, WaiterOfATaskThatThrowsReceivesTheFactorysExceptionForThatCode) {
    EXPECT_EQ(KindReceivedByTheWaiterOf(Pointer(ComRecord(kEPointer, kZeroGuid))), typeid(Pointer));
    EXPECT_EQ(KindReceivedByTheWaiterOf(InternalError(NamedRecord(nullptr, 1))), typeid(InternalError));
    EXPECT_EQ(KindReceivedByTheWaiterOf(Unexpected(L"in the task")), typeid(Unexpected));
}

// The code decides, not the class that the task happened to throw.
TEST(CloneableExceptionBase, WaiterReceivesTheKindOfTheCodeAndNotOfTheClassThrown) {
    EXPECT_EQ(KindReceivedByTheWaiterOf(Unexpected(ComRecord(kEPointer, kZeroGuid))), typeid(Pointer));
    EXPECT_EQ(KindReceivedByTheWaiterOf(ExceptionBase(ComRecord(kEPointer, kZeroGuid))), typeid(Pointer));
}

TEST(CloneableExceptionBase, WaiterOfATaskThatThrowsCodeZeroGoesOnAsIfNothingHadBeenThrown) {
    EXPECT_EQ(KindReceivedByTheWaiterOf(ExceptionBase(ComRecord(0, kZeroGuid))), typeid(void));
}

TEST(CloneableExceptionBase, WaiterReceivesTheMessageOfTheTasksException) {
    std::shared_ptr<FutureImpl<void>> future;
    Task task = MakeTask(L"throws", [] { throw Unexpected(L"step %d of %s", 3, L"the import"); }, future);
    task();

    try {
        future->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const Unexpected& received) {
        EXPECT_STREQ(received.message, L"step 3 of the import");
        EXPECT_STREQ(received.what(), "step 3 of the import");
    }
}

}  // namespace
