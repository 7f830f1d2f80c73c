// What the blocks of all pages may use.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <ranges>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/future_notification_adapter.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/figures/figures.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/jobs/runs.h"
#include "concurrency/jobs/stop_all.h"
#include "concurrency/jobs/testing.h"
#include "concurrency/jobs/within.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "zarvo_orvane_logging/orvane_logging.h"
#include "zarvo_orvane_logging/report_recording.h"
#include "zarvo_orvane_utils/exception_factory.h"

using namespace std::chrono_literals;
