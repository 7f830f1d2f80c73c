// The Win32 types of the public interface, without windows.h. windows.h repeats these typedefs unchanged, so both may
// be included, in either order.
#pragma once

// An unsigned number of 32 bits.
typedef unsigned long DWORD;  // NOLINT(modernize-use-using): must read as the platform's own declaration

// A handle of a kernel object.
typedef void* HANDLE;         // NOLINT(modernize-use-using)
