#include "concurrency/tasks/future_impl.h"

namespace Orvane::Internal {

FutureImpl<void>::FutureImpl() = default;

FutureImpl<void>::~FutureImpl() = default;

void FutureImpl<void>::SetValue() {
    Complete();
}

void FutureImpl<void>::GetValue() {
    Wait();
    HandleErrors();
}

}  // namespace Orvane::Internal
