// What leaves the waits of a group.
//
// Threads: any.
#pragma once

#include <exception>
#include <typeinfo>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job_group.h"

namespace Zarvo::Test {

struct OddFailure {
    int number;
};

// What leaves the group's Wait().
inline std::exception_ptr ErrorOfWait(Orvane::JobGroup& group) {
    try {
        group.Wait();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

// Waits, whether jobs were cancelled or not.
inline void WaitForTheEndOf(Orvane::JobGroup& group) {
    try {
        group.Wait();
    } catch (const Orvane::CancelledException&) {
    }
}

template <typename Error>
bool IsExactly(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const Error& caught) {
        return typeid(caught) == typeid(Error);
    } catch (...) {
        return false;
    }
}

inline int NumberOf(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const OddFailure& failure) {
        return failure.number;
    } catch (...) {
        return -1;
    }
}

}  // namespace Zarvo::Test
