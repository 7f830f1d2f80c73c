// The exceptions that carry cancellation and task failure across threads.
//
// CancelRequestedException unwinds a running task whose cancellation was requested; CancelledException is what a
// reader of a cancelled task's outcome receives.
//
// Contract: an exception.
#pragma once

#include <exception>
#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/cancellation/cloneable_exception.h"
#include "concurrency/errors/error_storage.h"

namespace Orvane {

// Leaves every cancellation point of a task whose cancellation was requested. Let it go: the task's wrapper catches it
// and confirms the cancellation. Have it thrown by CancellationPoint() or Cancel(): without a request there is nothing to
// confirm, and the future would stay busy for ever. On purpose not a CloneableException: no future ever stores it.
class ORVANE_CONCURRENCY_API CancelRequestedException : public std::exception {
  public:
    // Has no fields.
    CancelRequestedException();
    CancelRequestedException(const CancelRequestedException&);
    CancelRequestedException& operator=(const CancelRequestedException&);
    ~CancelRequestedException() override;

    // "CancelRequestedException".
    const char* what() const noexcept override;
};

// Base of what a reader of a task's outcome receives instead of the task's own exception.
class ORVANE_CONCURRENCY_API ThreadException : public std::exception, public virtual CloneableException {
  public:
    // Has no fields.
    ThreadException();
    ThreadException(const ThreadException&);
    ThreadException& operator=(const ThreadException&);
    ~ThreadException() override;

    std::shared_ptr<CloneableException> Clone() const override;
    void Rethrow() const override;
};

// The task was cancelled: it has no outcome.
class ORVANE_CONCURRENCY_API CancelledException : public ThreadException {
  public:
    // Has no fields.
    CancelledException();
    CancelledException(const CancelledException&);
    CancelledException& operator=(const CancelledException&);
    ~CancelledException() override;

    std::shared_ptr<CloneableException> Clone() const override;
    void Rethrow() const override;
};

// Carries any ExceptionBase through a future: Rethrow() hands the record to the exception factory, which throws the
// kind that was registered for its code.
class ORVANE_CONCURRENCY_API CloneableExceptionBase : public ExceptionBase, public virtual CloneableException {
  public:
    // A copy of the record.
    explicit CloneableExceptionBase(const ExceptionBase& error);
    CloneableExceptionBase(const CloneableExceptionBase&);
    CloneableExceptionBase& operator=(const CloneableExceptionBase&);
    ~CloneableExceptionBase() override;

    std::shared_ptr<CloneableException> Clone() const override;

    // On purpose: returns without throwing when the record's code is zero, and when the factory throws nothing.
    void Rethrow() const override;
};

namespace Internal {

// Not for callers.
//
// What every cancellable wait throws when the calling thread's run was asked: CancelRequestedException, or where the reason was
// a time limit, what names it (time_limit_exceptions.h). Takes no lock but that of the cancellation object.
[[noreturn]] ORVANE_CONCURRENCY_API void ThrowCancelRequested();

}  // namespace Internal

}  // namespace Orvane
