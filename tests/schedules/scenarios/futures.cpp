// A future between the run that ends it, a request and a wait.

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/tasks/future_impl.h"
#include "tests/schedules/controller/scenario.h"

namespace {

using Orvane::CancelRequestedException;
using Orvane::Internal::FutureImpl;
using Schedules::Check;
using Schedules::Party;

using Future = std::shared_ptr<FutureImpl<void>>;

Future MakeFuture() {
    Future future(new FutureImpl<void>());
    future->MarkAsAttachedToTask();
    return future;
}

}  // namespace

SCENARIO(FutureCompletesWhileItIsWaitedFor) {
    const Future future = MakeFuture();
    int written = 0;
    Party run([&] {
        Check(future->Start(), "nobody cancels it");
        written = 1;
        future->SetValue();
    });
    future->Wait();
    Check(written == 1 && future->IsNormal(), "what the run did is there after the wait");
}

SCENARIO(FutureCompletesAgainstCancelAgainstWait) {
    const Future future = MakeFuture();
    Party run([&] {
        if (future->Start()) {
            future->SetValue();
        }
    });
    Party requester([&] { future->RequestCancel(); });
    future->Wait();
    const bool isNormal = future->IsNormal();
    Check(isNormal != future->IsCancelled(), "the run has one outcome");
    requester.Join();
    Check(isNormal == future->IsNormal(), "an outcome is final");
}

SCENARIO(FutureConfirmsAgainstASecondRequest) {
    const Future future = MakeFuture();
    Party run([&] {
        if (!future->Start()) {
            return;
        }
        const auto object = future->GetCancellationObject();
        if (object->IsRequested()) {
            future->ConfirmCancel();
        } else {
            future->SetValue();
        }
    });
    Party requester([&] { future->RequestCancel(); });
    future->RequestCancel();
    future->Wait();
    Check(future->IsNormal() || future->IsCancelled(), "the run has an outcome");
}

SCENARIO(FutureIsWaitedForByTwo) {
    const Future future = MakeFuture();
    Party run([&] {
        if (future->Start()) {
            future->SetValue();
        }
    });
    Party other([&] {
        future->Wait();
        Check(future->IsNormal(), "the wait ends with the run");
    });
    future->Wait();
    Check(future->IsNormal(), "the wait ends with the run");
}

SCENARIO(FutureIsCancelledBeforeItStarts) {
    const Future future = MakeFuture();
    bool hasStarted = false;
    Party run([&] {
        hasStarted = future->Start();
        if (hasStarted) {
            Check(future->GetCancellationObject() != nullptr, "a run that starts has its record");
            future->ConfirmCancel();
            future->SetValue();
        }
    });
    future->RequestCancel();
    future->Wait();
    run.Join();
    Check(hasStarted || future->IsCancelled(), "what was cancelled first does not start");
    Check(!hasStarted || future->IsNormal() || future->IsCancelled(), "what has started has an outcome");
}

SCENARIO(FutureFailsWhileItIsWaitedFor) {
    const Future future = MakeFuture();
    Party run([&] {
        if (future->Start()) {
            future->SetException(Orvane::CancelledException());
        }
    });
    bool hasThrown = false;
    try {
        future->GetValue();
    } catch (const Orvane::CancelledException&) {
        hasThrown = true;
    }
    Check(hasThrown, "the failure comes out of the wait");
}

SCENARIO(FutureEndsAtTheDeadlineOfAWait, {.patience = 20 * Schedules::kMillisecond}) {
    const Future future = MakeFuture();
    Party run([&] {
        if (future->Start()) {
            future->SetValue();
        }
    });
    const auto deadline = std::chrono::time_point_cast<Orvane::Duration>(std::chrono::system_clock::now()) +
                          std::chrono::milliseconds(10);
    const bool hasEnded = future->TimedWait(deadline);
    Check(!hasEnded || future->IsNormal(), "a wait that says so has seen the end");
    future->Wait();
    Check(future->IsNormal(), "the run has ended");
}

SCENARIO(FutureConfirmsWithinTheGrace) {
    const Future future = MakeFuture();
    Party run([&] {
        if (!future->Start()) {
            return;
        }
        const auto object = future->GetCancellationObject();
        std::this_thread::sleep_for(std::chrono::seconds(29));
        if (object->IsRequested()) {
            future->ConfirmCancel();
        } else {
            future->SetValue();
        }
    });
    Party requester([&] { future->RequestCancel(); });
    future->Wait();
    Check(!future->IsCancelling(), "the wait ends with the run");
}
