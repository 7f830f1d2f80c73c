// Takes locks in the order that its argument names; a checked build ends it where the order is violated.
#include <mutex>
#include <string>

#include "concurrency/base/ranked_mutex.h"
#include "concurrency/errors/critical_section.h"

namespace {

using namespace Orvane::Internal;

RankedMutex<std::recursive_mutex, LockRank::Task> g_task;
RankedMutex<std::recursive_mutex, LockRank::Task> g_otherTask;
RankedMutex<std::recursive_mutex, LockRank::Future> g_future;
RankedMutex<std::recursive_mutex, LockRank::Future> g_otherFuture;
RankedMutex<std::recursive_mutex, LockRank::Waiter> g_waiter;

void Ascending() {
    const RankedLock task(g_task);
    const RankedLock future(g_future);
    const RankedLock otherFuture(g_otherFuture);
}

void Descending() {
    const RankedLock future(g_future);
    const RankedLock task(g_task);
}

void TwoOfOneRank() {
    const RankedLock task(g_task);
    const RankedLock otherTask(g_otherTask);
}

void OneMoreLevel() {
    const RankedLock task(g_task);
    const RankedLock future(g_future);
    const RankedLock taskAgain(g_task);
}

void BelowAnOlderOne() {
    const RankedLock task(g_task);
    const RankedLock waiter(g_waiter);
    const RankedLock taskAgain(g_task);
    const RankedLock future(g_future);
}

void AfterGivingBack() {
    RankedLock future(g_future);
    future.unlock();
    const RankedLock task(g_task);
}

void TakenAgainInTheWrongOrder() {
    RankedLock task(g_task);
    task.unlock();
    const RankedLock future(g_future);
    task.lock();
}

void CriticalSectionAfterATask() {
    Orvane::CriticalSection section;
    const RankedLock task(g_task);
    const Orvane::CriticalSectionLock creation(section);
}

}  // namespace

int main(int, char** arguments) {
    const std::string name = arguments[1];
    name == "Ascending"                   ? Ascending()
    : name == "Descending"                ? Descending()
    : name == "TwoOfOneRank"              ? TwoOfOneRank()
    : name == "OneMoreLevel"              ? OneMoreLevel()
    : name == "BelowAnOlderOne"           ? BelowAnOlderOne()
    : name == "AfterGivingBack"           ? AfterGivingBack()
    : name == "CriticalSectionAfterATask" ? CriticalSectionAfterATask()
                                          : TakenAgainInTheWrongOrder();
}
