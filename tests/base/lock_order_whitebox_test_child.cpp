// Takes locks in the order that its argument names; a checked build ends it where the order is violated.
#include <mutex>
#include <string>

#include "concurrency/base/guarded.h"

namespace {

using namespace Orvane::Internal;

RankedMutex<std::recursive_mutex, LockRank::Task> g_task;
RankedMutex<std::recursive_mutex, LockRank::Task> g_otherTask;
RankedMutex<std::recursive_mutex, LockRank::Future> g_future;
RankedMutex<std::recursive_mutex, LockRank::Future> g_otherFuture;

void Ascending() {
    const Guard task(g_task);
    const Guard future(g_future);
    const Guard otherFuture(g_otherFuture);
}

void Descending() {
    const Guard future(g_future);
    const Guard task(g_task);
}

void TwoOfOneRank() {
    const Guard task(g_task);
    const Guard otherTask(g_otherTask);
}

void OneMoreLevel() {
    const Guard task(g_task);
    const Guard future(g_future);
    const Guard taskAgain(g_task);
}

void AfterGivingBack() {
    Guard future(g_future);
    future.unlock();
    const Guard task(g_task);
}

void TakenAgainInTheWrongOrder() {
    Guard task(g_task);
    task.unlock();
    const Guard future(g_future);
    task.lock();
}

}  // namespace

int main(int, char** arguments) {
    const std::string name = arguments[1];
    name == "Ascending"         ? Ascending()
    : name == "Descending"      ? Descending()
    : name == "TwoOfOneRank"    ? TwoOfOneRank()
    : name == "OneMoreLevel"    ? OneMoreLevel()
    : name == "AfterGivingBack" ? AfterGivingBack()
                                : TakenAgainInTheWrongOrder();
}
