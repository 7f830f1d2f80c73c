// What posix.cpp keeps from one schedule to the next.
#pragma once

namespace Schedules {

void ForgetThreads();

}  // namespace Schedules
