// What a time limit throws. Each exception says which limit it was. Without memory for the text what() is the class's name.
//
// Contract: an exception.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "concurrency/base/export.h"
#include "concurrency/cancellation/cancellation_exceptions.h"

namespace Orvane {

namespace Internal {

// Not for callers.
//
// One time limit.
struct TimeLimitDetails {
    TimeLimitDetails(std::wstring limited, std::chrono::nanoseconds length)
        : name(std::move(limited)), duration(length) {}

    // As in "the time limit of 2 s of Answer". Not exported.
    std::wstring Text() const;

    std::wstring name;  // of the job, the group or the scope that has it
    std::chrono::nanoseconds duration;
};

// Not for callers.
//
// What both exceptions carry. Empty if no limit is known.
class ORVANE_CONCURRENCY_API TimeLimitText {
  public:
    TimeLimitText() noexcept;
    TimeLimitText(const char* kind, std::shared_ptr<const TimeLimitDetails> limit) noexcept;
    TimeLimitText(const TimeLimitText&) noexcept;
    TimeLimitText& operator=(const TimeLimitText&) noexcept;
    ~TimeLimitText();

    // Null if there is none.
    const char* What() const noexcept;
    std::wstring Name() const;
    std::chrono::nanoseconds Duration() const noexcept;

  private:
    std::shared_ptr<const TimeLimitDetails> m_limit;
    std::shared_ptr<const std::string> m_what;
};

}  // namespace Internal

// Job::Get(): the job left because of a time limit (CancelAfter), its own or that of a run that owns it; it has no outcome.
// JobGroup::Wait(): the same of the group. A cancellable wait: the time of a scope around it is up (jobs/within.h).
class ORVANE_CONCURRENCY_API TimeLimitException : public CancelledException {
  public:
    // Of no known limit.
    TimeLimitException();
    // Of the limit that the job, group or scope of this name has. Errors: std::bad_alloc.
    TimeLimitException(std::wstring name, std::chrono::nanoseconds limit);

    // Of the same limit.
    TimeLimitException(const TimeLimitException&);
    TimeLimitException& operator=(const TimeLimitException&);
    ~TimeLimitException() override;

    // Not for callers.
    explicit TimeLimitException(std::shared_ptr<const Internal::TimeLimitDetails> limit);

    // Which limit it was: the name of the job, group or scope that has it, and its length. Empty and zero if it is not known.
    std::wstring GetName() const;
    std::chrono::nanoseconds GetLimit() const noexcept;

    // As in "TimeLimitException: the time limit of 2 s of Answer", in UTF-8. Without a limit "TimeLimitException".
    const char* what() const noexcept override;

    std::shared_ptr<CloneableException> Clone() const override;
    void Rethrow() const override;

  private:
    Internal::TimeLimitText m_text;
};

// Leaves the cancellation points of a job that was asked by a time limit (CancelAfter), its own or that of a run that owns it.
// Treat it as CancelRequestedException: let it go.
class ORVANE_CONCURRENCY_API TimeLimitRequestException : public CancelRequestedException {
  public:
    // Of the same limit.
    TimeLimitRequestException(const TimeLimitRequestException&);
    TimeLimitRequestException& operator=(const TimeLimitRequestException&);
    ~TimeLimitRequestException() override;

    // Not for callers.
    explicit TimeLimitRequestException(std::shared_ptr<const Internal::TimeLimitDetails> limit);

    // As above.
    std::wstring GetName() const;
    std::chrono::nanoseconds GetLimit() const noexcept;
    const char* what() const noexcept override;

  private:
    Internal::TimeLimitText m_text;
};

}  // namespace Orvane
