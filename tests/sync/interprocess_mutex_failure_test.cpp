// What interprocess_mutex reports and throws when the platform fails it, and what it leaves behind.

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"
#include "tests/sync/kernel_mutex.h"
#include "tests/sync/kernel_names.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

constexpr const wchar_t* kCreationFailed = L"Failed to create mutex, error code %x";
constexpr const wchar_t* kLockFailed = L"Failed to lock mutex %x, error code %x";
constexpr const wchar_t* kUnlockFailed = L"Failed to unlock mutex %x, error code %x";
constexpr const wchar_t* kCloseFailed = L"Failed to close handle to mutex %x, error code %x";
constexpr const wchar_t* kDestroyedLocked = L"Attempt to destroy locked mutex %x";

// The error codes of the platform, and what messages make of them.
const std::vector<std::pair<DWORD, unsigned>> kErrors = {
    {0, 0},
    {5, 0x80070005},
    {288, 0x80070120},
    {0xFFFF, 0x8007FFFF},
    {0x10000, 0x80070000},
    {0x12345678, 0x80075678},
    {0x7FFFFFFF, 0x8007FFFF},
    {0x80000000, 0x80000000},
    {0x80070057, 0x80070057},
    {0xFFFFFFFF, 0xFFFFFFFF},
};

// A handle as messages show it.
unsigned Shown(HANDLE handle) {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(handle));
}

void ExpectReport(const RecordedReport& report, const wchar_t* category, const wchar_t* format,
                  const std::vector<ReportArgument>& arguments) {
    EXPECT_EQ(report.severity, 4);
    EXPECT_EQ(report.kind, 16);
    EXPECT_EQ(report.category, category);
    EXPECT_EQ(report.format, format);
    EXPECT_EQ(report.arguments, arguments);
}

// The text that `action` throws as exactly an `Exception`.
template <typename Exception, typename Action>
std::string ThrownText(Action action) {
    try {
        action();
    } catch (const Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(Exception));
        return exception.what();
    }
    return "nothing was thrown";
}

std::string TextOfFailedCreation(const wchar_t* name) {
    return ThrownText<std::runtime_error>([=] { const interprocess_mutex mutex(name); });
}

// A kernel object that has the name of a mutex and is none.
class SquattedName {
  public:
    SquattedName()
        : m_name(L"Local\\" + UniqueName(L"squatted")), m_event(CreateEventW(nullptr, FALSE, FALSE, m_name.c_str())) {}
    ~SquattedName() { CloseHandle(m_event); }
    SquattedName(const SquattedName&) = delete;
    SquattedName& operator=(const SquattedName&) = delete;

    const wchar_t* Get() const { return m_name.c_str(); }

  private:
    const std::wstring m_name;
    const HANDLE m_event;
};

// One call into the platform that fails with the chosen error.
template <typename Result, typename... Arguments>
class FailingCall {
  public:
    FailingCall(const char* function, Result result, DWORD error) : m_patch(LibraryUnderTest(), function, &Fail) {
        s_result = result;
        s_error = error;
        s_calls = 0;
    }

    int Calls() const { return s_calls; }

  private:
    static Result WINAPI Fail(Arguments...) {
        ++s_calls;
        ::SetLastError(s_error);
        return s_result;
    }

    static inline Result s_result{};
    static inline DWORD s_error = 0;
    static inline int s_calls = 0;

    const ImportPatch m_patch;
};

using FailingCreation = FailingCall<HANDLE, SECURITY_ATTRIBUTES*, BOOL, const wchar_t*>;
using FailingWait = FailingCall<DWORD, DWORD, const HANDLE*, BOOL, DWORD>;
using FailingHandleCall = FailingCall<BOOL, HANDLE>;

TEST(InterprocessMutexCreation, FailsOnASquattedNameWithOneReport) {
    const SquattedName name;
    const RecordedReports reports;
    EXPECT_EQ(TextOfFailedCreation(name.Get()), "interprocess_mutex::interprocess_mutex::Failed to create mutex");

    const auto records = reports.All();
    ASSERT_EQ(records.size(), 1U);
    ExpectReport(records[0], L"interprocess_mutex::interprocess_mutex", kCreationFailed, Arguments(0x80070006U));
    EXPECT_EQ(records[0].text, L"Failed to create mutex, error code 80070006");
}

