#include "tests/soak/soak_watch.h"

#include <cstdio>
#include <stdexcept>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/runs.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

SoakWatch::SoakWatch(std::chrono::seconds patience) : m_patience(patience), m_thread([this] { Look(); }) {}

SoakWatch::~SoakWatch() {
    m_isOver = true;
}

std::size_t SoakWatch::Begin(const char* what) {
    for (std::size_t index = 0; index < m_entries.size(); ++index) {
        const char* none = nullptr;
        if (m_entries[index].what.compare_exchange_strong(none, what)) {
            m_entries[index].since = m_clock.Elapsed().count() + 1;
            return index;
        }
    }
    throw std::logic_error("SoakWatch: too many waits");
}

void SoakWatch::End(std::size_t wait) {
    m_entries[wait].since = 0;
    m_entries[wait].what = nullptr;
}

bool SoakWatch::NameWhatLasts() const {
    bool lasts = false;
    for (const Entry& entry : m_entries) {
        const char* const what = entry.what;
        const std::int64_t since = entry.since;
        const auto age = m_clock.Elapsed() - std::chrono::nanoseconds(since);
        if (what != nullptr && since != 0 && age > m_patience) {
            std::printf("LOST WAKE-UP: %s: for %lld s\n", what,
                        static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(age).count()));
            lasts = true;
        }
    }
    return lasts;
}

void SoakWatch::Look() {
    while (!m_isOver) {
        if (NameWhatLasts()) {
            for (const Orvane::RunInfo& run : Orvane::ListRuns()) {
                std::printf("    %ls\n", ToText(run).c_str());
            }
            std::fflush(stdout);
            TerminateProcess(GetCurrentProcess(), kLostWakeUp);
        }
        Sleep(100);
    }
}

}  // namespace Zarvo::Test
