// Last words that name the run that the calling thread is in: base/last_words.h.
#pragma once

namespace Orvane::Internal {

// In a catch block: says the reason, the task that the calling thread runs, the thread and the exception. Ends the process.
[[noreturn]] void EndProcessInRun(const char* reason) noexcept;

}  // namespace Orvane::Internal
