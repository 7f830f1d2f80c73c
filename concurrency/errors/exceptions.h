// The framework's exception kinds: one class per common COM failure, and the internal error.
//
// Inside the library, including this header also registers the kinds with the exception factory (end of the file). Sources
// that need only a base to catch include errors/error_storage.h instead.
//
// Copying throws nothing.
//
// Contract: an exception.
#pragma once

#include <guiddef.h>

#include <cstdarg>
#include <cstdint>

#include "concurrency/base/export.h"
#include "concurrency/errors/error_storage.h"

namespace Orvane {

// An error in the COM form: an HRESULT and the GUID of the interface or category it belongs to.
class ORVANE_CONCURRENCY_API ExceptionCOM : public ExceptionBase {
  public:
    // With a copy of the record.
    explicit ExceptionCOM(const ErrorStorage& error);

    // Formats the message as wide printf does (%s is a wide string); a null format leaves it empty. Write a percent
    // sign as %%: a format that ends in a single one is an error to the C runtime, which cuts the text or ends the
    // process.
    //
    // On purpose: when the text does not fit (1023 characters), the wide message keeps what was written and what()
    // stays "Message not specified".
    ExceptionCOM(long failure, const GUID& category, const wchar_t* format, ...);

    ~ExceptionCOM() override;

  protected:
    // With an empty message, for FormatText().
    ExceptionCOM(long failure, const GUID& category);

    // Fills in the message, as the public constructor does.
    void FormatText(const wchar_t* format, va_list arguments);
};

// E_ACCESSDENIED.
class ORVANE_CONCURRENCY_API AccessDenied : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit AccessDenied(const ErrorStorage& error);
    ~AccessDenied() override;
};

// ERROR_ELEVATION_REQUIRED as an HRESULT (0x800702E4).
class ORVANE_CONCURRENCY_API ElevationRequired : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit ElevationRequired(const ErrorStorage& error);
    ~ElevationRequired() override;
};

// A named error of the framework itself: null name, code 1. Not an ExceptionCOM.
class ORVANE_CONCURRENCY_API InternalError : public ExceptionBase {
  public:
    // With a copy of the record.
    explicit InternalError(const ErrorStorage& error);
    ~InternalError() override;
};

// E_INVALIDARG.
class ORVANE_CONCURRENCY_API InvalidArg : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit InvalidArg(const ErrorStorage& error);
    ~InvalidArg() override;
};

// E_NOINTERFACE.
class ORVANE_CONCURRENCY_API NoInterface : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit NoInterface(const ErrorStorage& error);
    ~NoInterface() override;
};

// E_NOTIMPL.
class ORVANE_CONCURRENCY_API NotImplemented : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit NotImplemented(const ErrorStorage& error);
    ~NotImplemented() override;
};

// E_OUTOFMEMORY.
class ORVANE_CONCURRENCY_API OutOfMemory : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit OutOfMemory(const ErrorStorage& error);
    ~OutOfMemory() override;
};

// E_POINTER.
class ORVANE_CONCURRENCY_API Pointer : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit Pointer(const ErrorStorage& error);
    ~Pointer() override;
};

// E_UNEXPECTED.
class ORVANE_CONCURRENCY_API Unexpected : public ExceptionCOM {
  public:
    // With a copy of the record.
    explicit Unexpected(const ErrorStorage& error);

    // E_UNEXPECTED with the all-zero GUID and a formatted message, as ExceptionCOM formats it.
    explicit Unexpected(const wchar_t* format, ...);

    ~Unexpected() override;
};

}  // namespace Orvane

#ifdef ORVANE_CONCURRENCY_EXPORTS
namespace Orvane::Internal {

// Tells the exception factory how to throw each of the nine concrete kinds. Ends the process if that fails: it runs
// while the module loads, where an exception cannot be caught.
void RegisterExceptionKinds() noexcept;

namespace {
// On purpose: internal linkage, so that every unit of the library that includes this header registers once more. The
// factory takes a repeated registration as harmless, and the kinds are known whichever unit is initialised first.
struct ExceptionKinds {
    ExceptionKinds() noexcept { RegisterExceptionKinds(); }
};
[[maybe_unused]] const ExceptionKinds g_exceptionKinds;
}  // namespace

}  // namespace Orvane::Internal
#endif
