// What asks a job to leave when a std::stop_token is stopped.
//
// A callback of a stop token that is removed while it runs is waited for. With GCC's library that wait sleeps in a table of the
// module that removes it, and the end of the callback wakes those in the table of the module that stops the token. Between two
// modules the wake-up is lost. So no thread removes a callback that has been, or is about to be, called: the callback destroys
// its registration itself, in its own call, where nothing is waited for.
//
//   at the end of the job   who destroys the registration
//   ---------------------   ---------------------------------------------------
//   not stopped             the thread that ends the job
//   stopped                 the callback; the link lives until then
//
// One case is left. If the token is stopped between the look and the removal, the removal waits for the callback, which returns at
// once then; GCC's library looks some microseconds long before it sleeps.
//
// Threads: any.
// Locks: the mutex guards what is written before the callback may come. Nothing is asked under it.
// Errors: none.
// Lifetime: shared. While it is registered it has a reference to itself.
#pragma once

#include <memory>
#include <optional>
#include <stop_token>

#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/jobs/cancellable.h"

namespace Orvane::Internal {

class TokenLink : public std::enable_shared_from_this<TokenLink> {
  public:
    explicit TokenLink(std::weak_ptr<Cancellable> asked) : m_asked(std::move(asked)) {}
    TokenLink(const TokenLink&) = delete;
    TokenLink& operator=(const TokenLink&) = delete;

    // Once. Asks on the calling thread if the token is stopped already. Does nothing after Remove().
    void Register(const std::stop_token& token) noexcept;

    // What is asked has ended. May wait for a callback of the token that has begun meanwhile: call it without a lock.
    void Remove() noexcept;

  private:
    struct Call {
        TokenLink& link;
        void operator()() const noexcept { link.TokenStops(); }
    };

    void TokenStops() noexcept;
    void Ask() noexcept;

    const std::weak_ptr<Cancellable> m_asked;

    // Recursive: a token that is stopped calls within its registration.
    RankedMutex<RecursiveMutex, LockRank::Leaf> m_mutex;
    bool m_isRegistering ORVANE_GUARDED_BY(m_mutex) = false;
    bool m_isStopped ORVANE_GUARDED_BY(m_mutex) = false;  // found at the registration
    bool m_isRemoved ORVANE_GUARDED_BY(m_mutex) = false;

    // Of the thread that destroys the registration, once it stands.
    std::stop_token m_token;
    std::optional<std::stop_callback<Call>> m_callback;
    std::shared_ptr<TokenLink> m_self;
};

}  // namespace Orvane::Internal
