// Event sources of the system's event log.
#pragma once

#include "zarvo_orvane_logging/export.h"

struct HINSTANCE__;  // the platform's HINSTANCE points to it

// An event source is a key in the machine's registry, below the event log "Application". It tells the event viewer
// which module holds the messages behind the source's event numbers. Writing it takes administrator's rights.
//
// Threads: every member may be called from any thread.
// Cancellation: no cancellation points.
// Memory: it orders nothing.
// Lifetime: a source stays in the registry until it is removed.
// Errors: none is thrown; the result is S_OK or a failing HRESULT. E_INVALIDARG for a name that is null, empty or has a
//     backslash in it: it would be the key of something else.
class ZARVO_ORVANE_LOGGING_API Log {
  public:
    Log() = delete;

    // Makes `module` the source `name`. A source of that name is taken over. A failure leaves no new key behind.
    static long RegisterEventSourceW(const wchar_t* name, HINSTANCE__* module) noexcept;

    // Removes the source. It is a failure if there is none.
    static long UnregisterEventSource(const wchar_t* name) noexcept;
};
