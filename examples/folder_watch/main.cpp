// Tells changes in a folder as they come, and each second how many there were, until Ctrl+C.
//
//     folder_watch [FOLDER]
//
// Exit code: 0 after Ctrl+C, 1 if the folder cannot be watched.
#include <windows.h>

#include <atomic>
#include <chrono>
#include <iostream>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/stop_all.h"
#include "concurrency/lifetime/concurrency_lifetime.h"

using namespace std::chrono_literals;

int wmain(int count, wchar_t** arguments) {
    const wchar_t* const folder = count > 1 ? arguments[1] : L".";
    const HANDLE change = FindFirstChangeNotificationW(folder, TRUE, FILE_NOTIFY_CHANGE_FILE_NAME);
    if (change == INVALID_HANDLE_VALUE) {
        std::cout << "The folder cannot be watched: error " << GetLastError() << "\n";
        return 1;
    }
    const Orvane::ConcurrencyLifetime lifetime;
    std::atomic<int> changes = 0;
    Orvane::JobGroup group(L"Folder watch");
    auto watch = group.Run(L"Changes", [&changes, change] {
        for (; Orvane::CancellableWaitForSingleObject(change, INFINITE) == 0; FindNextChangeNotification(change)) {
            std::cout << "change " << ++changes << std::endl;
        }
    });
    group.Schedule(L"Report", 1s, 1s, [&changes] { std::cout << changes << " changes so far" << std::endl; });
    SetConsoleCtrlHandler([](DWORD) -> BOOL { return Orvane::StopAll(5s, L"Ctrl+C"), TRUE; }, TRUE);
    watch.Wait();
    std::cout << changes << " changes in all" << std::endl;
    FindCloseChangeNotification(change);
    return 0;
}
