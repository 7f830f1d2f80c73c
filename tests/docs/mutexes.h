// What the blocks of docs/mutexes.md take from their programs.
#pragma once

namespace {

struct Data {
    void RepairIfDamaged() {}
};

Data data;
Orvane::fifo_mutex fifo;
Orvane::checked_mutex index;
Orvane::checked_mutex journal;
Orvane::interprocess_mutex mutex(L"Mutex");

}  // namespace
