// Keeps account of the thread-local slots that the library's DLL allocates, uses and frees while an object of this
// class lives. Construct it before the library's first use of a slot.
//
// Threads: every member may be called from any thread.
// Lifetime: one at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <set>

#include "concurrency/base/windows_api.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"

namespace Zarvo::Test {

class SlotLedger {
  public:
    SlotLedger() = default;
    SlotLedger(const SlotLedger&) = delete;
    SlotLedger& operator=(const SlotLedger&) = delete;

    // How often the library has called TlsAlloc and TlsFree.
    std::size_t AllocationCount() const { return Read(m_account.allocations); }
    std::size_t FreeCount() const { return Read(m_account.frees); }

    // The slots that it has allocated and not freed.
    std::set<DWORD> Held() const { return Read(m_account.held); }

    // The slot that it freed last; TLS_OUT_OF_INDEXES if none.
    DWORD LastFreed() const { return Read(m_account.lastFreed); }

    // How often it has read, written or freed a slot that was not its own.
    std::size_t ForeignAccessCount() const { return Read(m_account.foreignAccesses); }

    // Makes TlsAlloc and TlsSetValue fail, or succeed again.
    void FailAllocations(bool fail) { Write(m_account.failAllocations, fail); }
    void FailStores(bool fail) { Write(m_account.failStores, fail); }

    // From now on an allocation waits a moment for another one to come to its side: whoever may allocate at the same
    // time as others does so.
    void PairAllocations() { Write(m_account.pairAllocations, true); }

  private:
    struct Account {
        mutable std::mutex mutex;
        std::set<DWORD> held;
        DWORD lastFreed = TLS_OUT_OF_INDEXES;
        std::size_t allocations = 0;
        std::size_t frees = 0;
        std::size_t foreignAccesses = 0;
        bool failAllocations = false;
        bool failStores = false;
        bool pairAllocations = false;
        std::atomic<int> allocating = 0;

        Account() { current = this; }

        // The platform refuses TLS_OUT_OF_INDEXES: it is nobody's.
        void NoteUse(DWORD slot) { foreignAccesses += slot != TLS_OUT_OF_INDEXES && !held.contains(slot) ? 1 : 0; }

        void WaitForAnotherAllocation() {
            {
                const std::lock_guard lock(mutex);
                if (!pairAllocations) {
                    return;
                }
            }
            ++allocating;
            (void)Eventually([this] { return allocating >= 2; }, std::chrono::milliseconds(200));
        }

        static inline Account* current = nullptr;
    };

    template <typename Field>
    Field Read(const Field& field) const {
        const std::lock_guard lock(m_account.mutex);
        return field;
    }

    void Write(bool& field, bool value) {
        const std::lock_guard lock(m_account.mutex);
        field = value;
    }

    static DWORD WINAPI Alloc() {
        Account& account = *Account::current;
        account.WaitForAnotherAllocation();
        const std::lock_guard lock(account.mutex);
        ++account.allocations;
        if (account.failAllocations) {
            return TLS_OUT_OF_INDEXES;
        }
        const DWORD slot = TlsAlloc();
        account.held.insert(slot);
        return slot;
    }

    static BOOL WINAPI Free(DWORD slot) {
        Account& account = *Account::current;
        const std::lock_guard lock(account.mutex);
        ++account.frees;
        account.NoteUse(slot);
        if (account.held.erase(slot) == 0) {
            return FALSE;
        }
        account.lastFreed = slot;
        return TlsFree(slot);
    }

    static LPVOID WINAPI Get(DWORD slot) {
        Account& account = *Account::current;
        const std::lock_guard lock(account.mutex);
        account.NoteUse(slot);
        return TlsGetValue(slot);
    }

    static BOOL WINAPI Set(DWORD slot, LPVOID value) {
        Account& account = *Account::current;
        const std::lock_guard lock(account.mutex);
        account.NoteUse(slot);
        return account.failStores ? FALSE : TlsSetValue(slot, value);
    }

    Account m_account;  // first: the patches use it from their construction on
    ImportPatch m_alloc{LibraryUnderTest(), "TlsAlloc", &Alloc};
    ImportPatch m_free{LibraryUnderTest(), "TlsFree", &Free};
    ImportPatch m_get{LibraryUnderTest(), "TlsGetValue", &Get};
    ImportPatch m_set{LibraryUnderTest(), "TlsSetValue", &Set};
};

}  // namespace Zarvo::Test
