// What the library reads of the thread's and the process's own blocks: nothing of it is in use here.
#pragma once

struct TEB {
    const void* ProcessEnvironmentBlock;
};

inline TEB* NtCurrentTeb() {
    static const unsigned char process[0x200]{};
    static TEB thread{process};
    return &thread;
}
