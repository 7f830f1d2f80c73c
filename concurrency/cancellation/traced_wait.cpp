#include "concurrency/cancellation/traced_wait.h"

#include <cstdint>
#include <iterator>

namespace Orvane::Internal {

namespace {

const wchar_t* NameOf(WaitKind kind) noexcept {
    switch (kind) {
        case WaitKind::None: break;
        case WaitKind::Sleep: return L"CancellableSleep";
        case WaitKind::Handle: return L"CancellableWaitForSingleObject";
        case WaitKind::Handles: return L"CancellableWaitForMultipleObjects";
        case WaitKind::Condition: return L"CancellableConditionWait";
        case WaitKind::FifoMutex: return L"fifo_mutex::lock";
        case WaitKind::CheckedMutex: return L"checked_mutex::lock";
        case WaitKind::InterprocessMutex: return L"interprocess_mutex::lock";
        case WaitKind::Task: return L"Task::Wait";
        case WaitKind::Jobs: return L"wait for jobs";
        case WaitKind::DroppedJobs: return L"destructor that waits for jobs";
        case WaitKind::Place: return L"wait for a place in the group";
        case WaitKind::Growth: return L"wait while the pool grows";
    }
    return L"";
}

// As in 0x7f3a10.
class Hexadecimal {
  public:
    explicit Hexadecimal(const void* object) noexcept {
        auto value = reinterpret_cast<std::uintptr_t>(object);
        do {
            *--m_begin = L"0123456789abcdef"[value % 16];
            value /= 16;
        } while (value != 0);
        *--m_begin = L'x';
        *--m_begin = L'0';
    }
    Hexadecimal(const Hexadecimal&) = delete;
    Hexadecimal& operator=(const Hexadecimal&) = delete;

    const wchar_t* Text() const noexcept { return m_begin; }

  private:
    wchar_t m_digits[20]{};
    wchar_t* m_begin = std::end(m_digits) - 1;
};

}  // namespace

void WriteWaitBegins(const void* note, WaitKind kind, const void* object) noexcept {
    const Hexadecimal text(object);
    const TraceArgument argument{.key = "object", .text = text.Text()};
    if (object != nullptr) {
        TraceSpanOf(note, TracePhase::AsyncBegin, "wait", NameOf(kind), {argument});
    } else {
        TraceSpanOf(note, TracePhase::AsyncBegin, "wait", NameOf(kind));
    }
}

void WriteWaitEnds(const void* note, WaitKind kind) noexcept {
    TraceSpanOf(note, TracePhase::AsyncEnd, "wait", NameOf(kind));
}

}  // namespace Orvane::Internal
