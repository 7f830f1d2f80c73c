// The C runtime's way to start threads.
#pragma once

#include <cstdint>

extern "C" std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned (*entry)(void*), void* argument,
                                         unsigned flags, unsigned* id);
