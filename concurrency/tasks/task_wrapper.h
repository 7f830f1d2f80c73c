// Binds a callable to a future: runs it, and turns the way it ended into the future's final state.
//
// Not for callers.
//
// Threads: run it on one thread; GetFuture() and Recreate() from any.
// Cancellation: while the callable runs, its future is the thread's current one, so cancellation points and cancellable
//     waits inside it find their run. Nested runs restore the outer one.
// Errors: CancelRequestedException, ExceptionBase and CloneableException end up in the future; the first of them without a
//     request leaves it busy. Anything else leaves operator(): the future stays busy, and on a thread of the library the
//     process ends.
// Lifetime: after a normal return the callable and its bound arguments are destroyed before the future is completed; a
//     callable that threw is kept until the wrapper dies.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/error_storage.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/itask_state.h"
#include "concurrency/tasks/policies.h"

namespace Orvane::Internal {

// Storage for one callable.
template <typename F>
class FunctionWrapper {
  public:
    explicit FunctionWrapper(const F& function) : m_function(function) {}

    void operator()() { m_function(); }
    const F& Get() const { return m_function; }

  private:
    F m_function;
};

// Makes a future the calling thread's current one for a scope.
class CurrentFutureScope {
  public:
    explicit CurrentFutureScope(std::weak_ptr<FutureState> future) : m_previous(ResetFutureObject(std::move(future))) {}
    ~CurrentFutureScope() { RestoreFutureObject(std::move(m_previous)); }
    CurrentFutureScope(const CurrentFutureScope&) = delete;
    CurrentFutureScope& operator=(const CurrentFutureScope&) = delete;

  private:
    std::weak_ptr<FutureState> m_previous;
};

template <typename Result, typename F, typename ThreadPolicy = NullPolicy, typename LoggingPolicy = LoggingPolicyNull>
class TaskWrapper : public ITaskState {
  public:
    // Copies the callable and attaches the future, which must not be null: from then on waits on it are real waits.
    TaskWrapper(const F& function, std::shared_ptr<FutureImpl<Result>> future)
        : m_future(std::move(future)), m_function(std::make_shared<FunctionWrapper<F>>(function)) {
        m_future->MarkAsAttachedToTask();
    }

    ~TaskWrapper() override = default;

    void operator()() override {
        const PolicyScope<ThreadPolicy> threadPolicy;
        try {
            if (m_future->Start()) {
                Call();
            }
        } catch (const CancelRequestedException&) {
            m_future->ConfirmCancel();
        } catch (const ExceptionBase& error) {
            m_future->SetException(CloneableExceptionBase(error));
        } catch (const CloneableException& exception) {
            m_future->SetException(exception);
        }
    }

    std::shared_ptr<ITaskState> Recreate() override {
        const auto function = m_function.load();
        if (!function) {
            return nullptr;
        }
        std::shared_ptr<FutureImpl<Result>> future(new FutureImpl<Result>());
        return std::shared_ptr<ITaskState>(new TaskWrapper(function->Get(), std::move(future)));
    }

    std::shared_ptr<IFutureState> GetFuture() override { return m_future; }

  private:
    void Call() {
        const CurrentFutureScope current(m_future);
        auto function = m_function.load();
        if (!function) {
            return;  // run once more after a normal end: the future has its outcome
        }
        (*function)();
        // On purpose before the future is completed: a waiter may count on the bound arguments being gone.
        m_function.store(nullptr);
        function.reset();
        m_future->SetValue();
    }

    const std::shared_ptr<FutureImpl<Result>> m_future;

    // Emptied by the run while another thread may copy it for Recreate().
    std::atomic<std::shared_ptr<FunctionWrapper<F>>> m_function;
};

}  // namespace Orvane::Internal
