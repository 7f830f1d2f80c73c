// Notes a task's name for the last words of its thread.
#pragma once

#include "concurrency/base/last_words.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

// Takes a step for the task. If an exception leaves it, the note has the task's name.
template <typename Step>
void WithNote(const Task& task, TaskNote& note, Step step) {
    try {
        step();
    } catch (...) {
        note.Take(task.GetName());
        throw;
    }
}

}  // namespace Orvane::Internal
