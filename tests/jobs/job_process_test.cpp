// Jobs that leave when a process ends, or when a folder changes.
#include <gtest/gtest.h>

#include <string>

#include "concurrency/base/windows_api.h"
#include "tests/jobs/job_fixture.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

std::wstring OwnFolder() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.find_last_of(L"\\/") + 1);
}

TEST(JobProcess, EndIsHeardByAJob) {
    const ConcurrencyLifetime lifetime;
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    std::wstring line = L"\"" + OwnFolder() + L"within_test_child.exe\" well";
    ASSERT_NE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr, &start,
                             &process),
              FALSE);
    auto job = RunSleeper();
    job.CancelWhen(process.hProcess);
    EXPECT_FALSE(job.IsReady());
    ResumeThread(process.hThread);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Signalled);
}

TEST(JobFolder, ChangeIsHeardByAJob) {
    const ConcurrencyLifetime lifetime;
    wchar_t temporary[MAX_PATH];
    GetTempPathW(MAX_PATH, temporary);
    const std::wstring folder = temporary + (L"watched" + std::to_wstring(::GetCurrentProcessId()));
    const std::wstring file = folder + L"\\file";
    ASSERT_NE(CreateDirectoryW(folder.c_str(), nullptr), FALSE);
    const HANDLE change = FindFirstChangeNotificationW(folder.c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME);
    ASSERT_NE(change, INVALID_HANDLE_VALUE);
    auto job = RunSleeper();
    job.CancelWhen(change);
    EXPECT_FALSE(job.IsReady());
    CloseHandle(CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_THROW(job.Get(), CancelledException);
    FindCloseChangeNotification(change);
    DeleteFileW(file.c_str());
    RemoveDirectoryW(folder.c_str());
}

}  // namespace
