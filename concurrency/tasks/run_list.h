// Where what runs stands in memory: for debuggers and for programs that read a process or its dump without debug data.
//
// They find the exported symbol zarvo_run_list, check `magic` and `version`, and walk the lists: docs/debugging.md says how. The
// fields keep their places; what is added comes behind them, and then `size` grows. Another layout gets another version.
//
// Nothing in the library reads it.
#pragma once

#include <cstdint>

#include "concurrency/base/export.h"

extern "C" {

struct ZarvoRunList {
    char magic[8];  // "ZARVORUN"
    std::uint32_t version;  // 1
    std::uint32_t size;  // of this structure, in bytes

    // A list for each part of the threads, of which each part has one.
    const void* parts;
    std::uint32_t partCount;
    std::uint32_t partSize;
    std::uint32_t headInPart;  // the head of its list, which is a link like those of the runs

    // In a link: where the next one stands. The last one's next is the head.
    std::uint32_t nextInLink;

    // In a run, which begins with its link:
    std::uint32_t nameInRun;  // const wchar_t*, terminated
    std::uint32_t threadInRun;  // a Win32 id, 32 bits
    std::uint32_t kindInRun;  // 32 bits; 1: a task; 0: a job, or what runs a group's jobs
    std::uint32_t startInRun;  // when it began: GetTickCount64(), 64 bits
};

extern ORVANE_CONCURRENCY_API const ZarvoRunList zarvo_run_list;
}
