#include "zarvo_orvane_logging/trace.h"

#include "zarvo_orvane_logging/last_error_keeper.h"
#include "zarvo_orvane_logging/trace_writer.h"

namespace {

constinit Orvane::Reports::TraceWriter g_writer;

// With the module, after all that use it.
struct TrimAtTheEnd {
    ~TrimAtTheEnd() { g_writer.Trim(); }
};
const TrimAtTheEnd g_trimAtTheEnd;

}  // namespace

constinit OrvaneTrace g_OrvaneTrace;

const OrvaneTraceAccess* ZarvoTraceAccess() noexcept {
    static constexpr OrvaneTraceAccess access{
        &g_OrvaneTrace, [](const OrvaneTrace::Event& event) noexcept { g_OrvaneTrace.Write(event); }};
    return &access;
}

void OrvaneTrace::Write(const Event& event) noexcept {
    if (!IsOn()) {
        return;
    }
    const Orvane::Reports::LastErrorKeeper lastError;
    if (!g_writer.Write(event)) {
        m_isOn.store(false, std::memory_order_relaxed);
    }
}
