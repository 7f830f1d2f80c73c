#include "concurrency/cancellation/current_task.h"

#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/lifetime/initialization_state.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane {

namespace Internal {

namespace {

// What the slot points to. Weak: the slot never keeps a future alive.
using Cell = std::weak_ptr<FutureState>;

Cell* CurrentCell(DWORD slot) noexcept {
    return static_cast<Cell*>(TlsGetValue(slot));
}

struct Place {
    DWORD slot;
    Cell* cell;
};

// The slot in use. If it is empty, the reserve may hold the cell: of a run that began before the library was initialised.
Place FindPlace() noexcept {
    const DWORD slot = CurrentTaskSlot();
    Cell* const cell = CurrentCell(slot);
    const DWORD reserve = ReserveSlotIfAny();
    if (cell == nullptr && reserve != slot && reserve != TLS_OUT_OF_INDEXES) {
        if (Cell* const early = CurrentCell(reserve)) {
            return {reserve, early};
        }
    }
    return {slot, cell};
}

}  // namespace

std::shared_ptr<FutureState> GetFutureObject() {
    const Cell* const cell = FindPlace().cell;
    return cell != nullptr ? cell->lock() : nullptr;
}

std::weak_ptr<FutureState> ResetFutureObject(std::weak_ptr<FutureState> future) {
    const auto [slot, cell] = FindPlace();
    const bool install = !future.expired();
    if (cell == nullptr) {
        if (install) {
            auto fresh = std::make_unique<Cell>(std::move(future));
            if (TlsSetValue(slot, fresh.get()) != FALSE) {
                static_cast<void>(fresh.release());  // the slot's now
            }
        }
        return {};
    }
    // Into the old cell rather than into a new one: this runs in a scope guard, where an allocation must not fail.
    cell->swap(future);
    if (!install && TlsSetValue(slot, nullptr) != FALSE) {
        delete cell;
    }
    return future;
}

std::shared_ptr<CancellationObject> GetCancellationObject() {
    const std::shared_ptr<FutureState> future = GetFutureObject();
    return future ? future->GetCancellationObject() : nullptr;
}

}  // namespace Internal

bool IsCancellationRequested() {
    const auto cancellation = Internal::GetCancellationObject();
    return cancellation && cancellation->IsRequested();
}

void CancellationPoint() {
    if (IsCancellationRequested()) {
        throw CancelRequestedException();
    }
}

}  // namespace Orvane
