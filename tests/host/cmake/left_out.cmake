# What does not run here, and why. A new test runs here by itself; it is listed only if it cannot.

set(left_out_files
    # Kernel names that other processes see, and memory shared with them.
    sync/interprocess_mutex_process_test.cpp
    sync/interprocess_mutex_process_test_child.cpp
    # The entry point that the platform's loader calls, loading and unloading.
    lifetime/library_unload_test_child.cpp
    # Takes memory away from a thread.
    lifetime/caller_at_exit_test.cpp
    lifetime/caller_at_exit_test_child.cpp
    # Runs, but is built otherwise than the others, in tests.cmake.
    errors/exception_registration_test_child.cpp
    # Replaces what the platform's conditions and mutexes are made of.
    sync/fifo_mutex_platform_test.cpp
    # Asks for the processor time of a process.
    sync/fifo_mutex_waiters_slow_test.cpp
    # Suspend threads.
    threadpool/idle_workers_whitebox_stress_test.cpp
    faults/suspended_workers_stress_test.cpp
    # Kills threads in waits whose end waits for them here.
    faults/killed_workers_test.cpp
    # Starts a program of the platform, and watches a folder.
    jobs/job_process_test.cpp
    # Starts an example, which is a program of the platform.
    sync/shared_counter_test.cpp
    # Starts a program of the platform, and shares memory with it.
    figures/zarvo_ps_test.cpp
)

set(left_out_tests
    # HRESULTs and DWORDs are longer than 32 bits here, as `long` is.
    CloneableExceptionBase.RethrownExceptionHasTheWholeRecord
    CancellationObject.HoldsItsFieldsInTheirOrder
    InterprocessMutex.KeepsHandleThenFlagThenOwner

    # Looks a function of the logging library up by its name.
    TraceAccess.IsMissingWhereTheLoggingLibraryHasNoTrace

    # Waits for all of several handles.
    JobEndEvent.CanBeWaitedForBesideOtherHandles

    # A wait needs memory here, because the standard's conditions do.
    JobWithoutMemory.IsCancelledDroppedAndDetached
    CheckedMutexWithoutMemory.NeedsNone
    GroupsWithoutMemory.EndAllTheSame
    LoopsWithoutMemory.GiveAllResultsOrThrow

    # Code pages other than Latin 1.
    ExceptionComMessage.WhatIsInTheCodePageOfTheThread

    # Replaces what the platform's standard library is made of: critical sections, its conditions, its heap.
    TokenThatIsStoppedAtTheEndOfItsJob.DoesNotHoldTheThreadOfTheJob
    IdlePool.LostWakeUpDelaysAtMostOneTaskOfABurst
    IdlePool.TaskWhoseWakeUpWasLostDoesNotTakeTheNextOnesWorker
    IdlePool.WorkerThatIsHeldWhileItLooksDelaysOneTaskUntilTheNextIsQueued
    FifoMutexLifetime.EndsWithTheNextOwnerThoughTheOneBeforeIsStillInUnlock
    FifoMutexLifetime.EndsWithTheOwnerThoughARequestForAFormerWaiterIsOnItsWay
    CancellableSleep.OfZeroDoesNotWaitInsideNorOutsideATask
    CancellableSleep.WaitsOnceForTheGivenTime
    CancellableSleep.WaitsOnceWithoutALimitForInfiniteTime
    SleepNotificationAdapter.SleepOfMoreThanTenDaysIsCutToTenDays
    SleepNotificationAdapter.SleepOfZeroDoesNotWait
    ThreadPoolGrowth.SleepAsksForNoMoreThanTheRestOfThePeriod
    Of/ProcessEnd.SaysTheLineOfItsRowAndLeavesItsRecord/lifetime
    CancellableWaitForMultipleObjects.NoMemoryForTheArrayIsBadAllocAlsoForTheLargestCount

    # Kills a thread that sleeps in a condition: here the condition's end waits for it.
    IdlePool.KilledSleeperDelaysAtMostOneTaskOnce
    ThreadPoolStopGrace.WaitsForAKilledWorkerThatWasNotReported

    # At the end of a process on the platform the program's static objects go before the library's, and other threads are
    # gone by then. Here they go in the order of their making, beside the threads.
    ConcurrencyLifetimeProcess.ClientThatNeverUninitialisesExitsCleanlyWhileTasksAreBlockedAndScheduled
    ConcurrencyLifetimeProcess.StaticLifetimeObjectOfTheProgramIsTornDownAtItsEnd
    # A module that a static handle of its own keeps loaded: here its destructor would unload it under itself.
    Of/StaticJob.EndsWithTheProcess/6

    # This system unloads a module that a thread-local object has kept only when another one is unloaded.
    ModuleWithAThreadLocalObject.StaysLoadedUntilTheWorkerEnds
    # There is no loader's lock here.
    StaticGroupOfAModule.CannotLeaveWhileTheModuleIsUnloaded
    Of/ProcessEnd.SaysTheLineOfItsRowAndLeavesItsRecord/static_group

    # What a wait asks of the platform: here it is the standard's wait.
    ScheduledTaskQueueWait.SleepsForTheTimeThatIsLeftADayAtMost
    ScheduledTaskQueueWait.AsksForNoLimitWhileTheQueueIsEmpty

    # How fast workers are: here a sanitizer decides that.
    ThreadPoolGrowth.BurstOfShortTasksHardlyGrowsThePool

    # Starts what is left out above.
    ConcurrencyLifetimeProcess.UnloadingTheLibraryGivesItsSlotsBack
)

if(SANITIZER STREQUAL "address")
    list(APPEND left_out_tests
        # A worker that no shutdown waits for may run on after the last uninitialisation. Its run's cell is lost with the
        # slot (see docs/limits.md), and is reported, rightly.
        At/FailedGrowth.EndsTheGrowthTaskAndLaterCallersWaitUntilThePoolStops/*
        ThreadStartFailure.WorkerOfAFailedGrowthWorksButShutdownDoesNotWaitForIt
    )
endif()
