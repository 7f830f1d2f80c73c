#include "zarvo_orvane_logging/trace_writer.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>

#include <windows.h>

#include "zarvo_orvane_logging/environment_settings.h"
#include "zarvo_orvane_logging/line_output.h"
#include "zarvo_orvane_logging/trace_line.h"
#include "zarvo_orvane_logging/trace_settings.h"

namespace Orvane::Reports {

namespace {

std::int64_t CounterFrequency() noexcept {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

// Nanoseconds since some moment before the process started.
std::int64_t Now() noexcept {
    static constinit std::atomic<std::int64_t> known = 0;
    std::int64_t frequency = known.load(std::memory_order_relaxed);
    if (frequency == 0) {
        frequency = CounterFrequency();
        known.store(frequency, std::memory_order_relaxed);
    }
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    // Whole seconds and the rest apart: the product of both would overflow after some days.
    return counter.QuadPart / frequency * 1'000'000'000 + counter.QuadPart % frequency * 1'000'000'000 / frequency;
}

// How a line begins: the time in microseconds.
class Stamp {
  public:
    explicit Stamp(std::int64_t nanoseconds) noexcept {
        constexpr std::string_view kBegin = "{\"ts\":";
        char* end = m_text + kBegin.copy(m_text, kBegin.size());
        end = std::to_chars(end, std::end(m_text), nanoseconds / 1000).ptr;
        *end++ = '.';
        const auto rest = static_cast<int>(nanoseconds % 1000);
        for (const int digit : {rest / 100, rest / 10 % 10, rest % 10}) {
            *end++ = static_cast<char>('0' + digit);
        }
        m_size = static_cast<std::size_t>(end - m_text);
    }

    [[nodiscard]] std::string_view Text() const noexcept { return {m_text, m_size}; }

  private:
    char m_text[40];
    std::size_t m_size;
};

long long MicrosecondsSince1970() noexcept {
    constexpr std::uint64_t kUnixEpochTicks = 116'444'736'000'000'000;
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32U) | now.dwLowDateTime;
    return static_cast<long long>((ticks - kUnixEpochTicks) / 10);
}

}  // namespace

bool TraceWriter::Write(const OrvaneTrace::Event& event) noexcept {
    ReadEnvironmentOnce();
    const bool isName = event.phase == OrvaneTrace::Phase::ThreadName;
    const TraceLine line = isName ? TraceLine("thread_name", event.name) : TraceLine(event);
    const std::lock_guard lock(m_lock);
    if (!m_file.IsOpen()) {
        return false;
    }
    if (isName) {
        KeepName(line.Text());
    }
    return Append(line.Text());
}

void TraceWriter::ReadEnvironmentOnce() noexcept {
    if (m_environmentRead.load(std::memory_order_acquire)) {
        return;
    }
    const std::lock_guard lock(m_lock);
    if (m_environmentRead.load(std::memory_order_relaxed)) {
        return;
    }
    try {
        Start();
    } catch (const std::bad_alloc&) {
        WriteToStandardError("ZARVO_TRACE: out of memory. It is ignored.\n");
    }
    m_environmentRead.store(true, std::memory_order_release);
}

// Another process that was started with the same variable may write to the file.
void TraceWriter::Start() {
    TraceSettings settings = ReadTraceSettings();
    if (settings.path.empty()) {
        return;
    }
    auto paths = std::make_unique<Paths>(Paths{settings.path, settings.path + L".1"});
    unsigned long error = m_file.Open(paths->current.c_str());
    if (error == kFileInUse) {
        paths->current += L"." + std::to_wstring(GetCurrentProcessId());
        paths->older = paths->current + L".1";
        error = m_file.Open(paths->current.c_str());
    }
    m_limit = settings.limit;
    m_paths = paths.release();
    if (error != 0) {
        Stop(error);
    } else {
        static_cast<void>(WriteHead());
    }
}

bool TraceWriter::Append(std::string_view line) noexcept {
    constexpr std::uint64_t kStampRoom = 40;
    const bool fits = m_file.Size() + line.size() + kStampRoom <= m_limit;
    return (fits || Rotate()) && Put(line);
}

bool TraceWriter::Put(std::string_view line) noexcept {
    m_lastTime = (std::max)(m_lastTime, Now());
    if (!m_file.Append(Stamp(m_lastTime).Text(), line)) {
        Stop(GetLastError());
        return false;
    }
    return true;
}

// The names of the threads are those of the file before.
bool TraceWriter::WriteHead() noexcept {
    if (!m_file.Append("[\n", {})) {
        Stop(GetLastError());
        return false;
    }
    const OrvaneTrace::Argument time{.key = "unix_us", .number = MicrosecondsSince1970()};
    const OrvaneTrace::Event begin{
        .category = "trace", .name = L"trace begins", .arguments = &time, .argumentCount = 1};
    bool isOn = Put(TraceLine("process_name", ProgramName().text.data()).Text()) && Put(TraceLine(begin).Text());
    for (std::string_view names(m_names.data(), m_namesSize); isOn && !names.empty();) {
        const std::string_view line = names.substr(0, names.find('\n') + 1);
        names.remove_prefix(line.size());
        isOn = Put(line);
    }
    return isOn;
}

// If the file cannot be moved, its text is lost: the trace goes on in its place.
bool TraceWriter::Rotate() noexcept {
    m_file.Close();
    static_cast<void>(MoveTraceFile(m_paths->current.c_str(), m_paths->older.c_str()));
    if (const unsigned long error = m_file.Open(m_paths->current.c_str())) {
        Stop(error);
        return false;
    }
    return WriteHead();
}

void TraceWriter::KeepName(std::string_view line) noexcept {
    if (line.size() <= m_names.size() - m_namesSize) {
        m_namesSize += line.copy(m_names.data() + m_namesSize, line.size());
    }
}

void TraceWriter::Stop(unsigned long error) noexcept {
    m_file.Close();
    try {
        Explain(L"ZARVO_TRACE: cannot write the file \"" + m_paths->current + L"\" (error " + std::to_wstring(error) +
                L"). There is no trace from now on.");
    } catch (const std::bad_alloc&) {
        WriteToStandardError("ZARVO_TRACE: cannot write the file. There is no trace from now on.\n");
    }
}

void TraceWriter::Trim() noexcept {
    const std::lock_guard lock(m_lock);
    m_file.Trim();
}

}  // namespace Orvane::Reports