TEST(InterprocessMutexCreation, FailsOnASquattedNameInTheNamespaceOfTheFramework) {
    const std::wstring name = UniqueName(L"squatted");
    const std::wstring fullName = interprocess_mutex().CheckAndPrependZarvoObjectsNamespace(name.c_str());
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, fullName.c_str());
    EXPECT_EQ(TextOfFailedCreation(name.c_str()), "interprocess_mutex::interprocess_mutex::Failed to create mutex");
    CloseHandle(event);
    EXPECT_NO_THROW(const interprocess_mutex mutex(name.c_str()));
}

TEST(InterprocessMutexCreation, FailsInANamespaceThatDoesNotExist) {
    const RecordedReports reports;
    TextOfFailedCreation(L"no such place\\mutex");
    ASSERT_EQ(reports.All().size(), 1U);
    EXPECT_EQ(reports.Last().arguments, Arguments(0x80070003U));
}

TEST(InterprocessMutexCreation, ShowsEachErrorAsItsResultCode) {
    for (const auto& [error, code] : kErrors) {
        const RecordedReports reports;
        const FailingCreation failure("CreateMutexW", nullptr, error);
        TextOfFailedCreation(nullptr);
        ASSERT_EQ(reports.All().size(), 1U);
        EXPECT_EQ(reports.Last().arguments, Arguments(code)) << error;
    }
}

TEST(InterprocessMutexCreation, LeavesNothingBehindWhenItFails) {
    const SquattedName name;
    TextOfFailedCreation(name.Get());
    const ResourceProbe probe;
    for (int i = 0; i < 50; ++i) {
        TextOfFailedCreation(name.Get());
    }
    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST(InterprocessMutexLock, ReportsAndThrowsWhenTheWaitFails) {
    KnownMutex mutex;
    for (const auto& [error, code] : kErrors) {
        const RecordedReports reports;
        const FailingWait failure("WaitForMultipleObjects", WAIT_FAILED, error);
        EXPECT_EQ(ThrownText<LockException>([&] { mutex->lock(); }), "interprocess_mutex: Failed to lock mutex");

        const auto records = reports.All();
        ASSERT_EQ(records.size(), 1U);
        ExpectReport(records[0], L"interprocess_mutex::DoLock", kLockFailed, Arguments(Shown(mutex.Handle()), code));
    }
}

TEST(InterprocessMutexLock, TakesEveryOtherResultOfTheWaitForAFailure) {
    interprocess_mutex mutex;
    for (const DWORD result : {WAIT_OBJECT_0 + 1, WAIT_ABANDONED_0, WAIT_ABANDONED_0 + 1, DWORD{WAIT_TIMEOUT}}) {
        const RecordedReports reports;
        const FailingWait failure("WaitForMultipleObjects", result, 0);
        EXPECT_EQ(ThrownText<LockException>([&] { mutex.lock(); }), "interprocess_mutex: Failed to lock mutex");
        EXPECT_EQ(reports.Count(L"interprocess_mutex::DoLock", kLockFailed), 1U) << result;
    }
}

TEST(InterprocessMutexLock, FailsWhenTheOwnersThreadHasEndedAndOwnsTheMutexAllTheSame) {
    KnownMutex mutex;
    OnAnotherThread([&] { mutex->lock(); });
    const RecordedReports reports;
    EXPECT_EQ(ThrownText<LockException>([&] { mutex->lock(); }), "interprocess_mutex: Failed to lock mutex");

    const auto records = reports.All();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].category, L"interprocess_mutex::DoLock");
    EXPECT_EQ(records[0].format, kLockFailed);
    ASSERT_EQ(records[0].arguments.size(), 2U);
    EXPECT_EQ(records[0].arguments[0], Arguments(Shown(mutex.Handle()))[0]);

    // The caller owns it: only the caller can release it.
    OnAnotherThread([&] { EXPECT_THROW(mutex->unlock(), LockException); });
    EXPECT_NO_THROW(mutex->unlock());
}

TEST(InterprocessMutexLock, SucceedsAfterAnAbandonedMutexWasUnlocked) {
    interprocess_mutex mutex;
    OnAnotherThread([&] { mutex.lock(); });
    EXPECT_THROW(mutex.lock(), LockException);
    mutex.unlock();

    EXPECT_NO_THROW(mutex.lock());
    mutex.unlock();
    OnAnotherThread([&] {
        EXPECT_NO_THROW(mutex.lock());
        mutex.unlock();
    });
}

// The failed lock counts as a level.
TEST(InterprocessMutexLock, IsTheSecondLevelAfterAnAbandonedMutexWasNotUnlocked) {
    KnownMutex mutex;
    OnAnotherThread([&] { mutex->lock(); });
    EXPECT_THROW(mutex->lock(), LockException);
    EXPECT_NO_THROW(mutex->lock());
    mutex->unlock();
    OnAnotherThread([&] { EXPECT_EQ(WaitForSingleObject(mutex.Handle(), 0), DWORD{WAIT_TIMEOUT}); });
    EXPECT_NO_THROW(mutex->unlock());
    EXPECT_THROW(mutex->unlock(), LockException);
}

