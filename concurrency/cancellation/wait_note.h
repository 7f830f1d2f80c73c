// What a run's thread waits in, for other threads to read.
//
// The writer is one thread and never waits: it makes the number odd, writes, and makes it even again. A reader that has seen the
// same even number before and after has seen what belongs together. Each store releases and each load acquires: who reads a
// new value sees the odd number that was written before it.
//
// Threads: Exchange() on the run's own, Read() on any.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "concurrency/base/pause.h"
#include "concurrency/cancellation/wait_state.h"

namespace Orvane::Internal {

class WaitNote {
  public:
    WaitNote() = default;
    WaitNote(const WaitNote&) = delete;
    WaitNote& operator=(const WaitNote&) = delete;

    // Returns what was there.
    WaitState Exchange(const WaitState& state) noexcept {
        const WaitState before = Load(std::memory_order_relaxed);
        const std::uint32_t number = m_number.load(std::memory_order_relaxed);
        m_number.store(number + 1, std::memory_order_relaxed);
        m_kind.store(state.kind, std::memory_order_release);
        m_object.store(state.object, std::memory_order_release);
        m_since.store(state.since, std::memory_order_release);
        m_number.store(number + 2, std::memory_order_release);
        return before;
    }

    // Kind None if the thread is in no wait of the library; empty if the writer stands still in the middle of writing.
    std::optional<WaitState> Read() const noexcept {
        for (int i = 0; i < kLooks; ++i) {
            const std::uint32_t number = m_number.load(std::memory_order_acquire);
            const WaitState state = Load(std::memory_order_acquire);
            if (number % 2 == 0 && m_number.load(std::memory_order_relaxed) == number) {
                return state;
            }
            Pause();
        }
        return std::nullopt;
    }

  private:
    static constexpr int kLooks = 1000;

    WaitState Load(std::memory_order order) const noexcept {
        return {m_kind.load(order), m_object.load(order), m_since.load(order)};
    }

    std::atomic<std::uint32_t> m_number = 0;
    std::atomic<WaitKind> m_kind = WaitKind::None;
    std::atomic<const void*> m_object = nullptr;
    std::atomic<std::uint64_t> m_since = 0;
};

}  // namespace Orvane::Internal
