// Whether the calling thread is inside the platform's loader: in a DllMain, or in a constructor or destructor of a DLL's
// static objects. There no thread can be waited for, because a thread needs the loader's lock to begin and to end.
#pragma once

namespace Orvane::Internal {

bool HoldsLoaderLock() noexcept;

}  // namespace Orvane::Internal
