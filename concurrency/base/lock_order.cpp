#include "concurrency/base/lock_order.h"

#ifdef ORVANE_CHECK_LOCK_ORDER

#include <cstdio>
#include <cstdlib>

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

// Each thread's newest entry. On purpose not thread_local, which may need memory at a thread's first use and ends the process if
// there is none. On purpose no slot of the other kind, either: by those the tests tell the library's own use of slots.
class NewestEntry {
  public:
    NewestEntry() : m_slot(FlsAlloc(nullptr)) {}
    ~NewestEntry() { FlsFree(m_slot); }
    NewestEntry(const NewestEntry&) = delete;
    NewestEntry& operator=(const NewestEntry&) = delete;

    // Neither touches the thread's last error: locks live where it is handed on.
    LockOrderEntry* Get() const {
        const DWORD error = GetLastError();
        auto* const entry = static_cast<LockOrderEntry*>(FlsGetValue(m_slot));
        SetLastError(error);
        return entry;
    }
    void Set(LockOrderEntry* entry) {
        const DWORD error = GetLastError();
        FlsSetValue(m_slot, entry);
        SetLastError(error);
    }

  private:
    const DWORD m_slot;
};

NewestEntry& Newest() {
    static NewestEntry newest;
    return newest;
}

void Print(const char* what, LockRank rank, const std::source_location& where) {
    std::fprintf(stderr, "%s rank %d at %s:%u (%s)\n", what, static_cast<int>(rank), where.file_name(),
                 static_cast<unsigned>(where.line()), where.function_name());
}

}  // namespace

LockOrderEntry::LockOrderEntry(const void* mutex, LockRank rank, const std::source_location& where)
    : m_mutex(mutex), m_rank(rank), m_where(where), m_older(Newest().Get()) {
    Newest().Set(this);
}

LockOrderEntry::~LockOrderEntry() {
    Newest().Set(m_older);
}

void LockOrderEntry::Taking() {
    for (const LockOrderEntry* entry = Newest().Get(); entry != nullptr; entry = entry->m_older) {
        if (entry->m_held && entry->m_mutex == m_mutex) {
            m_held = true;
            return;  // one level more: it waits for no thread
        }
    }
    for (const LockOrderEntry* entry = Newest().Get(); entry != nullptr; entry = entry->m_older) {
        if (entry->m_held) {
            Allow(*entry);
        }
    }
    m_held = true;
}

void LockOrderEntry::Allow(const LockOrderEntry& held) const {
    if (held.m_rank < m_rank || (held.m_rank == LockRank::Future && m_rank == LockRank::Future)) {
        return;
    }
    std::fputs("lock order violated\n", stderr);
    Print("  held:   ", held.m_rank, held.m_where);
    Print("  to take:", m_rank, m_where);
    std::fflush(stderr);
    std::abort();
}

}  // namespace Orvane::Internal

#endif