TEST(InterprocessMutexUnlock, FailsForAThreadThatIsNotTheOwner) {
    KnownMutex mutex;
    mutex->lock();
    const RecordedReports reports;
    OnAnotherThread([&] {
        EXPECT_EQ(ThrownText<LockException>([&] { mutex->unlock(); }), "interprocess_mutex: Failed to unlock mutex");
    });

    const auto records = reports.All();
    ASSERT_EQ(records.size(), 1U);
    ExpectReport(records[0], L"interprocess_mutex::DoUnlock", kUnlockFailed,
                 Arguments(Shown(mutex.Handle()), 0x80070120U));
    mutex->unlock();
}

TEST(InterprocessMutexUnlock, FailsWhenNobodyIsTheOwner) {
    interprocess_mutex mutex;
    EXPECT_THROW(mutex.unlock(), LockException);
    EXPECT_NO_THROW(mutex.lock());
    mutex.unlock();
}

TEST(InterprocessMutexUnlock, ShowsEachErrorAsItsResultCode) {
    KnownMutex mutex;
    mutex->lock();
    for (const auto& [error, code] : kErrors) {
        const RecordedReports reports;
        const FailingHandleCall failure("ReleaseMutex", FALSE, error);
        EXPECT_THROW(mutex->unlock(), LockException);
        ASSERT_EQ(reports.All().size(), 1U);
        EXPECT_EQ(reports.Last().arguments, Arguments(Shown(mutex.Handle()), code)) << error;
    }
    mutex->unlock();
}

TEST(InterprocessMutexDestruction, ReportsALockedMutexOnceAndClosesItsHandle) {
    const std::wstring name = L"Local\\" + UniqueName(L"destroyed");
    KnownMutex mutex(name.c_str());
    const HANDLE handle = mutex.Handle();
    mutex->lock();
    const RecordedReports reports;
    mutex.Reset();

    const auto records = reports.All();
    ASSERT_EQ(records.size(), 1U);
    ExpectReport(records[0], L"interprocess_mutex::~interprocess_mutex", kDestroyedLocked, Arguments(Shown(handle)));
    EXPECT_EQ(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()), nullptr);
}

TEST(InterprocessMutexDestruction, DoesNotReleaseTheMutex) {
    const std::wstring name = UniqueName(L"unreleased");
    KnownMutex other(name.c_str());
    {
        interprocess_mutex mutex(name.c_str());
        mutex.lock();
    }
    OnAnotherThread([&] { EXPECT_EQ(WaitForSingleObject(other.Handle(), 0), DWORD{WAIT_TIMEOUT}); });
    EXPECT_NO_THROW(other->unlock());
}

// The flag tells what happened through this object, not whether the platform's mutex is owned.
TEST(InterprocessMutexDestruction, SaysNothingWhenOnlyTheFirstOfTwoLevelsWasUnlocked) {
    const RecordedReports reports;
    {
        interprocess_mutex mutex;
        mutex.lock();
        mutex.lock();
        mutex.unlock();
    }
    EXPECT_TRUE(reports.All().empty());
}

TEST(InterprocessMutexDestruction, ReportsAHandleThatCannotBeClosed) {
    for (const auto& [error, code] : kErrors) {
        const RecordedReports reports;
        KnownMutex mutex;
        const HANDLE handle = mutex.Handle();
        {
            const FailingHandleCall failure("CloseHandle", FALSE, error);
            mutex.Reset();
            EXPECT_EQ(failure.Calls(), 1);
        }
        CloseHandle(handle);
        const auto records = reports.All();
        ASSERT_EQ(records.size(), 1U);
        ExpectReport(records[0], L"interprocess_mutex::~interprocess_mutex", kCloseFailed,
                     Arguments(Shown(handle), code));
    }
}

TEST(InterprocessMutexDestruction, ReportsBothALockedMutexAndItsHandle) {
    KnownMutex mutex;
    const HANDLE handle = mutex.Handle();
    mutex->lock();
    const RecordedReports reports;
    CloseHandle(handle);
    mutex.Reset();

    const auto records = reports.All();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].format, kDestroyedLocked);
    ExpectReport(records[1], L"interprocess_mutex::~interprocess_mutex", kCloseFailed,
                 Arguments(Shown(handle), 0x80070006U));
}

}  // namespace
