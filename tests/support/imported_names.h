// What tests replace in the library's modules, or call there, by the name that the compiler makes of it. MSVC's names come from
// clang with MSVC's target and from its runtime's headers; nothing here was tried with MSVC.
#pragma once

#include <new>

namespace Zarvo::Test {

#ifdef _MSC_VER
inline constexpr auto kReportName = "?Report@OrvaneLogging@@QEAAXHHPEB_W0ZZ";
inline constexpr auto kFactoryThrowName = "?Throw@ExceptionFactory@Orvane@@SAXAEBVErrorStorage@2@@Z";
inline constexpr auto kCancellationPointName = "?CancellationPoint@Orvane@@YAXXZ";
inline constexpr auto kInitializeName = "?ConcurrencyInitialize@Orvane@@YAXXZ";
inline constexpr auto kUninitializeName = "?ConcurrencyUninitialize@Orvane@@YAXXZ";
inline constexpr auto kConditionWaitName = "_Cnd_wait";  // which returns a code: 0 is well

// The operators are linked into each module. What they import is the C runtime's, and a null pointer makes new throw.
inline constexpr auto kAllocateName = "malloc";
inline constexpr auto kFreeName = "free";
inline void* RefuseMemory() noexcept {
    return nullptr;
}
#else
inline constexpr auto kReportName = "_ZN13OrvaneLogging6ReportEiiPKwS1_z";
inline constexpr auto kFactoryThrowName = "_ZN6Orvane16ExceptionFactory5ThrowERKNS_12ErrorStorageE";
inline constexpr auto kCancellationPointName = "_ZN6Orvane17CancellationPointEv";
inline constexpr auto kInitializeName = "_ZN6Orvane21ConcurrencyInitializeEv";
inline constexpr auto kUninitializeName = "_ZN6Orvane23ConcurrencyUninitializeEv";
inline constexpr auto kConditionWaitName = "_ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE";

// Operator new and the sized delete.
inline constexpr auto kAllocateName = "_Znwy";
inline constexpr auto kFreeName = "_ZdlPvy";
[[noreturn]] inline void* RefuseMemory() {
    throw std::bad_alloc();
}
#endif

}  // namespace Zarvo::Test
