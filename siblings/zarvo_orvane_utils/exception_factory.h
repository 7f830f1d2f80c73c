// Turns an error record back into the exception that it was made from.
//
// A module that defines exception classes registers a thrower for each while it loads. An error crosses threads and
// modules as its record, and the factory throws it there as the class that was registered for it.
#pragma once

#include <guiddef.h>

#include <optional>
#include <string>
#include <vector>

#include "zarvo_orvane_utils/export.h"

namespace Orvane {

class ErrorStorage;

// The table of throwers, one for the process.
//
// Threads: every member may be called from any thread, also from static constructors and destructors. When the process
//     ends, a call need not return if the system has ended another thread inside a member: it took the lock along.
// Cancellation: no cancellation points.
// Errors: std::bad_alloc, and what Throw() is for.
// Memory: a registration is visible to each Throw() that begins after it.
// Lifetime: it is there before any other code runs and is never destroyed. Throwers stay registered.
// Recursion: a thrower may call every member; it runs with no lock held.
class ZARVO_ORVANE_UTILS_API ExceptionFactory {
  public:
    // Throws the exception for the record.
    using Thrower = void (*)(const ErrorStorage& error);

    ExceptionFactory() = delete;

    // Remembers the thrower for errors of the COM form with this GUID and HRESULT.
    // The same registration may come any number of times. If another thrower was known for the key, the later one wins.
    // Errors: std::bad_alloc.
    // Lifetime: the thrower must stay callable; nothing is ever unregistered.
    static void Register(const GUID& guid, long hresult, Thrower thrower);

    // The same for errors of the named form. The name is copied and compared by its text; null is a name of its own.
    static void Register(const wchar_t* name, unsigned int code, Thrower thrower);

    // Throws the exception registered for the record's key: for its name and code if `isNamed`, otherwise for its GUID
    // and HRESULT. If nothing is registered, or the thrower does nothing, it throws the record itself as ExceptionBase.
    // Zero is a code like any other here; callers to whom it means "no error" test it themselves.
    //
    // On purpose not [[noreturn]]: a factory in this one's place may return, and its callers must survive that.
    static void Throw(const ErrorStorage& error);

    // One call of Register.
    //
    // Contract: a value.
    struct Registration {
        bool isNamed;  // which form it is for
        GUID guid;  // of the COM form
        std::optional<std::wstring> name;  // of the named form; empty: the null name
        unsigned long code;  // the HRESULT or the code, by the form
        Thrower thrower;  // what it registered
    };

    // Every call of Register so far, in order; tests compare it with what a module should register at load.
    // Errors: std::bad_alloc.
    static std::vector<Registration> Registrations();
};

}  // namespace Orvane
