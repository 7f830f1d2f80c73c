// The slot of runs that begin before the library is initialised.
#include <gtest/gtest.h>

#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "tests/support/import_patch.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

// The slots that are freed.
class FreedSlots {
  public:
    FreedSlots() {
        s_free = m_patch.Original<Free>();
        s_slots.clear();
    }
    FreedSlots(const FreedSlots&) = delete;
    FreedSlots& operator=(const FreedSlots&) = delete;

    const std::vector<DWORD>& List() const { return s_slots; }

  private:
    using Free = BOOL WINAPI(DWORD);

    static BOOL WINAPI NoteAndFree(DWORD slot) {
        s_slots.push_back(slot);
        return s_free(slot);
    }

    static inline Free* s_free = nullptr;
    static inline std::vector<DWORD> s_slots;

    const ImportPatch m_patch{LibraryUnderTest(), "TlsFree", &NoteAndFree};
};

TEST(ReserveSlot, IsGivenBackOnceWhenTheLibraryIsUnloaded) {
    FreeReserveSlot();  // that of tests before
    const FreedSlots freed;
    FreeReserveSlot();
    EXPECT_TRUE(freed.List().empty());

    const DWORD slot = CurrentTaskSlot();
    FreeReserveSlot();
    EXPECT_EQ(freed.List(), std::vector<DWORD>{slot});
    FreeReserveSlot();
    EXPECT_EQ(freed.List().size(), 1U);
}

}  // namespace
