#include "concurrency/tasks/run_counts.h"

#include <algorithm>

#include "concurrency/base/adaptive_mutex.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/tick_counter.h"
#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

constexpr const wchar_t* kOthers = L"(others)";
constexpr std::size_t kParts = 8;
constexpr std::size_t kNames = 64;  // of a part
constexpr std::size_t kPlaces = 2 * kNames;  // of the hash table: never full, so that a search ends

// A name with '#' for its digits.
struct Family {
    std::array<wchar_t, RunTitle::kCapacity> name{};
    std::uint32_t hash = 2'166'136'261;

    explicit Family(const wchar_t* text) noexcept {
        std::size_t length = 0;
        bool isNumber = false;
        for (; text != nullptr && *text != L'\0' && length + 1 < name.size(); ++text) {
            const bool isDigit = *text >= L'0' && *text <= L'9';
            if (isDigit && isNumber) {
                continue;
            }
            isNumber = isDigit;
            name[length] = isDigit ? L'#' : *text;
            hash = (hash ^ static_cast<std::uint32_t>(name[length])) * 16'777'619;
            ++length;
        }
        hash ^= hash >> 15;
    }
};

struct NamedCounts {
    std::array<wchar_t, RunTitle::kCapacity> name{};
    std::uint32_t hash = 0;
    RunCounts counts;
};

// Static and all zeros: pages that are not used take no memory.
using Table = std::array<NamedCounts, kNames + 1>;  // the last is for all others
constinit std::array<Table, kParts> g_tables{};

struct Part {
    RankedMutex<AdaptiveMutex, LockRank::Leaf> mutex;
    std::size_t used ORVANE_GUARDED_BY(mutex) = 0;
    std::array<std::uint8_t, kPlaces> places ORVANE_GUARDED_BY(mutex){};  // 0: free; else the number of the name and 1
};

// Without a destructor: the end of the process may have killed a thread that held one of them.
std::array<Part, kParts>& Parts() noexcept {
    static NeverDestroyed<std::array<Part, kParts>> parts;
    return *parts;
}

RunCounts& CountsOf(Part& part, Table& table, const Family& family) noexcept ORVANE_REQUIRES(part.mutex) {
    for (std::size_t place = family.hash % kPlaces;; place = (place + 1) % kPlaces) {
        if (part.places[place] == 0) {
            if (part.used == kNames) {
                return table.back().counts;
            }
            part.places[place] = static_cast<std::uint8_t>(part.used + 1);
            NamedCounts& fresh = table[part.used++];
            fresh.name = family.name;
            fresh.hash = family.hash;
            return fresh.counts;
        }
        NamedCounts& found = table[part.places[place] - 1U];
        if (found.hash == family.hash && found.name == family.name) {
            return found.counts;
        }
    }
}

// Calls `count` with the counts of the name, in the part of the thread.
template <typename Count>
void InPartOf(DWORD thread, const wchar_t* name, Count count) noexcept {
    const Family family(name);
    const std::size_t index = thread / 4 % kParts;  // thread ids are multiples of four
    Part& part = Parts()[index];
    const RankedLock lock(part.mutex);
    count(CountsOf(part, g_tables[index], family));
}

}  // namespace

void RunCounts::Add(const RunCounts& other) noexcept {
    for (std::size_t i = 0; i < ends.size(); ++i) {
        ends[i] += other.ends[i];
    }
    waited.Add(other.waited);
    ran.Add(other.ran);
    left.Add(other.left);
}

void CountRun(RunTitle* title, const Run& run, RunEnd end) noexcept {
    if (title == nullptr || run.isNested) {
        return;
    }
    const std::uint64_t now = TickCounter::Now();
    const std::uint64_t asked = run.askedTick;
    std::uint64_t queued = title->queuedAt;
    const bool wasQueued = queued != 0 && queued <= run.startTick;  // else it stands in the queue once more
    InPartOf(run.ThreadId(), title->name.data(), [&](RunCounts& counts) {
        ++counts.ends[static_cast<std::size_t>(end)];
        counts.ran.Add(TickCounter::Between(run.startTick, now));
        if (wasQueued) {
            counts.waited.Add(run.startTick - queued);
        }
        if (asked != 0) {
            counts.left.Add(TickCounter::Between(asked, now));
        }
    });
    if (wasQueued) {
        title->queuedAt.compare_exchange_strong(queued, 0);
    }
}

void CountUnbegun(const wchar_t* name) noexcept {
    InPartOf(::GetCurrentThreadId(), name,
             [](RunCounts& counts) { ++counts.ends[static_cast<std::size_t>(RunEnd::Cancelled)]; });
}

std::map<std::wstring, RunCounts> CopyRunCounts() {
    std::map<std::wstring, RunCounts> copies;
    for (std::size_t index = 0; index < kParts; ++index) {
        Part& part = Parts()[index];
        std::size_t used = 0;
        {
            const RankedLock lock(part.mutex);
            used = part.used;
        }
        for (std::size_t i = 0; i <= used; ++i) {
            const bool isOthers = i == used;
            const NamedCounts& named = g_tables[index][isOthers ? kNames : i];
            RunCounts copy;
            {
                const RankedLock lock(part.mutex);
                copy = named.counts;
            }
            if (!isOthers) {
                copies[named.name.data()].Add(copy);  // the name has been constant since it was there
            } else if (copy.Ended() != 0) {
                copies[kOthers].Add(copy);
            }
        }
    }
    return copies;
}

}  // namespace Orvane::Internal
