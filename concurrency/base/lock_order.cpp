#include "concurrency/base/guarded.h"

#ifdef ORVANE_CHECK_LOCK_ORDER

#include <cstdio>
#include <cstdlib>

namespace Orvane::Internal {

namespace {

// On purpose thread_local, which the library avoids otherwise: only checked builds have it.
thread_local LockOrderEntry* t_newest = nullptr;

void Print(const char* what, LockRank rank, const std::source_location& where) {
    std::fprintf(stderr, "%s rank %d at %s:%u (%s)\n", what, static_cast<int>(rank), where.file_name(),
                 static_cast<unsigned>(where.line()), where.function_name());
}

}  // namespace

LockOrderEntry::LockOrderEntry(const void* mutex, LockRank rank, const std::source_location& where)
    : m_mutex(mutex), m_rank(rank), m_where(where), m_older(t_newest) {
    t_newest = this;
}

LockOrderEntry::~LockOrderEntry() {
    t_newest = m_older;
}

void LockOrderEntry::Taking() {
    for (const LockOrderEntry* entry = t_newest; entry != nullptr; entry = entry->m_older) {
        if (entry->m_held && entry->m_mutex == m_mutex) {
            m_held = true;
            return;  // one level more: nobody is waited for
        }
    }
    for (const LockOrderEntry* entry = t_newest; entry != nullptr; entry = entry->m_older) {
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
