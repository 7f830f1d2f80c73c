#include "concurrency/errors/exceptions.h"

#include <cstdio>
#include <stdexcept>
#include <string>

#include "concurrency/base/last_words.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/errors/misuse.h"
#include "zarvo_orvane_utils/exception_factory.h"

namespace Orvane {

namespace {

constexpr GUID kNoGuid{};
constexpr unsigned int kInternalErrorCode = 1;
constexpr std::int32_t kElevationRequired = static_cast<std::int32_t>(0x800702E4);

// The text in the thread's ANSI code page, with its terminator; empty when it cannot be converted.
std::string Narrow(const wchar_t* text) {
    const int size = WideCharToMultiByte(CP_THREAD_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    if (WideCharToMultiByte(CP_THREAD_ACP, 0, text, -1, narrow.data(), size, nullptr, nullptr) == 0) {
        narrow.clear();
    }
    return narrow;
}

template <typename Kind>
[[noreturn]] void Throw(const ErrorStorage& error) {
    throw Kind(error);
}

}  // namespace

ExceptionCOM::ExceptionCOM(const ErrorStorage& error) : ExceptionBase(error) {}

ExceptionCOM::ExceptionCOM(long failure, const GUID& category) {
    hresult = static_cast<std::int32_t>(failure);
    guid = category;
}

ExceptionCOM::ExceptionCOM(long failure, const GUID& category, const wchar_t* format, ...)
    : ExceptionCOM(failure, category) {
    va_list arguments;
    va_start(arguments, format);
    FormatText(format, arguments);
    va_end(arguments);
}

void ExceptionCOM::FormatText(const wchar_t* format, va_list arguments) {
    if (format == nullptr) {
        return;
    }
    // The only variant here that terminates on truncation, says -1 then, and takes %s as a wide string.
    if (_vsnwprintf_s(message, kMessageCapacity, _TRUNCATE, format, arguments) == -1) {
        return;
    }
    if (const std::string narrow = Narrow(message); !narrow.empty()) {
        static_cast<std::runtime_error&>(*this) = std::runtime_error(narrow.c_str());
    }
}

ExceptionCOM::~ExceptionCOM() = default;

AccessDenied::AccessDenied(const ErrorStorage& error) : ExceptionCOM(error) {}
AccessDenied::~AccessDenied() = default;

ElevationRequired::ElevationRequired(const ErrorStorage& error) : ExceptionCOM(error) {}
ElevationRequired::~ElevationRequired() = default;

InternalError::InternalError(const ErrorStorage& error) : ExceptionBase(error) {}
InternalError::~InternalError() = default;

InvalidArg::InvalidArg(const ErrorStorage& error) : ExceptionCOM(error) {}
InvalidArg::~InvalidArg() = default;

NoInterface::NoInterface(const ErrorStorage& error) : ExceptionCOM(error) {}
NoInterface::~NoInterface() = default;

NotImplemented::NotImplemented(const ErrorStorage& error) : ExceptionCOM(error) {}
NotImplemented::~NotImplemented() = default;

OutOfMemory::OutOfMemory(const ErrorStorage& error) : ExceptionCOM(error) {}
OutOfMemory::~OutOfMemory() = default;

Pointer::Pointer(const ErrorStorage& error) : ExceptionCOM(error) {}
Pointer::~Pointer() = default;

Unexpected::Unexpected(const ErrorStorage& error) : ExceptionCOM(error) {}

Unexpected::Unexpected(const wchar_t* format, ...) : ExceptionCOM(E_UNEXPECTED, kNoGuid) {
    va_list arguments;
    va_start(arguments, format);
    FormatText(format, arguments);
    va_end(arguments);
}

Unexpected::~Unexpected() = default;

namespace Internal {

void RegisterExceptionKinds() noexcept try {
    ExceptionFactory::Register(kNoGuid, E_ACCESSDENIED, &Throw<AccessDenied>);
    ExceptionFactory::Register(kNoGuid, kElevationRequired, &Throw<ElevationRequired>);
    ExceptionFactory::Register(nullptr, kInternalErrorCode, &Throw<InternalError>);
    ExceptionFactory::Register(kNoGuid, E_INVALIDARG, &Throw<InvalidArg>);
    ExceptionFactory::Register(kNoGuid, E_NOINTERFACE, &Throw<NoInterface>);
    ExceptionFactory::Register(kNoGuid, E_NOTIMPL, &Throw<NotImplemented>);
    ExceptionFactory::Register(kNoGuid, E_OUTOFMEMORY, &Throw<OutOfMemory>);
    ExceptionFactory::Register(kNoGuid, E_POINTER, &Throw<Pointer>);
    ExceptionFactory::Register(kNoGuid, E_UNEXPECTED, &Throw<Unexpected>);
} catch (...) {
    EndProcessByException("the library cannot register its exception kinds");
}

}  // namespace Internal
void Internal::ThrowNotInitialized() {
    throw Unexpected(
        L"Concurrency library not initialized before usage. Add calls to ConcurrencyInitialize() and "
        L"ConcurrencyUninitialize() or use the ConcurrencyLifetime class.");
}

void Internal::ThrowUninitializing() {
    throw Unexpected(L"The last ConcurrencyUninitialize() has begun: no job can be started.");
}

}  // namespace Orvane
