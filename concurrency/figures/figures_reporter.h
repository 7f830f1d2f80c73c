// Says the figures of the process in the log, at an interval, and to zarvo-ps, when it asks. Both are off unless the environment
// asks for them, because they need a thread. It is a thread of their own, which needs no worker of the pool.
//
// Threads: Start and Stop under the lifetime's mutex, which the thread never takes.
// Errors: none. What fails is said in the log.
#pragma once

#include <chrono>
#include <memory>

#include "concurrency/base/native_thread.h"
#include "concurrency/base/win32.h"

namespace Orvane::Internal {

struct FiguresSettings {
    std::chrono::milliseconds interval{};  // of the line in the log; 0: none
    bool answers = false;  // zarvo-ps
};

// Of ZARVO_FIGURES and ZARVO_PS.
FiguresSettings ReadFiguresSettings() noexcept;

class FiguresReporter {
  public:
    // Errors: std::system_error, std::bad_alloc.
    explicit FiguresReporter(const FiguresSettings& settings);
    ~FiguresReporter();
    FiguresReporter(const FiguresReporter&) = delete;
    FiguresReporter& operator=(const FiguresReporter&) = delete;

  private:
    class Channel;

    class Event {
      public:
        explicit Event(const wchar_t* name);
        ~Event();
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;

        HANDLE Get() const noexcept { return m_handle; }

      private:
        HANDLE m_handle;
    };

    static std::unique_ptr<Channel> OpenChannel() noexcept;
    void Run() noexcept;

    const std::chrono::milliseconds m_interval;
    const std::unique_ptr<Channel> m_channel;  // null if it does not answer
    const Event m_stop;
    NativeThread m_thread;
};

// The first initialisation: makes one if the environment asks for it.
void StartFiguresReporter() noexcept;

// The last uninitialisation, at its end, so that it can be asked about, too.
void StopFiguresReporter() noexcept;

}  // namespace Orvane::Internal
