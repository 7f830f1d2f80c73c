#pragma once

#include <exception>
#include <memory>
#include <stdexcept>

#include "concurrency/base/export.h"
#include "concurrency/cancellation/cloneable_exception.h"

namespace Orvane {

// What the mutexes throw when the platform fails them.
//
// Thrown inside a task, it reaches the reader of the task's outcome as a LockException.
//
// Contract: an exception.
class ORVANE_CONCURRENCY_API LockException : public std::exception, public virtual CloneableException {
  public:
    // Keeps a copy of `message`. Errors: std::bad_alloc.
    explicit LockException(const char* message);

    // Copies share one text and cannot fail.
    LockException(const LockException&) noexcept;
    LockException& operator=(const LockException&) noexcept;
    ~LockException() override;

    // The message.
    const char* what() const noexcept override;

    std::shared_ptr<CloneableException> Clone() const override;
    void Rethrow() const override;

  private:
    // Only a place for the message: its copies share one text and cannot fail. On purpose not a base, or handlers for
    // std::runtime_error would catch this.
    std::runtime_error m_message;
};

}  // namespace Orvane
